"""A relay between a server and its clients that writes what it passes on as a capture of TCP packets.

It needs no right to capture, and what is in the file is what was sent. Cut anywhere: each part is a packet.
"""
import socket
import struct
import threading

CLIENT, SERVER = b"\x7f\0\0\2", b"\x7f\0\0\1"
SYN, ACK, FIN = 2, 16, 1


class Relay:
    """Listens on `address` until it is closed, and passes on to the address that `join` is told."""

    def __init__(self, file):
        self.file = open(file, "wb")
        self.file.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 1 << 18, 101))  # packets begin with IPv4
        self.lock = threading.Lock()
        self.clock = 0
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.address = self.listener.getsockname()
        self.threads = []

    def join(self, server):
        self.server = server
        self.start(self.accept)

    def start(self, work, *arguments):
        thread = threading.Thread(target=work, args=arguments, daemon=True)
        thread.start()
        self.threads.append(thread)

    def accept(self):
        while True:
            try:
                client, (_, port) = self.listener.accept()
            except OSError:
                return
            server = socket.create_connection(self.server)
            sent = [1, 1]  # sequence numbers of the client and the server
            self.write(port, sent, 0, SYN, at=0)
            self.write(port, sent, 1, SYN | ACK, at=0)
            self.start(self.pump, client, server, port, sent, 0)
            self.start(self.pump, server, client, port, sent, 1)

    def pump(self, source, to, port, sent, side):
        try:
            while data := source.recv(16000):
                self.write(port, sent, side, ACK, data)
                to.sendall(data)
            self.write(port, sent, side, FIN | ACK)
            to.shutdown(socket.SHUT_WR)
        except OSError:
            pass  # the other end is gone

    def write(self, port, sent, side, flags, data=b"", at=None):
        with self.lock:
            ports = (port, self.server[1]) if side == 0 else (self.server[1], port)
            tcp = struct.pack(">HHIIBBHHH", *ports, sent[side] if at is None else at, sent[1 - side], 0x50, flags,
                              65535, 0, 0)
            hosts = (CLIENT, SERVER) if side == 0 else (SERVER, CLIENT)
            packet = struct.pack(">BBHHHBBH4s4s", 0x45, 0, 40 + len(data), 0, 0, 64, 6, 0, *hosts) + tcp + data
            self.clock += 1
            self.file.write(struct.pack("<IIII", 0, self.clock, len(packet), len(packet)) + packet)
            sent[side] += len(data)

    def close(self):
        """Ends when all connections have ended."""
        self.listener.shutdown(socket.SHUT_RDWR)
        self.listener.close()
        for thread in self.threads:
            thread.join(20)
            assert not thread.is_alive(), "a connection did not end"
        self.file.close()
