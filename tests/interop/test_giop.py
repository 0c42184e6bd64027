"""Checks of the client library itself: against octets worked out by hand, and against itself."""
import socket
import unittest

import giop
from giop import Decoder, Encoder, GiopError, IOR, VERSIONS

BE, LE = False, True


def two(e): e.long(1).long(2)


def octets(text):
    """The octets of a golden message: hex digits and 'text', with a comment after each #."""
    out = b""
    for line in text.splitlines():
        for word in line.split("#")[0].split():
            out += word[1:-1].encode() if word[0] == "'" else bytes.fromhex(word)
    return out


IOR_GOLDEN = """00 000000                         # big endian, padding
    0000000a 'IDL:X:1.0' 00 0000          # type id, padding
    00000001 00000000 00000024            # one profile: IIOP, 36 octets
    00 0102 00 00000002 'h' 00 1234       # big endian, version 1.2, padding, host, port
    00000003 'key' 00                     # object key, padding
    00000001 00000001 00000004 deadbeef   # one component of id 1"""
REF = IOR.parse("IOR:" + octets(IOR_GOLDEN).hex())

GOLDEN = (
    (giop.request((1, 0), BE, 5, b"key", "add", two), """
        'GIOP' 0100 00 00 00000028    # magic, version, byte order, Request, size
        00000000 00000005 01 000000   # no contexts, request id, response expected, padding
        00000003 'key' 00             # object key, padding
        00000004 'add' 00 00000000    # operation, principal
        00000001 00000002             # arguments"""),
    (giop.request((1, 1), LE, 5, b"key", "note", lambda e: e.string("hi"), [(0x11223344, b"\xaa\xbb")], False), """
        'GIOP' 0101 01 00 37000000    # magic, version, flags, Request, size
        01000000 44332211 02000000 aabb 0000  # one context: id, data, padding
        05000000 00 000000            # request id, no response, reserved
        03000000 'key' 00             # object key, padding
        05000000 'note' 00 000000     # operation, padding
        00000000 03000000 'hi' 00     # principal, argument"""),
    (giop.request((1, 2), LE, 5, REF, "add", two), """
        'GIOP' 0102 01 00 2c000000    # magic, version, flags, Request, size
        05000000 03 000000            # request id, response flags, reserved
        0000 0000 03000000 'key' 00   # KeyAddr, padding, object key, padding
        04000000 'add' 00 00000000    # operation, no contexts
        00000000 01000000 02000000    # padding to 8, arguments"""),
    (giop.request((1, 2), BE, 5, b"key", "who", response=False), """
        'GIOP' 0102 00 00 00000020    # magic, version, flags, Request, size
        00000005 00 000000            # request id, no response, reserved
        0000 0000 00000003 'key' 00   # KeyAddr, padding, object key, padding
        00000004 'who' 00 00000000    # operation, no contexts; nothing to pad for"""),
    (giop.locate_request((1, 2), BE, 6, REF, giop.PROFILE_ADDR), """
        'GIOP' 0102 00 03 00000034    # magic, version, flags, LocateRequest, size
        00000006 0001 0000            # request id, ProfileAddr, padding
        00000000 00000024             # tag of IIOP, 36 octets
        00 0102 00 00000002 'h' 00 1234 00000003 'key' 00 00000001 00000001 00000004 deadbeef"""),
    (giop.locate_request((1, 2), BE, 6, REF, giop.REFERENCE_ADDR), """
        'GIOP' 0102 00 03 0000004c    # magic, version, flags, LocateRequest, size
        00000006 0002 0000 00000000   # request id, ReferenceAddr, padding, index of the profile
        0000000a 'IDL:X:1.0' 00 0000 00000001 00000000 00000024
        00 0102 00 00000002 'h' 00 1234 00000003 'key' 00 00000001 00000001 00000004 deadbeef"""),
    (giop.locate_request((1, 0), LE, 6, b"key"), """
        'GIOP' 0100 01 03 0b000000 06000000 03000000 'key'"""),
    (giop.cancel_request((1, 1), BE, 7), "'GIOP' 0101 00 02 00000004 00000007"),
    (giop.message((1, 0), LE, giop.MESSAGE_ERROR), "'GIOP' 0100 01 06 00000000"),
    (b"".join(giop.fragments(giop.request((1, 2), LE, 5, b"key", "add", two), 24)), """
        'GIOP' 0102 03 00 0c000000 05000000 03 000000 0000 0000     # a Request, more to come
        'GIOP' 0102 03 07 0c000000 05000000 03000000 'key' 00       # Fragments with the request id
        'GIOP' 0102 03 07 0c000000 05000000 04000000 'add' 00
        'GIOP' 0102 03 07 0c000000 05000000 00000000 00000000
        'GIOP' 0102 01 07 0c000000 05000000 01000000 02000000       # the last"""),
    (b"".join(giop.split(giop.cancel_request((1, 1), BE, 7), [14])), """
        'GIOP' 0101 02 02 00000002 0000 'GIOP' 0101 00 07 00000002 0007  # no id in 1.1"""),
)

USER_REPLY = octets("""
    'GIOP' 0102 00 01 00000028        # magic, version, flags, Reply, size
    00000007 00000001 00000000        # request id, USER_EXCEPTION, no contexts
    0000000a 'IDL:X:1.0' 00 0000      # id, padding (the body starts at 24)
    00000003 'no' 00 00 ffffffff      # members""")
SYSTEM_REPLY = octets("""
    'GIOP' 0100 01 01 24000000        # magic, version, byte order, Reply, size
    00000000 07000000 02000000        # no contexts, request id, SYSTEM_EXCEPTION
    0a000000 'IDL:S:1.0' 00 0000      # id, padding
    0603514b 01000000                 # minor, COMPLETED_NO""")


def reply(version, little, id, text, status=0):
    e = Encoder(little, giop.HEADER)
    e.pairs([]).ulong(id).ulong(status) if version < (1, 2) else e.ulong(id).ulong(status).pairs([]).align(8)
    return giop.message(version, little, giop.REPLY, e.string(text).buf)


class Feed:
    """A Connection that reads the given octets, with the given answers awaited."""

    def __init__(self, data, version=(1, 2), ids=(7,)):
        here, self.peer = socket.socketpair()
        self.peer.sendall(data)
        self.peer.shutdown(socket.SHUT_WR)
        self.connection = giop.Connection(here, version, timeout=5)
        self.connection.awaited = {id: (version, giop.REPLY) for id in ids}

    def __enter__(self): return self.connection

    def __exit__(self, *_):
        self.connection.close()
        self.peer.close()


class GiopTest(unittest.TestCase):
    def test_golden_messages(self):
        for i, (made, wanted) in enumerate(GOLDEN):
            with self.subTest(i=i):
                self.assertEqual(bytes(made).hex(" ", 4), octets(wanted).hex(" ", 4))

    def test_references(self):
        self.assertEqual(REF.type_id, "IDL:X:1.0")
        self.assertEqual(REF.iiop(), ((1, 2), "h", 0x1234, b"key", [(1, b"\xde\xad\xbe\xef")]))
        for little in (BE, LE):
            self.assertEqual(IOR.parse(REF.text(little) + "\n"), REF)
        text = REF.text()
        for bad in ["IOR:", "IOR:0", "IOR:zz", text[4:], text + "00", "IOR:02" + text[6:]] + [
                text[:n] for n in range(4, len(text))]:
            with self.subTest(bad=bad), self.assertRaises(GiopError):
                IOR.parse(bad)

    def test_cdr_round_trip(self):
        values = (("octet", 200), ("double", -2.5), ("boolean", True), ("short", -2), ("octet", 1), ("ushort", 65535),
                  ("octet", 1), ("long", -3), ("string", "caf\xe9"), ("longlong", -1 << 40), ("octet", 9),
                  ("ulong", 0xFFFFFFFF), ("octets", b"\0\1"), ("pairs", [(1, b"x"), (2, b"")]))
        for little in (BE, LE):
            for base in range(8):
                e = Encoder(little, base)
                for kind, value in values:
                    getattr(e, kind)(value)
                d = Decoder(e.buf, little, base)
                self.assertEqual([getattr(d, kind)() for kind, _ in values], [value for _, value in values])
                d.end()

    def test_exception_replies(self):
        with Feed(USER_REPLY) as c, self.assertRaises(giop.UserException) as caught:
            c.reply(7).result()
        d = caught.exception.body
        self.assertEqual((caught.exception.id, d.string(), d.long()), ("IDL:X:1.0", "no", -1))
        d.end()
        with Feed(SYSTEM_REPLY, (1, 0)) as c, self.assertRaises(giop.SystemException) as caught:
            c.reply(7).result()
        e = caught.exception
        self.assertEqual((e.id, e.minor, e.completed), ("IDL:S:1.0", 0x4B510306, 1))
        e = Encoder(BE, giop.HEADER).ulong(7).ulong(giop.LOCATION_FORWARD).pairs([]).align(8)
        with Feed(giop.message((1, 2), BE, giop.REPLY, REF.write(e).buf)) as c:
            with self.assertRaises(giop.Forward) as caught:
                c.reply(7).result()
        self.assertEqual((caught.exception.ior, caught.exception.permanent), (REF, False))

    def test_fragments_are_reassembled(self):
        text = "abcdefgh" * 40
        for version in VERSIONS[1:]:
            for little in (BE, LE):
                for size in (24, 32, 64, 4096):
                    a, b = (giop.fragments(reply(version, little, id, text), size) for id in (7, 8))
                    mixed = [m for pair in zip(a, b) for m in pair] if version == (1, 2) else a + b
                    with self.subTest(version=version, size=size), Feed(b"".join(mixed), version, (7, 8)) as c:
                        for id in (8, 7):
                            self.assertEqual(c.reply(id).result(Decoder.string), text)
                        self.assertFalse(c.partial)
                        self.assertRaises(giop.Closed, c.read_message)

    def test_broken_input_is_refused(self):
        good = reply((1, 2), BE, 7, "text")
        cut = giop.split(good, [24])
        for name, data in (
                ("magic", b"GIOp" + good[4:]), ("version", good[:5] + b"\3" + good[6:]),
                ("flags", good[:6] + b"\4" + good[7:]), ("fragments in 1.0", good[:5] + b"\0\2" + good[7:]),
                ("type", good[:7] + b"\x08" + good[8:]), ("a request", giop.request((1, 2), BE, 7, b"k", "f")),
                ("size", good[:8] + b"\xff" * 4 + good[12:]), ("cut short", good[:-1]), ("half a header", good[:7]),
                ("trailing octets", giop.message((1, 2), BE, giop.REPLY, good[12:] + b"\0")),
                ("other version", reply((1, 1), BE, 7, "text")), ("other id", reply((1, 2), BE, 9, "text")),
                ("status", reply((1, 2), BE, 7, "text", 6)), ("twice", good + good), ("no start", cut[1]),
                ("fragment size", good[:6] + b"\2" + good[7:]), ("start twice", cut[0] + cut[0] + cut[1]),
                ("padding alone", giop.message((1, 2), BE, giop.REPLY, Encoder(
                    BE, giop.HEADER).ulong(7).ulong(0).pairs([(1, b"x")]).align(8).buf)),
                ("content in an error", giop.message((1, 2), BE, giop.MESSAGE_ERROR, b"\0")),
                ("no NUL", good.replace(b"text\0", b"textx")), ("two NULs", good.replace(b"text\0", b"te\0t\0")),
                ("byte order", cut[0] + giop.message((1, 2), LE, giop.FRAGMENT, b"\7\0\0\0" + cut[1][16:]))):
            with self.subTest(name), Feed(data) as c, self.assertRaises(GiopError):
                c.reply(7).result(Decoder.string)
                c.read_message()


if __name__ == "__main__":
    unittest.main()
