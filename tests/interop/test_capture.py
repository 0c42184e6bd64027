"""A protocol analyser judges what the tour client (TOUR_CLIENT) and server say to each other, where it is there."""
import os
import queue
import shutil
import signal
import socket
import subprocess
import threading
import time
import unittest

from server import Server

FORBIDDEN = ("permission", "not permitted", "no such device", "no interfaces")
ERROR = "_ws.malformed || _ws.expert.severity >= 0x00800000"


@unittest.skipUnless(shutil.which("tshark"), "tshark is not installed")
class CaptureTest(unittest.TestCase):
    def setUp(self):
        self.server = Server()
        self.addCleanup(self.server.stop)
        self.file, self.port = os.path.join(self.server.dir, "tour.pcapng"), self.server.address[1]
        self.capture = subprocess.Popen(
            ["tshark", "-a", "duration:300", "-n", "-i", "lo", "-f", "tcp port %d" % self.port, "-B", "64",
             "-w", self.file, "-P", "-l", "-T", "fields", "-e", "tcp.srcport"],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.addCleanup(self.end_capture)
        self.lines = queue.Queue()
        self.reader = threading.Thread(target=self.pump, daemon=True)
        self.reader.start()

    def pump(self):
        for line in self.capture.stdout:
            self.lines.put(line.strip())
        self.lines.put(None)

    def mark(self):
        """Connect until a connection is seen to be captured: all traffic so far is in the file then."""
        ours, deadline = set(), time.monotonic() + 30
        while time.monotonic() < deadline:
            with socket.create_connection(self.server.address, 10) as s:
                ours.add(str(s.getsockname()[1]))
            try:
                while (seen := self.lines.get(timeout=0.5)) not in ours:
                    if seen is None:
                        said = self.capture.stderr.read()
                        if any(s in said.lower() for s in FORBIDDEN):
                            self.skipTest("capturing on loopback is not possible: " + said)
                        self.fail("tshark ended early: " + said)
                return
            except queue.Empty:
                pass
        self.fail("nothing was captured within 30 s")

    def end_capture(self):
        self.capture.send_signal(signal.SIGINT)
        self.capture.wait(20)
        self.reader.join(10)
        self.capture.stdout.close()
        self.capture.stderr.close()

    def frames(self, condition, *options):
        done = subprocess.run(["tshark", "-n", "-r", self.file, "-d", "tcp.port==%d,giop" % self.port, "-Y", condition,
                               *options], capture_output=True, text=True, timeout=120)
        self.assertEqual(done.returncode, 0, "tshark could not read the capture: " + done.stderr)
        return done.stdout.splitlines()

    def test_analyser_finds_no_fault(self):
        self.mark()
        client = subprocess.run([os.environ["TOUR_CLIENT"], "--dir", self.server.dir], stdin=subprocess.DEVNULL,
                                capture_output=True, text=True, timeout=120)
        self.assertEqual(client.returncode, 0, client.stdout + client.stderr)
        self.mark()
        self.end_capture()
        types = {t for line in self.frames("giop", "-T", "fields", "-e", "giop.type") for t in line.split(",")}
        self.assertLessEqual({"0", "1"}, types, "no requests and replies were seen")
        self.assertEqual(self.frames(ERROR), [])


if __name__ == "__main__":
    unittest.main()
