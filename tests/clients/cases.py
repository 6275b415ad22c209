"""Compares osd.py with what the daemon made of datagrams, one a line: the datagram, the result code,
the message as the daemon would send it, whether a text did not arrive whole; and of ports."""
import itertools
import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).parents[2] / "clients"))
import osd

for line in sys.stdin:
    first, *rest = line.split()
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
