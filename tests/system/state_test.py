"""What the state socket tells: state_test.py OSDSRV DEVICE_ROOT_TOOL CLIENTS SCHEMA."""
import contextlib
import json
import os
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time
import unittest

import jsonschema

DAEMON, ROOT_TOOL, CLIENTS, SCHEMA = sys.argv[1:]
sys.path.insert(0, CLIENTS)
import osd  # noqa: E402

MASKS = osd.MASK_POSITION | osd.MASK_FONT_SIZE | osd.MASK_TEXT


def text(seq, string, **values):
    return osd.OsdStringShow(osd_seq=seq, flag=values.pop("flag", MASKS), font_size=48, str=string,
                             **values)


class Reader:
    def __init__(self, path, *commands):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.settimeout(10)
        self.socket.connect(path)
        self.lines = self.socket.makefile(encoding="utf-8")
        if commands:
            self.ask(*commands)

    def ask(self, *commands):
        self.socket.sendall("".join(command + "\n" for command in commands).encode())

    def next(self):
        return json.loads(self.lines.readline() or "null")

    def is_quiet(self, seconds):
        self.socket.settimeout(seconds)
        try:
            return not self.socket.recv(1, socket.MSG_PEEK)
        except TimeoutError:
            return True
        finally:
            self.socket.settimeout(10)


class State(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.root = self.folder.name
        subprocess.run([ROOT_TOOL, self.root], check=True, stdout=subprocess.DEVNULL)
        self.path = self.root + "/var/run/osd.sock"
        self.daemon = None

    def tearDown(self):
        if self.daemon.poll() is None:
            self.assertEqual(self.stop(signal.SIGTERM), 0)
        self.folder.cleanup()

    def start(self):
        self.daemon = subprocess.Popen([DAEMON], env={**os.environ, "OSD_ROOT": self.root},
                                       stdout=subprocess.DEVNULL)

    def stop(self, number):
        self.daemon.send_signal(number)
        return self.daemon.wait(30)

    def reader(self, *commands):
        for attempt in range(400):
            try:
                return Reader(self.path, *commands)
            except (FileNotFoundError, ConnectionRefusedError, BlockingIOError):
                time.sleep(0.05)
        self.fail("nobody answers at " + self.path)

    def became(self, of):
        """The document in which no request waits, and what became of the last one."""
        for attempt in range(400):
            document = self.reader("state").next()
            request = document["requests"][-1]
            if request["state"] != "waiting":
                self.assertEqual(request["message"], type(of).__name__)
                return document, request["state"], request["why"]
            time.sleep(0.02)
        self.fail("it waits for ever")

    def asked(self, request):
        self.peer.ask(request)
        return self.became(request)

    def test_tells_the_truth_about_every_request(self):
        self.start()
        schema = json.load(open(SCHEMA, encoding="utf-8"))
        self.reader()
        icon = osd.OsdDispImage(osd_seq=0x301, path=b"/usr/local/share/icon.png", opacity=255)
        with osd.Peer(9634) as self.peer:
            for request, state, why in (
                    (text(0x101, b"x"), "refused", "there is no layer for output 0"),
                    (osd.OsdInit(w=1920, h=1080), "done", ""),
                    (text(0x101, b"gr\xfc\xdfe"), "done", ""),
                    (text(0x102, b"w" * 64, align=1, x=15900), "refused", "right edge by"),
                    (text(0x103, b"x", align=9), "refused", "position code"),
                    (text(0x104, b""), "refused", "no characters"),
                    (icon, "done", ""),
                    (osd.OsdDispImage(osd_seq=0x302, path=b"/none\xff.png"), "refused", "No such file"),
                    (osd.OsdDispImage(osd_seq=0x303, path=icon.path, x=16000), "refused", "outside"),
                    (osd.OsdElemHide(osd_seq=0x1FE), "refused", "no element"),
                    (osd.OsdElemDel(osd_seq=0x104), "done", ""),
                    (osd.OsdGuideShow(osd_out=0, osd_seq=1), "done", ""),
                    (osd.OsdTouchCalibration(calibration_mode=7), "refused", "mode")):
                with self.subTest(request=request):
                    document, became, words = self.asked(request)
                    self.assertEqual(became, state, words)
                    self.assertIn(why, words)
                    jsonschema.validate(document, schema)
            elements = {element["id"]: element for element in document["elements"]}
            self.assertEqual(list(elements), ["1.1", "1.2", "3.1", "3.3"])
            self.assertEqual(elements["1.1"]["lines"], ["gr\u00fc\u00dfe"])
            self.assertEqual(elements["1.1"]["peer"], 9634)
            self.assertEqual(elements["3.1"]["places"], [{"output": 0, "x": 0, "y": 0, "width": 160,
                                                          "height": 160}])
            self.assertEqual(document["guides"][0]["picture"], "shown")
            self.assertEqual(document["counters"]["requests"]["OsdStringShow"], 5)
            with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as other:
                other.bind(("127.0.0.1", 9635))
                other.sendto(struct.pack(">I", osd.MAGIC) + bytes(20), ("127.0.0.1", 9636))
                other.recv(100)
            last = self.reader("state").next()
            self.assertEqual((last["requests"][-1]["state"], last["counters"]["refusals"]["type"]),
                             ("refused", 1))
        ticking = self.reader("tick 9")
        left = [element["seconds_left"] for element in ticking.next()["elements"]]
        ticking.ask("tick 1", "tick x")
        self.assertIs(ticking.next()["elements"][0]["hidden"], True)
        self.assertLessEqual(max(left[:2]), 1)
        self.assertEqual(left[2:], [None, None])
        self.assertIn("tick wants", ticking.next()["error"])

    def test_serves_the_patient_and_lets_the_others_go(self):
        os.symlink("/nowhere", self.path)
        self.start()
        with osd.Peer(9634, timeout=5, attempts=5) as self.peer:
            while True:
                try:
                    self.peer.probe()
                    break
                except osd.NoAnswer:
                    time.sleep(0.1)
            self.assertTrue(os.path.islink(self.path))
            os.unlink(self.path)
            self.stop(signal.SIGTERM)
            self.start()
            self.reader()
            self.assertEqual(self.stop(signal.SIGKILL), -signal.SIGKILL)
            self.assertTrue(os.path.exists(self.path))
            self.start()  # and replaces the socket
            watcher = self.reader("watch")
            self.assertEqual(watcher.next()["outputs"], [])
            self.assertTrue(watcher.is_quiet(0.5))
            self.peer.ask(osd.OsdInit(w=1920, h=1080))
            while not watcher.next()["outputs"]:
                continue
            silent = [self.reader("watch") for _ in range(7)]
            self.assertIn("too many", self.reader().next()["error"])
            for number in range(400):
                self.peer.ask(text(0x100 + number % 250, b"w" * 60, flag=MASKS | osd.MASK_FOREVER))
            while watcher.next()["counters"]["requests"].get("OsdStringShow") != 400:
                continue
            for reader in silent:
                reader.socket.close()
        for burst in range(200):
            with socket.socket(socket.AF_UNIX) as hasty, contextlib.suppress(BrokenPipeError):
                hasty.connect(self.path)
                hasty.sendall(b"state\nx" if burst % 2 else b"\0" * 300)
        document = {}
        while "elements" not in document:
            with contextlib.suppress(BrokenPipeError, ConnectionResetError):
                polite = self.reader("state")
                polite.socket.shutdown(socket.SHUT_WR)
                document = polite.next()
        self.assertEqual(len(document["elements"]), 65)
        self.assertIsNone(polite.next())
        self.assertEqual(self.stop(signal.SIGTERM), 0)
        self.assertFalse(os.path.exists(self.path))


unittest.main(argv=sys.argv[:1], verbosity=2, warnings="ignore")
