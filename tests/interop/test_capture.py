"""Records what the tour client and server say to each other and has a protocol analyser judge it.

TOUR_SERVER and TOUR_CLIENT name the programs. Skipped where tshark is missing or may not capture.
"""
import os
import queue
import shutil
import signal
import socket
import subprocess
import threading
import time
import unittest

from test_tour import Server

FORBIDDEN = ("permission", "not permitted", "no such device", "no interfaces")
ERROR = "_ws.malformed || _ws.expert.severity >= 0x00800000"


class Capture:
    """A running capture of one loopback port; told to stop only when all traffic so far is in the file."""

    def __init__(self, address, directory):
        self.address, self.port, self.lines = address, address[1], queue.Queue()
        self.file = os.path.join(directory, "tour.pcapng")
        self.errors = open(os.path.join(directory, "tshark.txt"), "w+")
        self.process = subprocess.Popen(
            ["tshark", "-n", "-i", "lo", "-f", "tcp port %d" % self.port, "-B", "64", "-w", self.file, "-P",
             "-l", "-T", "fields", "-e", "tcp.srcport"],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=self.errors)
        self.reader = threading.Thread(target=self.pump, daemon=True)
        self.reader.start()

    def pump(self):
        for line in self.process.stdout:
            self.lines.put(line.strip())
        self.lines.put(None)

    def mark(self):
        """Connect until a connection is seen to be captured."""
        ours, deadline = set(), time.monotonic() + 30
        while time.monotonic() < deadline:
            with socket.create_connection(self.address, 10) as s:
                ours.add(b"%d" % s.getsockname()[1])
            try:
                seen = self.lines.get(timeout=0.5)
                while seen is not None and seen not in ours:
                    seen = self.lines.get(timeout=0.5)
            except queue.Empty:
                continue
            if seen is not None:
                return
            self.errors.seek(0)
            said = self.errors.read()
            if any(s in said.lower() for s in FORBIDDEN):
                raise unittest.SkipTest("capturing on loopback is not possible: " + said)
            raise AssertionError("tshark ended early: " + said)
        raise AssertionError("nothing was captured within 30 s")

    def stop(self):
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGINT)
        try:
            self.process.wait(20)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        self.reader.join(10)
        self.process.stdout.close()
        self.errors.close()

    def frames(self, condition, *fields):
        """One line for each frame that meets the condition."""
        show = ["-T", "fields"] * bool(fields) + [a for f in fields for a in ("-e", f)]
        done = subprocess.run(["tshark", "-n", "-r", self.file, "-d", "tcp.port==%d,giop" % self.port, "-Y", condition,
                               *show], capture_output=True, text=True, timeout=120)
        if done.returncode:
            raise AssertionError("tshark could not read the capture: " + done.stderr)
        return done.stdout.splitlines()


@unittest.skipUnless(shutil.which("tshark"), "tshark is not installed")
class CaptureTest(unittest.TestCase):
    def test_analyser_finds_no_fault(self):
        server = Server(os.environ["TOUR_SERVER"])
        self.addCleanup(server.stop)
        profile = server.refs["root"].iiop()
        capture = Capture((profile.host, profile.port), server.dir)
        try:
            capture.mark()
            client = subprocess.run([os.environ["TOUR_CLIENT"], "--dir", server.dir], stdin=subprocess.DEVNULL,
                                    capture_output=True, text=True, timeout=120)
            self.assertEqual(client.returncode, 0, client.stdout + client.stderr)
            capture.mark()
        finally:
            capture.stop()
        types = {t for line in capture.frames("giop", "giop.type") for t in line.split(",")}
        self.assertLessEqual({"0", "1"}, types, "no requests and replies were seen")
        self.assertEqual(capture.frames(ERROR), [])


if __name__ == "__main__":
    unittest.main()
