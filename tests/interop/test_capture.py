"""A protocol analyser judges what the tour client (TOUR_CLIENT) and server say to each other."""
import os
import shlex
import subprocess
import tempfile
import unittest

from relay import Relay
from server import Server

ERROR = "_ws.malformed || _ws.expert.severity >= 0x00800000"
UNREAD = "tcp.len > 0 && !giop && !tcp.reassembled_in"  # part of no message


class CaptureTest(unittest.TestCase):
    def frames(self, file, port, condition, *options):
        done = subprocess.run(["tshark", "-2", "-n", "-r", file, "-d", "tcp.port==%d,giop" % port, "-Y", condition, *options],
                              capture_output=True, text=True, timeout=120)
        self.assertEqual(done.returncode, 0, "tshark could not read the capture: " + done.stderr)
        return done.stdout.splitlines()

    def test_analyser_finds_no_fault(self):
        with tempfile.TemporaryDirectory(prefix="capture-") as where:
            file = os.path.join(where, "tour.pcap")
            relay = Relay(file)
            server = Server("-ORBPublish", "127.0.0.1:%d" % relay.address[1], "-ORBListen", "127.0.0.1:0")
            self.addCleanup(server.stop)
            relay.join(server.listening())
            client = subprocess.run([*shlex.split(os.environ["TOUR_CLIENT"]), "--dir", server.dir], stdin=subprocess.DEVNULL,
                                    capture_output=True, text=True, timeout=120)
            self.assertEqual(client.returncode, 0, client.stdout + client.stderr)
            relay.close()
            port = relay.server[1]
            types = {t for line in self.frames(file, port, "giop", "-T", "fields", "-e", "giop.type")
                     for t in line.split(",")}
            self.assertLessEqual({"0", "1"}, types, "no requests and replies were seen")
            self.assertEqual(self.frames(file, port, ERROR), [])
            self.assertEqual(self.frames(file, port, UNREAD), [])


if __name__ == "__main__":
    unittest.main()
