"""The wire protocol of osdsrv for peers in Python: all messages, packing and unpacking, and a client
that numbers its requests, sends them again, and notices when the daemon restarted.

    import osd
    with osd.Peer(9635) as peer:                                # MainCtl
        peer.ask(osd.OsdInit(w=1920, h=1080))
        peer.ask(osd.OsdStringShow(osd_seq=0x105, flag=osd.MASK_TEXT, str=b"Hello"))

docs/protocol.md, "Writing a peer", tells the rest. Needs Python 3.7 and its standard library. Texts
are bytes; their lengths are filled in. What stands between "generated" marks is made by
clients/generate.
"""
import collections
import socket
import struct
import time

# generated: constants
MAX_DATAGRAM = 4096
HEADER_SIZE = 18
MAGIC = 0x55667788
DAEMON_PORT = 9636  # where the daemon listens
MPP_PORT = 9637  # the media process
EVERY_CLASS = 255
EVERY_NUMBER = 255
EVERY_ELEMENT = 65535
IMAGE_CLASS = 2
EVERY_OUTPUT = 255
MAX_ENTRIES = 16  # of MppBatchShow
MASK_POSITION = 0x1
MASK_FONT_SIZE = 0x2
MASK_TEXT_COLOUR = 0x4
MASK_BACKGROUND = 0x8
MASK_TEXT = 0x10
MASK_FOREVER = 0x20
# generated end

RESULTS = {  # as the daemon's log numbers them
    # generated: results
    1: "datagram shorter than the header",
    2: "magic is not 0x55667788",
    3: "version is not 0",
    4: "type is none of 'CMD', 'EVT', 'RES'",
    5: "repeats the peer's last sequence number",
    6: "unknown message id",
    7: "body length is not the one that the id requires",
    8: "the body cannot be decoded",
    9: "the remote port has no sequence slot",
    # generated end
    10: "the daemon could not carry it out",
}

PeerRow = collections.namedtuple("PeerRow", "name heard always")
PEERS = {  # by port; whether the daemon hears it, and the number that it accepts at any time
    # generated: peers
    9634: PeerRow("Test", True, 0),
    9635: PeerRow("MainCtl", True, 0),
    9636: PeerRow("Osd", True, 0),
    9637: PeerRow("Mpp", True, 0),
    9638: PeerRow("Upgrade", False, 0),
    9639: PeerRow("UsbCam", True, 0),
    9640: PeerRow("HdmiIn", True, 1),
    9641: PeerRow("Ipav", True, 0),
    9642: PeerRow("Airplay", True, 1),
    9643: PeerRow("Miracast", True, 1),
    9644: PeerRow("ZtCast", True, 1),
    9645: PeerRow("VkDongle", True, 1),
    9646: PeerRow("Unknown", False, 0),
    9647: PeerRow("ZtDongle", True, 1),
    9648: PeerRow("HIDTrans", True, 0),
    # generated end
}
MESSAGES = {}  # class of message by id
_INTS = {"1": "<B", "2": "<H", "4": "<I", "-4": "<i"}


class Error(Exception):
    """A datagram cannot be made or read; result is a key of RESULTS."""

    def __init__(self, result):
        super().__init__(RESULTS[result])
        self.result = result


class Refused(Error):
    """The daemon refused a request; reply is its answer."""

    def __init__(self, result, reply):
        super().__init__(result)
        self.reply = reply


class NoAnswer(Exception):
    """Nothing that belongs to the request came, or (nobody) nobody listens at the daemon's port."""

    def __init__(self, nobody):
        super().__init__("nobody listens at the daemon's port" if nobody else "no answer in time")
        self.nobody = nobody


class _Reader:
    """Bytes that did not arrive read as 0."""

    def __init__(self, data):
        self.data, self.at = data, 0

    def take(self, count):
        part = self.data[self.at:self.at + count]
        self.at += count
        return part.ljust(count, b"\0")

    def int(self, code):
        return struct.unpack(_INTS[code], self.take(abs(int(code))))[0]

    def whole(self, count):
        if count > 0 and self.at + count > len(self.data):
            raise Error(8)
        return self.take(count)


def _fields(spec):
    """name, kind ("" for an integer), width of the integer or length, bit of flag that it needs."""
    for word in spec.split():
        name, code = word.split(":")
        code, _, bit = code.partition("&")
        kind = code[0] if code[0].isalpha() else ""
        yield name, kind, code[len(kind):], int(bit or 0)


def _default(kind, width):
    return bytes(int(width)) if kind == "c" else {"": 0, "b": ()}.get(kind, b"")


def _pack(fields, values):
    parts = []
    for name, kind, width, bit in fields:
        value = values[name]
        if kind == "":
            parts.append(struct.pack(_INTS[width], value))
        elif kind == "c":
            parts.append(value)
        elif kind == "b":
            parts += [_pack(_ENTRY_FIELDS, dict(zip(_ENTRY_NAMES, entry))) for entry in value]
        elif kind == "e" and values["edid_presence"] == 2:
            parts.append(struct.pack("<H", len(value)) + value)
        elif kind != "e" and (not bit or values["flag"] & bit):
            parts.append(struct.pack(_INTS[width], len(value)) + value)
    return b"".join(parts)


def _unpack(fields, reader, param_len):
    values = {}
    for name, kind, width, bit in fields:
        values[name] = _default(kind, width)
        if kind == "":
            values[name] = reader.int(width)
        elif kind == "c":
            values[name] = reader.take(int(width))
        elif kind == "b":
            num = values["num"]
            if num > MAX_ENTRIES or param_len != 3 + 10 * num:
                raise Error(8)
            values[name] = tuple(
                tuple(_unpack(_ENTRY_FIELDS, reader, 0).values()) for _ in range(num))
        elif kind == "e" and values["edid_presence"] == 2:
            values[name] = reader.whole(reader.int("2"))
        elif kind != "e" and (not bit or values["flag"] & bit):
            count = reader.int(width)
            values[name] = reader.whole(count if kind != "p" or count > 1 else 0)
    return values


class Message:
    """What all messages have: fields that are given by name and 0 or empty by default, and the
    header's seq and type (msg_type)."""

    id = required = None
    fields = ()

    def __init__(self, seq=0, msg_type=None, **values):
        self.seq = seq
        self.msg_type = msg_type or (b"RES" if self.id <= ERR_RES_MSG_PARAM_LEN.id else b"CMD")
        self.__dict__.update({name: _default(kind, width) for name, kind, width, _ in self.fields})
        unknown = values.keys() - self.__dict__.keys()
        if unknown:
            raise TypeError(f"{self.__class__.__name__} has no {', '.join(sorted(unknown))}")
        self.__dict__.update(values)

    def __eq__(self, other):
        return self.__class__ is other.__class__ and self.__dict__ == other.__dict__

    def __repr__(self):
        return f"{self.__class__.__name__}({', '.join(f'{k}={v!r}' for k, v in self.__dict__.items())})"

    def pack(self):
        """The datagram. Error(8) when it does not fit one; struct.error when a number does not fit."""
        if "entry" in self.__dict__:
            self.num = len(self.entry)
        body = _pack(self.fields, self.__dict__)
        if HEADER_SIZE + len(body) > MAX_DATAGRAM or getattr(self, "num", 0) > MAX_ENTRIES:
            raise Error(8)
        return struct.pack(">IB3s", MAGIC, 0, self.msg_type) + \
            struct.pack("<IIH", self.seq, self.id, len(body)) + body


def _message(name, id, required, spec):
    MESSAGES[id] = type(name, (Message,), {
        "id": id, "required": required, "fields": tuple(_fields(spec)), "__doc__": spec})
    return MESSAGES[id]


# generated: entry
_ENTRY = "vin_seq:2 x:2 y:2 w:2 h:2"
# generated end
_ENTRY_FIELDS = tuple(_fields(_ENTRY))
_ENTRY_NAMES = [field[0] for field in _ENTRY_FIELDS]
# generated: messages
Ack = _message("Ack", 0x00000000, None, "msg_seq:4 msg_id:4")
ProcessSuccess = _message("ProcessSuccess", 0x00000001, None, "msg_seq:4 msg_id:4")
ProcessFailure = _message("ProcessFailure", 0x00000002, None, "msg_seq:4 msg_id:4 msg_err_code:4")
ERR_RES_MSG_MAGIC_NUM = _message("ERR_RES_MSG_MAGIC_NUM", 0x00000003, None, "magic:4")
ERR_RES_MSG_VERSION = _message("ERR_RES_MSG_VERSION", 0x00000004, None, "version:1 supported:1")
ERR_RES_MSG_TYPE = _message("ERR_RES_MSG_TYPE", 0x00000005, None, "type:c3")
ERR_RES_MSG_SEQUENCE = _message("ERR_RES_MSG_SEQUENCE", 0x00000006, None, "msg_seq:4 prev_seq:4")
ERR_RES_MSG_ID = _message("ERR_RES_MSG_ID", 0x00000007, None, "msg_seq:4 msg_id:4")
ERR_RES_MSG_PARAM_LEN = _message("ERR_RES_MSG_PARAM_LEN", 0x00000008, None,
    "msg_seq:4 msg_id:4 param_len:2 required_len:2")
OsdStringShow = _message("OsdStringShow", 0x00010000, None,
    "vout_seq:2 osd_seq:2 flag:4 align:1 x:2 y:2 font_size:1 text_colour:4 background:4 str:t2&16")
OsdElemHide = _message("OsdElemHide", 0x00010001, None, "vout_seq:2 osd_seq:2")
OsdElemDel = _message("OsdElemDel", 0x00010002, None, "vout_seq:2 osd_seq:2")
OsdGuideShow = _message("OsdGuideShow", 0x00010003, None, "osd_out:2 osd_seq:2 path:p4")
OsdTouchCalibration = _message("OsdTouchCalibration", 0x00010004, None, "calibration_mode:1")
OsdDispImage = _message("OsdDispImage", 0x00010005, None,
    "vout_seq:2 osd_seq:2 path:t4 x:2 y:2 width:2 height:2 opacity:2")
OsdCancelImage = _message("OsdCancelImage", 0x00010006, None, "vout_seq:2 osd_seq:2")
OsdInit = _message("OsdInit", 0x0001fffe, None, "vo_dev:-4 video_layer:-4 x:-4 y:-4 w:4 h:4")
OsdDeInit = _message("OsdDeInit", 0x0001ffff, None, "vo_dev:-4 video_layer:-4 x:-4 y:-4 w:4 h:4")
MppShow = _message("MppShow", 0x00020000, 12, "vout:2 vin:2 x:2 y:2 w:2 h:2")
MppHide = _message("MppHide", 0x00020001, 4, "vout:2 vin:2")
MppBatchShow = _message("MppBatchShow", 0x00020002, None, "vout:2 num:1 entry:b")
MppFreeze = _message("MppFreeze", 0x00020003, 4, "vout:2 vin:2")
MppUnfreeze = _message("MppUnfreeze", 0x00020004, 4, "vout:2 vin:2")
MppModifyRes = _message("MppModifyRes", 0x00020005, 11,
    "vout:2 mode:1 width:2 height:2 frame_rate:2 pix_fmt:1 color_depth:1")
MppQueryRes = _message("MppQueryRes", 0x00020006, 2, "vout:2")
MppQueryDispStatus = _message("MppQueryDispStatus", 0x00020009, 2, "vout:2")
MppSetInputFmt = _message("MppSetInputFmt", 0x0002000c, 12,
    "vin:2 width:2 height:2 frame_rate:2 scan_mode:4")
MppRequestMediaChn = _message("MppRequestMediaChn", 0x0002000d, 16,
    "vin:2 vtype:2 width:2 height:2 frame_rate:2 mode:2 aspect_ratio:4")
MppReleaseMediaChn = _message("MppReleaseMediaChn", 0x0002000f, 2, "vin:2")
MppAudioPlay = _message("MppAudioPlay", 0x00020010, 4, "aout:2 ain:2")
MppSetAudioFmt = _message("MppSetAudioFmt", 0x00020011, 12,
    "ain:2 sound_info0:2 sound_info1:2 sound_info2:2 sound_info3:4")
MppDispStatusChg = _message("MppDispStatusChg", 0x00020012, None,
    "vout:2 connected:1 edid_presence:1 edid:e2")
MppClearRemainFrame = _message("MppClearRemainFrame", 0x00020013, 4, "vout:2 vin:2")
MppAdjustAudioDelay = _message("MppAdjustAudioDelay", 0x00020014, 4, "aout:2 delay:2")
MppEncodingControl = _message("MppEncodingControl", 0x00020015, 1, "type:1")
NetfilterSoftApNat = _message("NetfilterSoftApNat", 0x000f0000, 1, "status:1")
MppQueryResAckExt = _message("MppQueryResAckExt", 0x70002000, 14,
    "msg_seq:4 vout:2 width:2 height:2 frame_rate:2 pix_fmt:1 color_depth:1")
MppVpssVoParam = _message("MppVpssVoParam", 0x80002000, 48,
    "vin:2 switch_:2 con:4 ie:4 sf:4 tf:4 cf:4 ctf:4 sp:4 vo_lum:4 vo_con:4 vo_hue:4 vo_sat:4")
# generated end


def unpack(datagram):
    """The message in a datagram. Error when the daemon would refuse it, but for its sequence number,
    and when a text was not sent whole; numbers that were not sent are 0."""
    if len(datagram) < HEADER_SIZE:
        raise Error(1)
    magic, version, kind = struct.unpack_from(">IB3s", datagram)
    seq, id, param_len = struct.unpack_from("<IIH", datagram, 8)
    message = MESSAGES.get(id)
    for result, bad in ((2, magic != MAGIC), (3, version != 0), (4, kind not in (b"CMD", b"EVT", b"RES")),
                        (6, message is None), (7, message and message.required not in (None, param_len))):
        if bad:
            raise Error(result)
    reader = _Reader(datagram[HEADER_SIZE:MAX_DATAGRAM])
    return message(seq, kind, **_unpack(message.fields, reader, param_len))


def accepts(port, seq, last):
    """Whether the daemon takes seq from a peer of which it has noted last (0 at its start)."""
    peer = PEERS.get(port)
    return bool(peer and peer.heard and (seq != last or seq == peer.always))


DEJAVU_SANS_MONO = (1233, 2048)  # advanceWidthMax of a font's table hhea, unitsPerEm of head


def text_width(font_size, canvas_width, length=1, font=DEJAVU_SANS_MONO):
    """The width in px of a text of length characters, by default of one cell, as the daemon draws it;
    font_size as in OsdStringShow, canvas_width in px."""
    size = min(max(canvas_width * (font_size or 32) // 3840, 1), 0xFFFF)
    scale = ((size << 22) + font[1] // 2) // font[1]  # 16.16, to 64ths of a pixel
    cell = (((font[0] * scale + 0x8000) >> 16) + 32) >> 6
    return cell * min(length, 64)


class Peer:
    """A peer's socket on 127.0.0.1, connected to the daemon: the kernel drops what others send and
    tells when nobody listens. Used by one thread at a time. OSError when the port cannot be had,
    ValueError when the daemon does not hear it.

    generation counts the daemons that were heard: 1 with the first answer, more after each restart. A
    new one has no layers and no elements: the caller initialises and shows everything when it differs
    from what it was the last time. other gets every message that is no answer, such as a hide that
    the daemon forwards.
    """

    def __init__(self, port, timeout=1.0, attempts=3, other=lambda message: None):
        peer = PEERS.get(port)
        if not peer or not peer.heard:
            raise ValueError(RESULTS[9])
        self.timeout, self.attempts, self.other, self.generation = timeout, attempts, other, 0
        self._always = self._next = self._noted = peer.always
        self._daemon_seq = None  # the last number that it sent; none before it is heard
        self._socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        try:
            self._socket.bind(("127.0.0.1", port))
            self._socket.connect(("127.0.0.1", DAEMON_PORT))
            self._socket.setblocking(False)
            self._drop_waiting()
        except OSError:
            self._socket.close()
            raise

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._socket.close()

    def ask(self, request):
        """Sends request until it is answered, with a new number each time, and returns the ACK. Raises
        Refused or NoAnswer after the last attempt."""
        first = self._next
        for attempt in range(self.attempts):
            request.seq, self._next = self._next, self._next + 1 & 0xFFFFFFFF
            try:
                return self._ask_once(request, first)
            except (Refused, NoAnswer) as failure:
                again = isinstance(failure, NoAnswer) or failure.result == 5
                if not again or attempt + 1 == self.attempts:
                    raise

    def probe(self):
        """Finds out whether the daemon is still the one that acknowledged the last request, which its
        own numbers may hide when it has answered many others since: counts generation up if it is
        not. The last number is repeated in a request that changes nothing; who noted it refuses it.
        Where that cannot be told (the last request was not acknowledged, or had the number that is
        accepted at any time) this is an ordinary request. Raises as ask."""
        request = OsdTouchCalibration(calibration_mode=2)  # no mode
        if self._noted == self._always or self._noted + 1 & 0xFFFFFFFF != self._next:
            self.ask(request)
            return
        request.seq = self._noted
        try:
            self._ask_once(request, self._noted)
            self.generation += 1
        except Refused as refusal:
            if refusal.result != 5:
                raise

    def _drop_waiting(self):
        """What was meant for whoever had the port before."""
        try:
            while True:
                self._socket.recv(1)
        except BlockingIOError:
            pass

    def _ask_once(self, request, first):
        try:
            self._socket.send(request.pack())
            end = time.monotonic() + self.timeout
            while time.monotonic() < end:
                self._socket.settimeout(max(end - time.monotonic(), 0.001))
                reply = self._receive()
                result = self._judge(reply, request, first) if reply else None
                if result == 0:
                    self._noted = reply.msg_seq
                    return reply
                if result:
                    raise Refused(result, reply)
                if reply:
                    self.other(reply)
        except ConnectionRefusedError:
            self._daemon_seq = None
            raise NoAnswer(True) from None
        raise NoAnswer(False)

    def _receive(self):
        """The next message; None when none came in time, False for what is none."""
        try:
            message = unpack(self._socket.recv(MAX_DATAGRAM))
        except socket.timeout:
            return None
        except Error:
            return False
        # The daemon numbers all that it sends from 0 on: a number that does not rise is a new one's.
        if self._daemon_seq is None or not 0 < (message.seq - self._daemon_seq & 0xFFFFFFFF) < 1 << 31:
            self.generation += 1
        self._daemon_seq = message.seq
        return message

    @staticmethod
    def _judge(reply, request, first):
        """The key of RESULTS, 0 for an ACK; None for what is not about the request."""
        if reply.msg_type != b"RES" or reply.id == ProcessSuccess.id or reply.id > ERR_RES_MSG_PARAM_LEN.id:
            return None
        seq, id = getattr(reply, "msg_seq", first), getattr(reply, "msg_id", request.id)
        if (seq - first & 0xFFFFFFFF) > (request.seq - first & 0xFFFFFFFF) or id != request.id:
            return None
        return {Ack.id: 0, ProcessFailure.id: 10}.get(reply.id, reply.id - 1)
