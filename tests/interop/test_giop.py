"""Checks of the client library itself: against octets worked out by hand, and against itself."""
import socket
import unittest

import giop
from giop import Decoder, Encoder, GiopError, IOR

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
    (giop.locate_request((1, 2), BE, 6, REF, giop.REFERENCE_ADDR), """
        'GIOP' 0102 00 03 0000004c    # magic, version, flags, LocateRequest, size
        00000006 0002 0000 00000000   # request id, ReferenceAddr, padding, index of the profile
        0000000a 'IDL:X:1.0' 00 0000 00000001 00000000 00000024
        00 0102 00 00000002 'h' 00 1234 00000003 'key' 00 00000001 00000001 00000004 deadbeef"""),
    (b"".join(giop.fragments(giop.request((1, 2), LE, 5, b"key", "add", two), 40)), """
        'GIOP' 0102 03 00 1c000000 05000000 03 000000 0000 0000 03000000 'key' 00 04000000 'add' 00  # more to come
        'GIOP' 0102 01 07 14000000 05000000 00000000 00000000 01000000 02000000     # the last, with the request id"""),
)


def reply(id=7, text="text", status=0):
    body = Encoder(BE, giop.HEADER).ulong(id).ulong(status).pairs([]).align(8).string(text).buf
    return giop.message((1, 2), BE, giop.REPLY, body)


def feed(data):
    """A Connection that reads the given octets, and awaits the replies 7 and 8."""
    with socket.create_server(("127.0.0.1", 0)) as listener:
        connection = giop.Connection(listener.getsockname(), timeout=5)
        with listener.accept()[0] as peer:
            peer.sendall(data)
    connection.awaited = {id: ((1, 2), giop.REPLY) for id in (7, 8)}
    return connection


class GiopTest(unittest.TestCase):
    def test_golden_messages(self):
        for i, (made, wanted) in enumerate(GOLDEN):
            with self.subTest(i=i):
                self.assertEqual(bytes(made).hex(" ", 4), octets(wanted).hex(" ", 4))
        self.assertEqual((REF.type_id, *REF.iiop()), ("IDL:X:1.0", (1, 2), "h", 0x1234, b"key", [(1, b"\xde\xad\xbe\xef")]))

    def test_fragments_are_reassembled(self):
        text = "abcdefgh" * 40
        both = (giop.fragments(reply(id, text), 24) for id in (7, 8))
        with feed(b"".join(m for pair in zip(*both) for m in pair)) as c:
            self.assertEqual([c.reply(id).result(Decoder.string) for id in (8, 7)], [text, text])

    def test_broken_input_is_refused(self):
        good = reply()
        cut = giop.split(good, [24])
        for name, data in (
                ("magic", b"GIOp" + good[4:]), ("version", good[:5] + b"\3" + good[6:]),
                ("flags", good[:6] + b"\4" + good[7:]), ("fragments in 1.0", good[:5] + b"\0\2" + good[7:]),
                ("type", good[:7] + b"\x08" + good[8:]), ("a request", giop.request((1, 2), BE, 7, b"k", "f")),
                ("size", good[:8] + b"\xff" * 4 + good[12:]), ("cut short", good[:-1]), ("half a header", good[:7]),
                ("trailing octets", giop.message((1, 2), BE, giop.REPLY, good[12:] + b"\0")),
                ("other version", giop.message((1, 1), BE, giop.REPLY, bytes(7) + b"\7" + bytes(4))),
                ("other id", reply(9)),
                ("status", reply(status=6)), ("twice", good + good), ("no start", cut[1]),
                ("fragment size", good[:6] + b"\2" + good[7:]), ("start twice", cut[0] + cut[0] + cut[1]),
                ("content in an error", giop.message((1, 2), BE, giop.MESSAGE_ERROR, b"\0")),
                ("no NUL", good.replace(b"text\0", b"textx")), ("two NULs", good.replace(b"text\0", b"te\0t\0")),
                ("byte order", cut[0] + giop.message((1, 2), LE, giop.FRAGMENT, b"\7\0\0\0" + cut[1][16:]))):
            with self.subTest(name), feed(data) as c, self.assertRaises(GiopError):
                c.reply(7).result(Decoder.string)
                c.read_message()


if __name__ == "__main__":
    unittest.main()
