"""That the client library refuses what a server must not send; what it writes, the server and the analyser judge."""
import socket
import unittest

import giop
from giop import Decoder, Encoder, GiopError

BE, LE = False, True


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
