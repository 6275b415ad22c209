"""The dissector in tshark: every message, refusal and warning in a conversation; and datagrams from
standard input, one a line with the daemon's result code, which it must judge alike."""
import json
import pathlib
import re
import struct
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).parents[2]
sys.path.insert(0, str(ROOT / "clients"))
import osd

RESULT = {name: int(result) for result, name in
          re.findall(r'\[(\d)\] = \{"(\w+)", "', (ROOT / "packaging/wireshark/osd.lua").read_text())}


def tshark(datagrams, *options):
    """What tshark prints about (source port, destination port, bytes, bytes captured)."""
    with tempfile.NamedTemporaryFile(suffix=".pcap") as capture:
        capture.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 101))
        for number, (source, to, data, *kept) in enumerate(datagrams):
            udp = struct.pack(">HHHH", source, to, 8 + len(data), 0) + data
            packet = struct.pack(">BBHHHBBH8s", 0x45, 0, 20 + len(udp), 0, 0, 64, 17, 0, b"\x7f\0\0\1" * 2) + udp
            cut = packet[:28 + kept[0]] if kept else packet
            capture.write(struct.pack("<IIII", 1700000000 + number * number, 250000, len(cut), len(packet)) + cut)
        capture.flush()
        done = subprocess.run(["tshark", "-X", f"lua_script:{ROOT}/packaging/wireshark/osd.lua", "-n", "-2",
                               "-r", capture.name, *options], capture_output=True, text=True, errors="replace")
    assert done.returncode == 0 and "Lua" not in done.stdout + done.stderr, done.stderr + done.stdout[-2000:]
    return done.stdout


def flat(tree, found):
    """Every osd.* of a packet with its values, in order."""
    for key, value in tree:
        if isinstance(value, list) and value and isinstance(value[0], tuple):
            flat(value, found)
        if key.startswith("osd."):
            found.setdefault(key, []).append(value)
    return found


def packets(datagrams):
    text = tshark(datagrams, "-T", "json")
    return [flat(packet, {}) for packet in json.loads(text, object_pairs_hook=list)]


# A message of every kind, with other values in every field.
def filled(message, number):
    values = {}
    for name, kind, width, _ in message.fields:
        number += 3
        values[name] = {"": number % 200, "c": b"ab%d" % (number % 10), "b": ((number, 2, 3, 4, 5), (6, 7, 8, 9, 10)),
                        "t": b"text %d" % number, "p": b"/path/%d" % number, "e": b"\1\2"}[kind]
    values.update({"flag": 31} if "flag" in values else {}, **({"edid_presence": 2} if "edid" in values else {}))
    return message(seq=number, **values)


def shown(value):
    value = value if isinstance(value, list) else [value]
    return [int(v, 0) if re.fullmatch(r"-?\d+|0x[0-9a-f]+", v) else v for v in value]


every = [filled(message, 10 * number) for number, message in enumerate(osd.MESSAGES.values())]
for message, found in zip(every, packets([(9635, 9636, message.pack()) for message in every])):
    name = message.__class__.__name__
    assert shown(found["osd.id"]) == [message.id] and shown(found["osd.seq"]) == [message.seq], (name, found)
    for field, kind, *_ in message.fields:
        value = getattr(message, field)
        key = f"osd.{name.lower()}.{field}" if f"osd.{name.lower()}.{field}" in found else f"osd.{field}"
        if kind == "b":
            assert shown(found["osd.vin_seq"]) == [entry[0] for entry in value], found
        elif kind == "e":
            assert found[key] == ["01:02"], found
        else:
            assert shown(found[key]) == [value.decode() if kind else value], (name, field, found)

# A conversation: datagram, ports, what must be seen.
good = osd.OsdElemHide(seq=3, osd_seq=0x101)
requests = [
    (good, osd.Ack(msg_seq=3, msg_id=good.id), None),
    (good, osd.ERR_RES_MSG_SEQUENCE(msg_seq=3, prev_seq=3), "bad_sequence"),
    (b"\x88" + good.pack()[1:], osd.ERR_RES_MSG_MAGIC_NUM(magic=0x88667788), "bad_magic"),
    (good.pack()[:4] + b"\1" + good.pack()[5:], osd.ERR_RES_MSG_VERSION(version=1), "bad_version"),
    (good.pack()[:5] + b"cmd" + good.pack()[8:], osd.ERR_RES_MSG_TYPE(type=b"cmd"), "bad_type"),
    (good.pack()[:12] + b"\7\0\2\0\0\0", osd.ERR_RES_MSG_ID(msg_seq=3, msg_id=0x20007), "bad_id"),
    (osd.MppShow(seq=9).pack()[:16] + b"\1\0", osd.ERR_RES_MSG_PARAM_LEN(msg_seq=9, msg_id=0x20000), "bad_param_len"),
    (good.pack()[:17], None, "bad_head_len"),
    (osd.MppBatchShow(seq=10).pack()[:-1] + b"\21", None, "bad_body"),
]
surprises = [
    (osd.OsdStringShow(flag=osd.MASK_POSITION, align=9), "not_shown"),
    (osd.OsdStringShow(flag=osd.MASK_TEXT), "not_shown"),
    (osd.OsdStringShow(flag=18, font_size=9, str=b"no colour"), "not_shown"),
    (osd.OsdStringShow(flag=30, font_size=9, background=0xFFFFFF, str=b"transparent"), "not_shown"),
    (osd.OsdStringShow(flag=osd.MASK_TEXT, str=b"x" * 65), "cut"),
    (osd.OsdDispImage(path=b"/a.png"), "not_shown"),
    (osd.OsdDispImage(opacity=1), "not_shown"),
    (osd.OsdElemHide(osd_seq=0x201), "no_effect"),
    (osd.OsdElemDel(osd_seq=0x601), "no_effect"),
    (osd.OsdTouchCalibration(calibration_mode=2), "no_effect"),
    (osd.OsdStringShow(flag=30, font_size=9, text_colour=0xFF000000, str=b"x" * 64), None),
    (osd.OsdStringShow(flag=30, font_size=9, str=b"on grey"), None),
    (osd.OsdElemDel(osd_seq=0x5FF), None),
    (osd.OsdElemHide(osd_seq=0xFFFF), None),
]
frames, wanted = [], []
for number, (request, reply, warning) in enumerate(requests):
    frames.append((9635, 9636, request if isinstance(request, bytes) else request.pack()))
    wanted.append((warning, {"osd.response_in": str(len(frames) + 1)} if reply else {}))
    if reply:
        reply.seq = number
        frames.append((9636, 9635, reply.pack()))
        wanted.append(("refused" if number else None,
                       {"osd.request_in": str(len(frames) - 1), "osd.time": f"{2 * len(frames) - 3}.000000000", "osd.peer": "MainCtl"}))
for number, (request, warning) in enumerate(surprises):
    request.seq = 100 + number
    frames.append((9635, 9636, request.pack()))
    wanted.append((warning, {}))
for source, to, message, warning in ((9638, 9636, good, "bad_port"), (9636, 9637, osd.OsdElemHide(seq=1), "restarted"),
                                     (9639, 9636, osd.OsdElemHide(osd_seq=0x101), None),
                                     (9639, 9636, osd.OsdElemHide(osd_seq=0x101), None),
                                     (9635, 9636, osd.OsdElemHide(seq=113, osd_seq=0x101), None)):
    frames.append((source, to, message.pack()))
    wanted.append((warning, {}))
frames.append((9635, 9636, osd.OsdInit(seq=4).pack()[:18]))
wanted.append(("missing", {}))
WARNINGS = {"refused", "not_shown", "no_effect", "cut", "missing", "restarted", *("bad_" + name for name in RESULT)}
for frame, (warning, values), found in zip(frames, wanted, packets(frames)):
    seen = {key[4:] for key in found} & WARNINGS
    assert seen == ({warning} if warning else set()), (frame, warning, found)
    assert all(found.get(key) == [value] for key, value in values.items()), (frame, values, found)

# The daemon's own verdicts. Numbers are made to rise, so that only the datagram itself decides.
cases = []
for number, line in enumerate(sys.stdin):
    hexadecimal, result, *_ = line.split()
    data = bytes.fromhex(hexadecimal[1:]) or b"U"  # an empty one never reaches a dissector
    cases.append((int(result), data[:8] + struct.pack("<I", number + 1) + data[12:] if len(data) >= 12 else data))
fields = [option for name in RESULT for option in ("-e", f"osd.bad_{name}")]
lines = tshark([(9635, 9636, data) for _, data in cases], "-T", "fields", "-E", "separator=,", *fields).splitlines()
assert len(lines) == len(cases) > 1000
for (result, data), line in zip(cases, lines):
    judged = [RESULT[name] for name, text in zip(RESULT, line.split(",")) if text]
    assert judged == ([result] if result else []), (data.hex(), result, line)
# Neither what was not captured nor another's traffic is read.
tshark([(9635, 9636, data, len(data) // 2) for _, data in cases[::5]])
assert "osd" not in tshark([(9635, 9640, b"\1\2"), (9635, 9640, b"")], "-T", "fields", "-e", "frame.protocols")
