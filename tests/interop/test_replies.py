"""Serves everything.idl to the C++ client over bare sockets, with replies in one byte order and in the other.

EVERYTHING_CLIENT names the program, which calls every operation with values of every type, and as Anys.
"""
import os
import shlex
import socket
import subprocess
import tempfile
import threading
import unittest

import giop
from giop import Decoder, Encoder, IOR
from test_everything import ALL, LIMIT, TYPES, reference, sequence

ECHOED = {name: type for name, (type, _) in TYPES.items()}
ECHOED |= {"things": reference, "objects": reference, "objectlists": sequence(reference)}
UTF_8, UTF_16 = 0x05010001, 0x00010109


def encapsulated(write):
    e = Encoder(False).boolean(False)
    write(e)
    return bytes(e.buf)


def reference_to(port):
    def sets(e): e.ulong(UTF_8).ulong(0).ulong(UTF_16).ulong(0)
    def profile(e): e.octet(1).octet(2).string("127.0.0.1").ushort(port).octets(b"key").pairs([(1, encapsulated(sets))])
    ior = IOR("IDL:Every/Thing:1.0", [(0, encapsulated(profile))])
    return "IOR:" + encapsulated(ior.write).hex()


class Peer:
    """A server of one byte order. `orders` collects those of the requests, `failures` what went wrong."""

    def __init__(self, little):
        self.little, self.everything, self.orders, self.failures = little, None, set(), []
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.listener.settimeout(LIMIT)
        self.reference = reference_to(self.listener.getsockname()[1])
        self.thread = threading.Thread(target=self.serve, daemon=True)
        self.thread.start()

    def serve(self):
        try:
            with self.listener, self.listener.accept()[0] as sock:
                sock.settimeout(LIMIT)
                self.sock = sock
                while self.answer():
                    pass
        except Exception as e:  # told by the test
            self.failures.append(repr(e))

    def receive(self, n):
        data = self.sock.recv(n, socket.MSG_WAITALL)
        if len(data) != n:
            raise giop.GiopError("connection ended within a message")
        return data

    def answer(self):
        """False when there is no more to do."""
        h = self.receive(giop.HEADER)
        little = bool(h[6] & 1)
        if h[:6] != b"GIOP\1\2" or h[6] > 1 or h[7] != giop.REQUEST:
            raise giop.GiopError("no whole request of GIOP 1.2: %s" % h.hex())
        self.orders.add(little)
        d = Decoder(self.receive(Decoder(h[8:], little).ulong()), little, giop.HEADER)
        id, wanted, _, _ = d.ulong(), d.octet(), d.raw(3), d.ushort()
        key, operation, _ = d.octets(), d.string(), d.pairs()
        if key != b"key":
            raise giop.GiopError("a request for %r" % key)
        if d.left():
            d.align(8)
        status, body = self.run(operation, d)
        d.end()
        if wanted:
            self.reply(id, status, body)
        return operation != "shutdown"

    def run(self, operation, d):
        """The status, and what writes the body of the reply."""
        if operation == "fail":
            return giop.USER_EXCEPTION, lambda e: ALL.put(e.string("IDL:Every/Failed:1.0"), self.everything)
        if operation == "_set_everything":
            self.everything = ALL.get(d)
        if operation == "_get_everything":
            return giop.NO_EXCEPTION, lambda e: ALL.put(e, self.everything)
        if operation in ("_set_everything", "shutdown"):
            return giop.NO_EXCEPTION, None
        type = ECHOED[operation.removeprefix("echo_")]
        a, b = type.get(d), type.get(d)
        return giop.NO_EXCEPTION, lambda e: [type.put(e, value) for value in (a, a, b)]

    def reply(self, id, status, body):
        e = Encoder(self.little, giop.HEADER).ulong(id).ulong(status).pairs([])
        if body:
            body(e.align(8))
        self.sock.sendall(giop.message((1, 2), self.little, giop.REPLY, e.buf))


class RepliesTest(unittest.TestCase):
    def test_every_type_comes_back_in_both_byte_orders(self):
        orders = set()
        for little in (False, True):
            with self.subTest(little=little), tempfile.TemporaryDirectory() as directory:
                peer = Peer(little)
                file = os.path.join(directory, "reference")
                with open(file, "w") as f:
                    f.write(peer.reference)
                done = subprocess.run([*shlex.split(os.environ["EVERYTHING_CLIENT"]), file], timeout=LIMIT,
                                      capture_output=True, text=True)
                peer.thread.join(LIMIT)
                self.assertEqual((done.returncode, peer.failures), (0, []), done.stderr[-4000:])
                orders |= {(little, request) for request in peer.orders}
        self.assertEqual(len(orders), 2, "requests of one order, replies of both")


if __name__ == "__main__":
    unittest.main()
