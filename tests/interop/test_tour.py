"""Drives the tour server over bare sockets: every operation, message form and breach of the protocol.

TOUR_SERVER names the program. It is started once for all tests and has to end cleanly on SIGTERM.
"""
import functools
import os
import queue
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
from giop import Decoder, GiopError, IOR, VERSIONS

ECHO, REFUSED = "IDL:Demo/Echo:1.0", "IDL:Demo/Refused:1.0"
NOT_EXIST, BAD_OPERATION, MARSHAL = ("IDL:omg.org/CORBA/%s:1.0" % n for n in (
    "OBJECT_NOT_EXIST", "BAD_OPERATION", "MARSHAL"))
ADDRESSES = (giop.KEY_ADDR, giop.PROFILE_ADDR, giop.REFERENCE_ADDR)
MIB = 1 << 20


class Server:
    """A server process that writes its references into a directory of its own."""

    def __init__(self, program):
        self.dir = tempfile.mkdtemp(prefix="tour-")
        self.errors = open(os.path.join(self.dir, "stderr.txt"), "w+b")
        self.process = subprocess.Popen([program, "--dir", self.dir], stdin=subprocess.DEVNULL,
                                        stdout=subprocess.PIPE, stderr=self.errors)
        lines, line, deadline = queue.Queue(), b"", time.monotonic() + 20
        self.reader = threading.Thread(target=self.pump, args=(lines,), daemon=True)
        self.reader.start()
        try:
            while line != b"ready":
                line = lines.get(timeout=max(0, deadline - time.monotonic()))
                if line is None:
                    raise AssertionError("the server ended before it was ready")
            self.refs = {}
            for name in ("root", "deep"):
                with open(os.path.join(self.dir, name + ".ior")) as f:
                    self.refs[name] = IOR.parse(f.read())
        except Exception as e:
            self.process.kill()
            raise AssertionError("no start within 20 s: %r\n%s" % (e, self.finish()[1]))

    def pump(self, lines):
        for line in self.process.stdout:
            lines.put(line.strip())
        lines.put(None)

    def finish(self):
        """Wait for the end, by force if need be; the exit status and what was said to stderr."""
        try:
            status = self.process.wait(30)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
            status = "none within 30 s"
        self.reader.join(10)
        self.process.stdout.close()
        with self.errors as f:
            f.seek(0)
            said = f.read().decode(errors="replace")
        shutil.rmtree(self.dir, ignore_errors=True)
        return status, said

    def stop(self):
        """End the server with SIGTERM and fail unless that went cleanly."""
        self.process.send_signal(signal.SIGTERM)
        status, said = self.finish()
        if any(s in said for s in ("ERROR: AddressSanitizer", "ThreadSanitizer", "LeakSanitizer")):
            raise AssertionError("a sanitizer complained:\n" + said)
        if status != 0:
            raise AssertionError("exit status after SIGTERM: %s\n%s" % (status, said))


SERVER = None


def setUpModule():
    global SERVER
    SERVER = Server(os.environ["TOUR_SERVER"])


def tearDownModule():
    if SERVER:
        SERVER.stop()


def strings(*values): return lambda e: [e.string(v) for v in values]
def longs(a, b): return lambda e: e.long(a).long(b)
def octets(v): return lambda e: e.octets(v)


class Peer(giop.Connection):
    """A connection to one of the server's objects."""

    def __init__(self, name="deep", version=(1, 2), little=True):
        self.name, self.ref = name, SERVER.refs[name]
        profile = self.ref.iiop()
        super().__init__((profile.host, profile.port), version, little)

    def ask(self, operation, args=None, result=None, target=None, **kw):
        return self.call(self.ref if target is None else target, operation, args, result, **kw)

    def make(self, operation, args=None, **kw):
        return self.prepare(self.ref, operation, args, **kw)

    def add(self, a=20, b=22, **kw):
        return self.ask("add", longs(a, b), Decoder.long, **kw)


def every(*versions, names=("root", "deep")):
    """Run a test on a fresh connection for each reference, version and byte order."""
    def wrap(test):
        @functools.wraps(test)
        def run(self):
            for name in names:
                for version in versions or VERSIONS:
                    for little in (False, True):
                        with self.subTest(ref=name, version=version, little=little), Peer(name, version, little) as p:
                            test(self, p)
        return run
    return wrap


TEXTS = ["x" * n for n in range(10)] + ["tab\t and \x7f", "long " * 20000]
BLOBS = [bytes(n) for n in range(5)] + [bytes(range(256)) * 300]
CALLS = (
    [("echo_string", strings(s), Decoder.string, s) for s in TEXTS] +
    [("echo_octets", octets(b), Decoder.octets, b) for b in BLOBS] +
    [("add", longs(a, b), Decoder.long, a + b) for a, b in (
        (1, 2), (-1, 1), (-5, -6), (0x01020304, 0x10203040), (-1 << 31, (1 << 31) - 1))] +
    [("_is_a", strings(ECHO), Decoder.boolean, True), ("_is_a", strings("IDL:Nope:1.0"), Decoder.boolean, False),
     ("_non_existent", None, Decoder.boolean, False), ("sleep_ms", lambda e: e.ulong(1), None, None)])


class TourTest(unittest.TestCase):
    def refused(self, id, ask, minor=None):
        with self.assertRaises(giop.SystemException) as caught:
            ask()
        self.assertEqual(caught.exception.id, id)
        if minor is not None:
            self.assertEqual(hex(caught.exception.minor), hex(minor))

    def noted(self, p, count):
        """Wait until the object has had that many notes."""
        deadline, n = time.monotonic() + 10, -1
        while n < count and time.monotonic() < deadline:
            n = p.ask("notes", None, Decoder.long)
        self.assertEqual(n, count)

    # -- what calls do -----------------------------------------------------------------------

    @every()
    def test_operations(self, p):
        for operation, args, read, wanted in CALLS:
            self.assertEqual(p.ask(operation, args, read), wanted, operation)
        who = p.ask("who", None, Decoder.string)
        if p.name == "deep":
            self.assertEqual(who, "A/B/C:deep")
        else:
            self.assertRegex(who, r"(?s)\A:.+")
        for why, code in (("", 0), ("too late", -7), ("odd", 1 << 30)):
            with self.assertRaises(giop.UserException) as caught:
                p.ask("refuse", lambda e: e.string(why).long(code))
            d = caught.exception.body
            self.assertEqual((caught.exception.id, d.string(), d.long()), (REFUSED, why, code))
            d.end()
        for operation in ("nope", "ADD", "add_", "", "_nope", "x" * 300):
            self.refused(BAD_OPERATION, lambda: p.ask(operation), 0x4B510306)
        self.assertEqual(SERVER.refs[p.name].type_id, ECHO)

    @every()
    def test_no_reply_unless_expected(self, p):
        with Peer("root" if p.name == "deep" else "deep") as other:
            others = other.ask("notes", None, Decoder.long)
        before = p.ask("notes", None, Decoder.long)
        for i in range(5):
            for operation, args in (("note", strings("n%d" % i)), ("add", longs(i, i)), ("nope", None)):
                p.send(p.make(operation, args, response=False)[1])
        self.noted(p, before + 5)
        # While the server sleeps any stray answer would overtake; the connection refuses ids not awaited.
        p.ask("sleep_ms", lambda e: e.ulong(50))
        self.assertEqual((p.add(), p.early), (42, {}))
        with Peer(other.name) as other:
            self.noted(other, others)  # each object counts its own

    @every()
    def test_service_contexts_and_addresses(self, p):
        some = [(0xDEAD0001, b"\xff" * 7), (0xDEAD0002, b""), (0xDEAD0001, b"again")]
        for contexts in (some[:1], some[1:2], some, [(0x7FFF0000 + i, bytes(i)) for i in range(64)]):
            self.assertEqual(p.add(contexts=contexts), 42)
            self.assertEqual(p.ask("notes", None, Decoder.long, contexts=contexts), p.ask("notes", None, Decoder.long))
        for address in ADDRESSES if p.version == (1, 2) else ():
            self.assertEqual(p.add(address=address), 42)
            self.assertEqual(p.ask("echo_string", strings("via"), Decoder.string, address=address), "via")

    @every()
    def test_locate(self, p):
        for address in ADDRESSES if p.version == (1, 2) else (giop.KEY_ADDR,):
            self.assertEqual(p.locate(p.ref, address).status, giop.OBJECT_HERE)
            if p.version == (1, 2):
                self.assertEqual(p.locate(p.ref, address, size=24).status, giop.OBJECT_HERE)
        for key in (b"foreign", b"", bytes(100), p.ref.iiop().key + b"x"):
            self.assertEqual(p.locate(key).status, giop.UNKNOWN_OBJECT, key)
        self.assertEqual(p.add(), 42)

    @every()
    def test_keys_of_no_object(self, p):
        key = p.ref.iiop().key
        bad = [b"foreign", bytes(64), b"\xff" * 64, key * 2, key + b"\0"] + [key[:n] for n in range(len(key))]
        for i in range(len(key)):
            bad += [key[:i] + bytes([key[i] ^ mask]) + key[i + 1:] for mask in (1, 0xFF)]
        for k in bad:
            with self.subTest(key=k.hex()):
                self.refused(NOT_EXIST, lambda: p.add(target=k))
        self.assertEqual(p.add(), 42)

    @every()
    def test_arguments_that_do_not_decode(self, p):
        for name, operation, args in (
                ("missing", "add", None), ("half", "add", lambda e: e.long(1)),
                ("no length", "echo_string", lambda e: e.raw(b"\0\0")),
                ("length 0", "echo_string", lambda e: e.ulong(0)),
                ("no NUL", "echo_string", octets(b"abcd")),
                ("long string", "echo_string", lambda e: e.ulong(0x7FFFFFFF).raw(b"abc\0")),
                ("long octets", "echo_octets", lambda e: e.ulong(0xFFFFFFFF).raw(b"abc"))):
            with self.subTest(name):
                self.refused(MARSHAL, lambda: p.ask(operation, args))
        self.assertEqual(p.add(), 42)

    # -- how messages travel -----------------------------------------------------------------

    @every((1, 1), (1, 2))
    def test_fragmented_requests(self, p):
        text, blob = "fragmented " * 30, bytes(range(250))
        for size in (24, 32, 40, 64, 256, 1024):
            for operation, args, read, wanted in (("echo_string", strings(text), Decoder.string, text),
                                                  ("echo_octets", octets(blob), Decoder.octets, blob),
                                                  ("add", longs(3, 4), Decoder.long, 7)):
                id, data = p.make(operation, args)
                p.send(b"".join(giop.fragments(data, size)))
                self.assertEqual(p.reply(id).result(read), wanted)
        id, data = p.make("echo_octets", octets(blob))
        if p.version == (1, 1):
            cuts = [len(data) - n for n in (250, 201, 7, 7, 1, 0)]  # within the octets, one empty, an empty end
        else:
            cuts = [16]  # no more than the request id at first
        for m in giop.split(data, cuts):
            p.send(m)
        self.assertEqual(p.reply(id).result(Decoder.octets), blob)
        self.assertEqual(p.add(), 42)

    @every((1, 2))
    def test_interleaved_fragments(self, p):
        (a, first), (b, second) = p.make("echo_string", strings("a" * 333)), p.make("echo_octets", octets(b"b" * 200))
        first, second = giop.fragments(first, 64), giop.fragments(second, 32)
        (c, whole), (d, dropped) = p.make("add", longs(1, 1)), p.make("echo_string", strings("d" * 99))
        dropped = giop.fragments(dropped, 48)
        p.send(dropped[0] + dropped[1])
        for i in range(max(len(first), len(second))):
            p.send(b"".join(first[i:i + 1] + second[i:i + 1]))
            if i == 1:
                p.send(whole)
                self.assertEqual(p.reply(c).result(Decoder.long), 2)  # answered in the middle of both
        p.send(giop.cancel_request(p.version, p.little, d))
        self.assertEqual(p.reply(b).result(Decoder.octets), b"b" * 200)
        self.assertEqual(p.reply(a).result(Decoder.string), "a" * 333)
        self.assertEqual(p.add(), 42)
        self.assertEqual((list(p.awaited), p.early), ([d], {}))  # the cancelled start was never answered

    @every(names=("root",))
    def test_large_octets(self, p):
        blob = os.urandom(MIB) * 5
        for size in (None,) if p.version == (1, 0) else (None, 65536):
            id, data = p.make("echo_octets", octets(blob))
            p.send(b"".join(giop.fragments(data, size)) if size else data)
            self.assertTrue(p.reply(id).result(Decoder.octets) == blob)
        self.assertEqual(p.add(), 42)

    def test_huge_octets(self):
        blob = os.urandom(MIB) * 64
        with Peer("root") as p:
            self.assertTrue(p.ask("echo_octets", octets(blob), Decoder.octets) == blob)
            self.assertEqual(p.add(), 42)

    @every(names=("deep",))
    def test_pipelined_requests(self, p):
        made = [p.make("add", longs(i, 7)) for i in range(1000)]
        p.send(b"".join(data for _, data in made))
        for i, (id, _) in enumerate(made):
            self.assertEqual(p.reply(id).result(Decoder.long), i + 7)
        self.assertEqual((p.awaited, p.early, p.add()), ({}, {}, 42))

    @every()
    def test_later_call_overtakes_a_slow_one(self, p):
        (slow, first), (fast, second) = p.make("sleep_ms", lambda e: e.ulong(300)), p.make("add", longs(1, 2))
        p.send(first)
        p.send(second)
        self.assertEqual([p.read_message().id, p.read_message().id], [fast, slow])

    @every()
    def test_octet_by_octet(self, p):
        id, data = p.make("echo_string", strings("drop by drop"))
        for i in range(len(data)):
            p.send(data[i:i + 1])
        self.assertEqual(p.reply(id).result(Decoder.string), "drop by drop")

    @every()
    def test_cancel_is_harmless(self, p):
        for id in (0, 99999, 0xFFFFFFFF):
            p.send(giop.cancel_request(p.version, p.little, id))
            self.assertEqual(p.add(), 42)
        p.send(giop.cancel_request(p.version, p.little, p.last_id))  # answered already
        self.assertEqual(p.add(), 42)

    def test_many_connections(self):
        peers = []
        try:
            for i in range(200):
                peers.append(Peer(("root", "deep")[i % 2], VERSIONS[i % 3], bool(i % 2)))
            ids = []
            for i, p in enumerate(peers):
                id, data = p.make("add", longs(i, i))
                p.send(data)
                ids.append(id)
            for i in reversed(range(200)):
                self.assertEqual(peers[i].reply(ids[i]).result(Decoder.long), 2 * i)
            self.assertEqual([p.add() for p in peers], [42] * 200)
        finally:
            for p in peers:
                p.close()

    # -- breaches ----------------------------------------------------------------------------

    def ends(self, p, data):
        """Send octets that break the protocol: a MessageError or the end has to follow, and no result."""
        try:
            p.send(data)
            while True:
                m = p.read_message()
                if isinstance(m, giop.Message):
                    if m.type == giop.MESSAGE_ERROR:
                        return
                else:
                    self.refused(MARSHAL, m.result)  # the cut request as such may be answered first
        except (giop.Closed, ConnectionError):
            pass
        except (GiopError, socket.timeout) as e:
            self.fail("neither MessageError nor the end: %r" % e)

    def test_bad_input(self):
        with Peer("root") as before:
            for version in VERSIONS:
                for little in (False, True):
                    size = lambda n: struct.pack("<I" if little else ">I", n)
                    message = functools.partial(giop.message, version, little)
                    with Peer("deep", version, little) as p:
                        good = p.make("echo_string", strings("y" * 64))[1]
                        part = giop.split(good, [24])[1] if version > (1, 0) else message(giop.FRAGMENT, bytes(8))
                    for name, data in (
                            ("magic", b"GIOQ" + good[4:]), ("magic in lower case", b"giop" + good[4:]),
                            ("plain text", b"GET / HTTP/1.1\r\n\r\n"), ("zeros", bytes(64)), ("ones", b"\xff" * 64),
                            ("version 1.9", good[:4] + b"\1\x09" + good[6:]),
                            ("version 2.0", good[:4] + b"\2\0" + good[6:]),
                            ("version 0.2", good[:4] + b"\0\2" + good[6:]), ("type 8", good[:7] + b"\x08" + good[8:]),
                            ("type 255", good[:7] + b"\xff" + good[8:]), ("size", good[:8] + size(0xFFFFFFF0)),
                            ("largest size", good[:8] + size(0xFFFFFFFF) + good[12:]),
                            ("cut arguments", good[:8] + size(len(good) - 12 - 32) + good[12:]),
                            ("cut header", good[:8] + size(10) + good[12:]), ("no header", message(giop.REQUEST)),
                            ("context count", message(giop.REQUEST, b"\xff" * 40)),
                            ("reply", message(giop.REPLY, bytes(12))),
                            ("locate reply", message(giop.LOCATE_REPLY, bytes(8))),
                            ("fragment without start", part)):
                        with self.subTest(name, version=version, little=little):
                            with Peer("deep", version, little) as p:
                                p.make("echo_string")  # makes id 1 awaited, for a cut request that gets answered
                                self.ends(p, data)
                            self.assertEqual(before.add(), 42)
            with Peer() as after:
                self.assertEqual(after.add(), 42)

    def test_client_dies_in_the_middle(self):
        with Peer("root") as before:
            for version in VERSIONS:
                with Peer("deep", version) as p:
                    data = p.make("echo_octets", octets(bytes(5000)))[1]
                parts = [data[:n] for n in (0, 1, 8, 11, 12, 13, 20, 100, len(data) - 1)]
                if version > (1, 0):
                    parts.append(giop.fragments(data, 1024)[0])
                for part in parts + [data, data * 50]:
                    for reset in (False, True):
                        with self.subTest(version=version, sent=len(part), reset=reset):
                            with Peer("deep", version) as p:
                                p.send(part)
                                if reset:
                                    p.sock.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
                            self.assertEqual(before.add(), 42)
            with Peer() as after:
                self.assertEqual(after.add(), 42)


if __name__ == "__main__":
    unittest.main()
