"""Clients of the tour server die in the middle of calls, 1,000 times; the server has to be as before.

A client is a forked process that gets SIGKILL, or a socket that is closed with a reset. TOUR_SERVER names the
server program, KILLS how many clients die.
"""
import os
import queue
import random
import shutil
import signal
import socket
import struct
import subprocess
import tempfile
import threading
import time
import unittest

import giop
from giop import Decoder, IOR

KILLS = int(os.environ.get("KILLS", "1000"))
AT_ONCE = 10
PATIENCE = 60
RESET = struct.pack("ii", 1, 0)
NAMES = ("root", "deep", "activator", "locator", "default", "lazy", "dynamic", "session", "control")
BLOB = bytes(range(256)) * 4096  # 1 MiB: more than the sockets' buffers hold on to


class Server:
    """A server process, seen through /proc and through its control object."""

    def __init__(self, program):
        self.dir = tempfile.mkdtemp(prefix="kill-")
        self.errors = open(os.path.join(self.dir, "stderr.txt"), "w+b")
        self.process = subprocess.Popen([program, "--dir", self.dir], stdin=subprocess.DEVNULL,
                                        stdout=subprocess.PIPE, stderr=self.errors)
        lines = queue.Queue()
        threading.Thread(target=lambda: [lines.put(line.strip()) for line in self.process.stdout],
                         daemon=True).start()
        while lines.get(timeout=PATIENCE) != b"ready":
            pass
        self.refs = {}
        for name in NAMES:
            with open(os.path.join(self.dir, name + ".ior")) as f:
                self.refs[name] = IOR.parse(f.read())
        profile = self.refs["root"].iiop()
        self.address = profile.host, profile.port
        self.control = giop.Connection(self.address, timeout=PATIENCE)

    def state(self):
        """Descriptors, threads, servants."""
        proc = "/proc/%d/" % self.process.pid
        return (len(os.listdir(proc + "fd")), len(os.listdir(proc + "task")),
                self.control.call(self.refs["control"], "alive", None, Decoder.long))

    def settle(self, wanted=None):
        """The state once it is `wanted`, or, when nothing is, once it has not changed for 3 s; at the latest after PATIENCE."""
        deadline, seen, since = time.monotonic() + PATIENCE, None, 0.0
        while time.monotonic() < deadline:
            now = self.state()
            if now != seen:
                seen, since = now, time.monotonic()
            if now == wanted or (wanted is None and time.monotonic() > since + 3):
                break
            time.sleep(0.02)  # between two looks; nothing is waited for blindly
        return seen

    def stop(self):
        self.control.close()
        self.process.send_signal(signal.SIGTERM)
        try:
            status = self.process.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            self.process.kill()
            status = "none within %d s" % PATIENCE
        self.errors.seek(0)
        said = self.errors.read().decode(errors="replace")
        self.errors.close()
        self.process.stdout.close()
        shutil.rmtree(self.dir, ignore_errors=True)
        return status, said


def calls(connection, refs, choice):
    """What a client has sent when it dies, by `choice`: one call or many, running, whole, cut, or with a reply that it leaves unread."""
    def one(name, operation, args=None):
        return connection.prepare(refs[name], operation, args)[1]

    def octets(e): e.octets(BLOB)
    who = [one(name, "who") for name in NAMES if name != "control"]
    return (one("root", "sleep_ms", lambda e: e.ulong(30)),                    # dies while the servant works
            b"".join(who),                                                     # every way of serving an object
            one("session", "add", lambda e: e.long(1).long(2)),                # its object goes with it
            one("deep", "echo_octets", octets),                                # nobody reads the reply
            one("activator", "echo_octets", octets)[:len(BLOB) // 2],          # half a request
            one("locator", "who")[:9],                                         # half a header
            b"".join(who * 20) + one("dynamic", "sleep_ms", lambda e: e.ulong(20)),
            one("default", "sleep_ms", lambda e: e.ulong(20)) * 5)[choice]


class Client:
    """One that dies when told. It has sent everything, or all that the server takes."""

    def __init__(self, server, choice):
        self.server, self.choice = server, choice

    def send(self):
        c = giop.Connection(self.server.address, timeout=PATIENCE)
        data = calls(c, self.server.refs, self.choice)
        c.send(data)
        return c


class Reset(Client):
    def __init__(self, server, choice):
        super().__init__(server, choice)
        self.connection = self.send()

    def die(self):
        self.connection.sock.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, RESET)
        self.connection.close()


class Killed(Client):
    def __init__(self, server, choice):
        super().__init__(server, choice)
        ready, told = os.pipe()
        self.pid = os.fork()
        if self.pid == 0:
            try:
                connection = self.send()
                os.write(told, b"x")
                while connection:
                    signal.pause()
            finally:
                os._exit(1)
        os.close(told)
        self.sent = os.read(ready, 1) == b"x"
        os.close(ready)

    def die(self):
        os.kill(self.pid, signal.SIGKILL)
        status = os.waitpid(self.pid, 0)[1]
        if not self.sent or not os.WIFSIGNALED(status):
            raise AssertionError("a client ended by itself")


class KillTest(unittest.TestCase):
    def kill(self, server, count, seed):
        """Lets that many clients die, AT_ONCE together, in any order."""
        pick = random.Random(seed)
        for start in range(0, count, AT_ONCE):
            clients = [pick.choice((Reset, Killed))(server, (start + i) % 8) for i in range(min(AT_ONCE, count - start))]
            pick.shuffle(clients)
            for client in clients:
                client.die()
            self.assertIsNone(server.process.poll(), "the server ended")

    def test_clients_die(self):
        server = Server(os.environ["TOUR_SERVER"])
        try:
            self.kill(server, 32, seed=0)  # everything has been called once
            before = server.settle()
            self.kill(server, KILLS, seed=1)
            self.assertEqual(server.settle(before), before)
            with giop.Connection(server.address, timeout=PATIENCE) as c:  # all of it is served as ever
                for name in NAMES:
                    if name not in ("control", "session"):
                        self.assertTrue(c.call(server.refs[name], "who", None, Decoder.string), name)
        finally:
            status, said = server.stop()
        self.assertEqual(status, 0, said[-4000:])
        for sanitizer in ("AddressSanitizer", "ThreadSanitizer", "LeakSanitizer", "runtime error"):
            self.assertNotIn(sanitizer, said)


if __name__ == "__main__":
    unittest.main()
