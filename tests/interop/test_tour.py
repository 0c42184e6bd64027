"""Drives the tour server over bare sockets: every operation, message form and breach of the protocol."""
import functools
import os
import struct
import time
import unittest

import giop
from giop import Decoder, VERSIONS
from server import Server

ECHO, REFUSED = "IDL:Demo/Echo:1.0", "IDL:Demo/Refused:1.0"
NOT_EXIST, BAD_OPERATION, MARSHAL, INCOMPATIBLE = ("IDL:omg.org/CORBA/%s:1.0" % n for n in (
    "OBJECT_NOT_EXIST", "BAD_OPERATION", "MARSHAL", "CODESET_INCOMPATIBLE"))
MIB = 1 << 20
SERVER = None


def setUpModule():
    global SERVER
    SERVER = Server()
    unittest.addModuleCleanup(SERVER.stop)


def strings(*values): return lambda e: [e.string(v) for v in values]
def longs(*values): return lambda e: [e.long(v) for v in values]
def octets(v): return lambda e: e.octets(v)


class Peer(giop.Connection):
    """A connection to one of the server's objects."""

    def __init__(self, name="deep", version=(1, 2), little=True):
        super().__init__(SERVER.address, version, little)
        self.name, self.ref = name, SERVER.refs[name]

    def ask(self, operation, args=None, result=None, target=None, **kw):
        return self.call(self.ref if target is None else target, operation, args, result, **kw)

    def make(self, operation, args=None, **kw):
        return self.prepare(self.ref, operation, args, **kw)

    def add(self, **kw):
        return self.ask("add", longs(20, 22), Decoder.long, **kw)

    def notes(self, **kw):
        return self.ask("notes", None, Decoder.long, **kw)


def every(*versions, names=("root", "deep")):
    """Run a test on a fresh connection for each reference, version and byte order; it has to work afterwards."""
    def wrap(test):
        @functools.wraps(test)
        def run(self):
            for name in names:
                for version in versions or VERSIONS:
                    for little in (False, True):
                        with self.subTest(ref=name, version=version, little=little), Peer(name, version, little) as p:
                            test(self, p)
                            self.assertEqual((p.add(), p.early), (42, {}))
        return run
    return wrap


TEXTS = ["x" * n for n in range(10)] + ["tab\t and \x7f", "long " * 20000]
BLOBS = [bytes(n) for n in range(5)] + [bytes(range(256)) * 300]
CALLS = (
    [("echo_string", strings(s), Decoder.string, s) for s in TEXTS] +
    [("echo_octets", octets(b), Decoder.octets, b) for b in BLOBS] +
    [("add", longs(a, b), Decoder.long, a + b) for a, b in (
        (-5, -6), (0x01020304, 0x10203040), (-1 << 31, (1 << 31) - 1))] +
    [("_is_a", strings(ECHO), Decoder.boolean, True), ("_is_a", strings("IDL:Nope:1.0"), Decoder.boolean, False),
     ("_non_existent", None, Decoder.boolean, False), ("sleep_ms", longs(1), None, None)])


class TourTest(unittest.TestCase):
    def refused(self, id, ask, minor=None):
        with self.assertRaises(giop.SystemException) as caught:
            ask()
        told = caught.exception.args
        self.assertEqual(told[:2], (id, told[1] if minor is None else minor))

    # -- what calls do -----------------------------------------------------------------------

    @every()
    def test_operations(self, p):
        for operation, args, read, wanted in CALLS:
            self.assertEqual(p.ask(operation, args, read), wanted, operation)
        self.assertRegex(p.ask("who", None, Decoder.string), r"\AA/B/C:deep\Z" if p.name == "deep" else r"(?s)\A:.+")
        for why, code in (("", 0), ("too late", -7), ("odd", 1 << 30)):
            with self.assertRaises(giop.UserException) as caught:
                p.ask("refuse", lambda e: e.string(why).long(code))
            id, d = caught.exception.args
            self.assertEqual((id, d.string(), d.long(), d.left()), (REFUSED, why, code, 0))
        for operation in ("nope", "ADD", "add_", "", "_nope", "x" * 300):
            self.refused(BAD_OPERATION, lambda: p.ask(operation), 0x4B510306)
        for id in (0, p.last_id, 99999, 0xFFFFFFFF):  # answered or never sent: nothing to cancel
            p.send(giop.cancel_request(p.version, p.little, id))

    @every()
    def test_no_reply_unless_expected(self, p):
        with Peer("root" if p.name == "deep" else "deep") as other:
            before, others = p.notes(), other.notes()
            for i in range(5):
                for operation, args in (("note", strings("n%d" % i)), ("add", longs(i, i)), ("nope", None)):
                    p.send(p.make(operation, args, response=False)[1])
            deadline = time.monotonic() + 10
            while p.notes() < before + 5 and time.monotonic() < deadline:
                pass
            p.ask("sleep_ms", longs(50))  # a stray answer would overtake; ids that nobody awaits are refused
            self.assertEqual((p.notes(), other.notes()), (before + 5, others))

    @every()
    def test_service_contexts_and_addresses(self, p):
        some = [(0xDEAD0001, b"\xff" * 7), (0xDEAD0002, b""), (0xDEAD0001, b"again")]
        for contexts in (some[1:2], some, [(0x7FFF0000 + i, bytes(i)) for i in range(64)]):
            self.assertEqual((p.add(contexts=contexts), p.notes(contexts=contexts)), (42, p.notes()))
        addresses = (giop.KEY_ADDR, giop.PROFILE_ADDR, giop.REFERENCE_ADDR) if p.version == (1, 2) else (giop.KEY_ADDR,)
        for address in addresses:
            self.assertEqual(p.ask("echo_string", strings("via"), Decoder.string, address=address), "via")
            for size in (None, 24) if p.version == (1, 2) else (None,):
                self.assertEqual(p.locate(p.ref, address, size).status, giop.OBJECT_HERE)

    @every()
    def test_code_sets(self, p):
        text = lambda octets: (lambda e: e.octets(octets + b"\0"))
        latin, utf = "caf\u00e9".encode("latin-1"), "caf\u00e9 \u20ac \U0001d11e".encode()
        say = lambda char, wide=0x00010109: [(1, giop.Encoder(p.little).octet(p.little).align(4).ulong(char).ulong(wide).buf)]
        echo = lambda octets, **kw: p.ask("echo_string", text(octets), lambda d: d.octets()[:-1], **kw)
        self.assertEqual(echo(latin), latin)  # what nobody says is ISO 8859-1
        if p.version == (1, 0):
            return
        self.assertEqual(echo(utf, contexts=say(0x05010001)), utf)
        self.assertEqual(echo(utf), utf)  # it was said on this connection
        self.assertEqual(echo(latin, contexts=say(0x00010001)), latin)
        self.assertEqual(p.add(contexts=say(0x10020025)), 42)
        self.refused(INCOMPATIBLE, lambda: echo(b"abc", contexts=say(0x10020025)), 0x4F4D0002)
        self.refused(INCOMPATIBLE, lambda: echo(b"abc"))
        self.assertEqual(echo(utf, contexts=say(0x05010001, 0)), utf)

    @every()
    def test_keys_of_no_object(self, p):
        key = p.ref.iiop().key
        bad = [b"foreign", bytes(64), b"\xff" * 64, key * 2, key + b"\0"] + [key[:n] for n in range(len(key))]
        for i in range(len(key)):
            bad += [key[:i] + bytes([key[i] ^ mask]) + key[i + 1:] for mask in (1, 0xFF)]
        for k in bad:
            with self.subTest(key=k.hex()):
                self.refused(NOT_EXIST, lambda: p.add(target=k))
                if len(k) != len(key):
                    self.assertEqual(p.locate(k).status, giop.UNKNOWN_OBJECT)

    @every()
    def test_arguments_that_do_not_decode(self, p):
        for name, operation, args in (
                ("missing", "add", None), ("half", "add", longs(1)),
                ("no length", "echo_string", lambda e: e.raw(b"\0\0")),
                ("length 0", "echo_string", longs(0)),
                ("no NUL", "echo_string", octets(b"abcd")),
                ("long string", "echo_string", lambda e: e.ulong(0x7FFFFFFF).raw(b"abc\0")),
                ("long octets", "echo_octets", lambda e: e.ulong(0xFFFFFFFF).raw(b"abc"))):
            with self.subTest(name):
                self.refused(MARSHAL, lambda: p.ask(operation, args))

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
        # Within the octets, one empty and an empty end; or no more than the request id at first.
        cuts = [len(data) - n for n in (250, 201, 7, 7, 1, 0)] if p.version == (1, 1) else [16]
        for m in giop.split(data, cuts):
            p.send(m)
        self.assertEqual(p.reply(id).result(Decoder.octets), blob)

    @every((1, 2))
    def test_interleaved_fragments(self, p):
        (a, first), (b, second) = p.make("echo_string", strings("a" * 333)), p.make("echo_octets", octets(b"b" * 200))
        first, second = giop.fragments(first, 64), giop.fragments(second, 32)
        (c, whole), (d, dropped) = p.make("add", longs(1, 1)), p.make("echo_string", strings("d" * 99))
        p.send(b"".join(giop.fragments(dropped, 48)[:2]))
        for i in range(max(len(first), len(second))):
            p.send(b"".join(first[i:i + 1] + second[i:i + 1]))
            if i == 1:
                p.send(whole)
                self.assertEqual(p.reply(c).result(Decoder.long), 2)  # answered in the middle of both
        p.send(giop.cancel_request(p.version, p.little, d))
        self.assertEqual(p.reply(b).result(Decoder.octets), b"b" * 200)
        self.assertEqual(p.reply(a).result(Decoder.string), "a" * 333)
        self.assertEqual((p.add(), list(p.awaited)), (42, [d]))  # the cancelled start was never answered

    @every(names=("root",))
    def test_large_octets(self, p):
        for mib, size in ((5, None), (5, 65536), (15, None)):
            if mib == 15 and p.version != (1, 2) or size and p.version == (1, 0):
                continue
            blob = os.urandom(MIB) * mib
            id, data = p.make("echo_octets", octets(blob))
            p.send(b"".join(giop.fragments(data, size)) if size else data)
            self.assertTrue(p.reply(id).result(Decoder.octets) == blob)

    @every(names=("deep",))
    def test_pipelined_requests(self, p):
        made = [p.make("add", longs(i, 7)) for i in range(1000)]
        p.send(b"".join(data for _, data in made))
        for i, (id, _) in enumerate(made):
            self.assertEqual(p.reply(id).result(Decoder.long), i + 7)
        self.assertEqual(p.awaited, {})
        (slow, first), (fast, second) = p.make("sleep_ms", longs(300)), p.make("add", longs(1, 2))
        p.send(first + second)
        self.assertEqual([p.read_message().id, p.read_message().id], [fast, slow])

    def test_many_connections(self):
        peers = [Peer(("root", "deep")[i % 2], VERSIONS[i % 3], bool(i % 2)) for i in range(200)]
        for i, p in enumerate(peers):
            p.send(p.make("add", longs(i, i))[1])
        for i in reversed(range(200)):
            self.assertEqual(peers[i].reply(1).result(Decoder.long), 2 * i)
        for p in peers:
            self.assertEqual(p.add(), 42)
            p.close()

    # -- breaches ----------------------------------------------------------------------------

    def ends(self, p, data):
        """Send octets that break the protocol: a MessageError or the end has to follow, and no answer."""
        try:
            p.send(data)
            while p.read_message().type != giop.MESSAGE_ERROR:
                pass
        except (giop.Closed, ConnectionError):
            pass

    @every(names=("root",))
    def test_bad_input(self, before):
        version, little = before.version, before.little
        good = before.prepare(SERVER.refs["deep"], "echo_string", strings("y" * 64), response=False)[1]
        part = giop.split(good, [24])[1] if version > (1, 0) else giop.message(version, little, giop.FRAGMENT, bytes(8))
        size = lambda n: struct.pack("<I" if little else ">I", n)
        message = functools.partial(giop.message, version, little)
        for name, data in (
                ("magic", b"GIOQ" + good[4:]), ("magic in lower case", b"giop" + good[4:]),
                ("plain text", b"GET / HTTP/1.1\r\n\r\n"), ("zeros", bytes(64)), ("ones", b"\xff" * 64),
                ("version 1.9", good[:4] + b"\1\x09" + good[6:]), ("version 2.0", good[:4] + b"\2\0" + good[6:]),
                ("version 0.2", good[:4] + b"\0\2" + good[6:]), ("type 8", good[:7] + b"\x08" + good[8:]),
                ("type 255", good[:7] + b"\xff" + good[8:]), ("size", good[:8] + size(0xFFFFFFF0)),
                ("largest size", good[:8] + size(0xFFFFFFFF) + good[12:]),
                ("cut arguments", good[:8] + size(len(good) - 12 - 32) + good[12:]),
                ("cut header", good[:8] + size(10) + good[12:]), ("no header", message(giop.REQUEST)),
                ("context count", message(giop.REQUEST, b"\xff" * 40)), ("reply", message(giop.REPLY, bytes(12))),
                ("locate reply", message(giop.LOCATE_REPLY, bytes(8))), ("fragment without start", part)):
            with self.subTest(name), Peer("deep", version, little) as p:
                self.ends(p, data)
                self.assertEqual(before.add(), 42)

    @every(names=("root",))
    def test_client_dies_in_the_middle(self, before):
        data = before.prepare(SERVER.refs["deep"], "echo_octets", octets(bytes(5000)))[1]
        parts = [data[:n] for n in (0, 1, 11, 12, 20, 100, len(data) - 1)]
        if before.version > (1, 0):
            parts.append(giop.fragments(data, 1024)[0])
        for part in parts + [data, data * 50]:
            for end in (Peer.close, Peer.reset):
                p = Peer("deep", before.version)
                p.send(part)
                end(p)
                self.assertEqual(before.add(), 42)


if __name__ == "__main__":
    unittest.main()
