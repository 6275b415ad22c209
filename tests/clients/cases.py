"""Compares osd.py with what the daemon made of datagrams, one a line: the datagram, the result code,
the message as the daemon would send it, whether a text did not arrive whole; then with its rules for
ports and with the widths of cells; at last the bytes in docs/protocol.md with both."""
import itertools
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).parents[2]
sys.path.insert(0, str(ROOT / "clients"))
import osd

for line in sys.stdin:
    first, *rest = line.split()
    if first == "cell":
        size, canvas, width = map(int, rest)
        assert osd.text_width(size, canvas) == width, line
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
