"""Clients of the tour server die in the middle of calls, 1,000 times; the server has to be as before.

A client is a forked process that gets SIGKILL, or a socket that is closed with a reset. KILLS is how many die.
"""
import multiprocessing
import os
import random
import signal
import time
import unittest

import giop
from giop import Decoder
from server import PATIENCE, Server

KILLS = int(os.environ.get("KILLS", "1000"))
AT_ONCE = 10
FORK = multiprocessing.get_context("fork")
BLOB = bytes(range(256)) * 4096  # 1 MiB: more than the sockets' buffers hold on to


def long(v): return lambda e: e.ulong(v)
def blob(e): e.octets(BLOB)


class KillTest(unittest.TestCase):
    def setUp(self):
        self.server = Server("-ORBPinnedThreads", "1")  # the number of threads is then what it will be
        self.addCleanup(self.server.stop)
        self.control = giop.Connection(self.server.address)
        self.addCleanup(self.control.close)
        self.served = [name for name in self.server.refs if name != "control"]

    def state(self):
        """Descriptors, threads, servants."""
        proc = "/proc/%d/" % self.server.process.pid
        return (len(os.listdir(proc + "fd")), len(os.listdir(proc + "task")),
                self.control.call(self.server.refs["control"], "alive", None, Decoder.long))

    def settle(self, wanted=None):
        """The state once it is `wanted`, or else has not changed for 3 s; at the latest after PATIENCE."""
        deadline, seen, since = time.monotonic() + PATIENCE, None, 0.0
        while time.monotonic() < deadline:
            now = self.state()
            if now != seen:
                seen, since = now, time.monotonic()
            if now == wanted or (wanted is None and time.monotonic() > since + 3):
                break
        return seen

    def connect(self, choice):
        """A client that has sent everything, or all that the server takes."""
        connection = giop.Connection(self.server.address)

        def one(name, operation, args=None): return connection.prepare(self.server.refs[name], operation, args)[1]
        who = b"".join(one(name, "who") for name in self.served)
        connection.send((one("root", "sleep_ms", long(30)),                    # dies while the servant works
                         who,                                                  # every way of serving an object
                         one("session", "notes"),                              # its object goes with it
                         one("deep", "echo_octets", blob),                     # nobody reads the reply
                         one("activator", "echo_octets", blob)[:len(BLOB) // 2],  # half a request
                         one("locator", "who")[:9],                            # half a header
                         who * 20 + one("dynamic", "sleep_ms", long(20)),
                         one("default", "sleep_ms", long(20)) * 5)[choice])
        return connection

    def fork(self, choice):
        """The same as a process; what makes it die."""
        told = FORK.Event()
        client = FORK.Process(target=lambda: (self.connect(choice), told.set(), signal.pause()), daemon=True)
        client.start()
        self.assertTrue(told.wait(PATIENCE))

        def die():
            client.kill()
            client.join()
            self.assertEqual(client.exitcode, -signal.SIGKILL, "a client ended by itself")
        return die

    def kill(self, count, seed):
        """Lets that many clients die, AT_ONCE together, in any order."""
        pick = random.Random(seed)
        for start in range(0, count, AT_ONCE):
            choices = [i % 8 for i in range(start, min(start + AT_ONCE, count))]
            deaths = [self.fork(c) if pick.random() < 0.5 else self.connect(c).reset for c in choices]
            pick.shuffle(deaths)
            for die in deaths:
                die()
            self.assertIsNone(self.server.process.poll(), "the server ended")

    def test_clients_die(self):
        self.kill(32, seed=0)  # everything has been called once
        before = self.settle()
        self.kill(KILLS, seed=1)
        self.assertEqual(self.settle(before), before)
        for name in set(self.served) - {"session"}:  # all of it is served as ever
            self.assertTrue(self.control.call(self.server.refs[name], "who", None, Decoder.string), name)


if __name__ == "__main__":
    unittest.main()
