"""Compares osd.py with what the daemon made of datagrams, one a line: the datagram, the result code,
the message as the daemon would send it, whether a text did not arrive whole; then with its rules for
ports, with the widths of cells, and with how the client in C fares in a conversation; at last the
bytes in docs/protocol.md with both."""
import itertools
import pathlib
import re
import sys
from unittest import mock

ROOT = pathlib.Path(__file__).parents[2]
sys.path.insert(0, str(ROOT / "clients"))
import osd


class Script:
    """A socket to a daemon that answers with the datagrams of replies; with nothing for an empty one,
    with an error for a single byte. Its clock ticks milliseconds."""
    now, sent, replies = 0, [], []

    def settimeout(self, timeout):
        self.timeout = timeout

    def send(self, datagram):
        self.sent.append(osd.unpack(datagram).seq)

    def recv(self, _):
        reply = self.replies.pop(0) if self.replies else b""
        Script.now += 1 if reply else getattr(self, "timeout", 0)
        if len(reply) > 1:
            return reply
        raise ConnectionRefusedError if reply == b"\x0c" else OSError if reply else osd.socket.timeout

    def __getattr__(self, _):
        return lambda *_: None


def fare(probe, replies):
    """The C client's result, the daemons that were heard, the messages that were no answer, and the
    numbers that were sent."""
    Script.sent, Script.replies = [], [bytes.fromhex(reply[1:]) for reply in replies]
    result = 0
    try:
        peer.probe() if probe else peer.ask(osd.OsdElemHide())
    except osd.Refused as refusal:
        result = refusal.result
    except osd.NoAnswer as silence:
        result = 12 if silence.nobody else 11
    except OSError:
        result = 13
    return [result, peer.generation, len(others), *Script.sent]


with mock.patch("socket.socket", lambda *_: Script()), mock.patch("osd.Peer._drop_waiting"):
    others = []
    peer = osd.Peer(9640, timeout=1000, other=others.append)
osd.time.monotonic = lambda: Script.now

for line in sys.stdin:
    first, *rest = line.split()
    if first == "cell":
        size, canvas, width = map(int, rest)
        assert osd.text_width(size, canvas) == width, line
        continue
    if first == "ask":
        outcome, replies = [[word for word in rest if word.startswith("-") == is_reply] for is_reply in (0, 1)]
        probe, *outcome = map(int, outcome)
        fared = fare(probe, replies)
        assert fared == outcome, (line, fared)
        continue
    if not first.startswith("-"):
        port, (daemon, heard, always) = int(first), map(int, rest)
        assert osd.DAEMON_PORT == daemon
        for seq, last in itertools.product(range(3), repeat=2):
            assert osd.accepts(port, seq, last) == (heard and (seq != last or seq == always)), line
        continue
    expected, again, cut = int(rest[0]), bytes.fromhex(rest[1][1:]), rest[2] == "1"
    try:
        message = osd.unpack(bytes.fromhex(first[1:]))
        assert expected == 0 and message.pack() == again, line
        assert message == osd.unpack(again), line
    except osd.Error as error:
        assert error.result == expected or cut and error.result == 8, line

dumps = re.findall(r"^    (Osd\w+\(.*\n(?: {12}.*\n)*)((?: {6}[0-9a-f ]+\n)+)", (ROOT / "docs/protocol.md").read_text(), re.M)
shown = [(eval(call, vars(osd)), bytes.fromhex(dump)) for call, dump in dumps]
assert {message.id for message, _ in shown} == {id for id in osd.MESSAGES if id >> 16 == 1}
for message, dump in shown:
    assert message.pack() == dump, message

assert len(osd.OsdStringShow(flag=osd.MASK_TEXT, str=bytes(4054)).pack()) == osd.MAX_DATAGRAM
try:
    raise SystemExit(osd.OsdStringShow(flag=osd.MASK_TEXT, str=bytes(4055)).pack())
except osd.Error as error:
    assert error.result == 8
