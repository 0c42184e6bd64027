"""A small, strict GIOP/IIOP client library that checks the server from the outside; it shares no code with it.

Anything out of the ordinary in a received message raises GiopError.
"""
import socket
import struct
from collections import namedtuple

REQUEST, REPLY, CANCEL_REQUEST, LOCATE_REQUEST, LOCATE_REPLY, CLOSE_CONNECTION, MESSAGE_ERROR, FRAGMENT = range(8)
NO_EXCEPTION, USER_EXCEPTION, SYSTEM_EXCEPTION = range(3)
UNKNOWN_OBJECT, OBJECT_HERE = range(2)
KEY_ADDR, PROFILE_ADDR, REFERENCE_ADDR = range(3)
VERSIONS = ((1, 0), (1, 1), (1, 2))
HEADER = 12
LIMIT = 128 << 20


class GiopError(Exception):
    """The peer broke the protocol."""


class Closed(Exception):
    """The peer ended the connection between two messages."""


class UserException(Exception):
    """`args` are the id and a Decoder standing at the members."""


class SystemException(Exception):
    """`args` are the id, the minor code and the completion status."""


class Encoder:
    """CDR output. `base` is where the first octet stands relative to the origin of alignment."""

    def __init__(self, little, base=0):
        self.little, self.base, self.buf = little, base, bytearray()

    def raw(self, data):
        self.buf += data
        return self

    def align(self, n): return self.raw(bytes(-(self.base + len(self.buf)) % n))
    def boolean(self, v): return self.octet(1 if v else 0)
    def octets(self, v): return self.ulong(len(v)).raw(v)
    def string(self, v): return self.octets(v.encode("latin-1") + b"\0")

    def pairs(self, items):
        """A sequence of (ulong id, sequence<octet>): service contexts, profiles, components."""
        self.ulong(len(items))
        for id, data in items:
            self.ulong(id).octets(data)
        return self


class Decoder:
    """CDR input that refuses to read past the end and can insist that nothing is left."""

    def __init__(self, data, little, base=0):
        self.data, self.little, self.base, self.pos = memoryview(data), little, base, 0

    @classmethod
    def encapsulation(cls, data):
        d = cls(data, False)
        d.little = d.boolean()
        return d

    def octets(self): return self.raw(self.ulong())
    def pairs(self): return [(self.ulong(), self.octets()) for _ in range(self.ulong())]
    def left(self): return len(self.data) - self.pos

    def raw(self, n):
        if n > self.left():
            raise GiopError("%d octets wanted, %d left" % (n, self.left()))
        self.pos += n
        return bytes(self.data[self.pos - n:self.pos])

    def align(self, n):
        self.raw(-(self.base + self.pos) % n)
        return self

    def boolean(self):
        v = self.octet()
        if v > 1:
            raise GiopError("boolean of value %d" % v)
        return bool(v)

    def string(self):
        v = self.octets()
        if not v or v.find(b"\0") != len(v) - 1:
            raise GiopError("string is not terminated by its only NUL: %r" % v[:80])
        return v[:-1].decode("latin-1")

    def end(self):
        if self.left():
            raise GiopError("%d trailing octets" % self.left())


def _primitive(name, code):
    size = struct.calcsize("=" + code)

    def put(self, value):
        return self.align(size).raw(struct.pack(("<" if self.little else ">") + code, value))

    def get(self):
        return struct.unpack(("<" if self.little else ">") + code, self.align(size).raw(size))[0]
    setattr(Encoder, name, put)
    setattr(Decoder, name, get)


for _name, _code in dict(octet="B", short="h", ushort="H", long="i", ulong="I").items():
    _primitive(_name, _code)

Profile = namedtuple("Profile", "version host port key components")


class IOR(namedtuple("IOR", "type_id profiles")):
    """An object reference; `profiles` holds (tag, data) as they came."""

    @classmethod
    def parse(cls, text):
        if text[:4] != "IOR:":
            raise GiopError("not a stringified reference: %r" % text[:40])
        d = Decoder.encapsulation(bytes.fromhex(text[4:].strip()))
        ior = cls(d.string(), d.pairs())
        d.end()
        return ior

    def write(self, e):
        return e.string(self.type_id).pairs(self.profiles)

    def iiop_index(self):
        return [tag for tag, _ in self.profiles].index(0)

    def iiop(self):
        d = Decoder.encapsulation(self.profiles[self.iiop_index()][1])
        version = d.octet(), d.octet()
        if version not in VERSIONS:
            raise GiopError("IIOP profile of version %d.%d" % version)
        profile = Profile(version, d.string(), d.ushort(), d.octets(), d.pairs() if version >= (1, 1) else [])
        d.end()
        return profile


def message(version, little, type, body=b"", more=False):
    flags = (1 if little else 0) | (2 if more else 0)
    return b"GIOP" + bytes((*version, flags, type)) + Encoder(little).ulong(len(body)).buf + body


def _target(e, version, target, address):
    """What a request is for. `target` is an IOR, or a bare object key for KEY_ADDR; addresses are of 1.2."""
    if version >= (1, 2):
        e.short(address)
    if address == KEY_ADDR:
        return e.octets(target.iiop().key if isinstance(target, IOR) else target)
    if address == PROFILE_ADDR:
        return e.ulong(0).octets(target.profiles[target.iiop_index()][1])
    return target.write(e.ulong(target.iiop_index()))


def request(version, little, id, target, operation, args=None, contexts=(), response=True, address=KEY_ADDR):
    """A whole Request; `args` is a callable that writes the arguments to an Encoder."""
    e = Encoder(little, HEADER)
    if version < (1, 2):
        e.pairs(contexts).ulong(id).boolean(response)
        if version == (1, 1):
            e.raw(bytes(3))
        _target(e, version, target, KEY_ADDR).string(operation).octets(b"")
    else:
        e.ulong(id).octet(3 if response else 0).raw(bytes(3))
        _target(e, version, target, address).string(operation).pairs(contexts)
        if args:
            e.align(8)
    if args:
        args(e)
    return message(version, little, REQUEST, e.buf)


def locate_request(version, little, id, target, address=KEY_ADDR):
    e = Encoder(little, HEADER).ulong(id)
    _target(e, version, target, address)
    return message(version, little, LOCATE_REQUEST, e.buf)


def cancel_request(version, little, id):
    return message(version, little, CANCEL_REQUEST, Encoder(little).ulong(id).buf)


def split(msg, cuts):
    """Cut a message at the given offsets (counted from its start) into a list of fragments.

    In 1.2 every fragment but the last has to end on a multiple of 8 and repeats the request id. In 1.1 it does
    not: cuts have to keep 8-alignment (offset 4 modulo 8), unless nothing but octets follows them.
    """
    version, little, type, body = tuple(msg[4:6]), bool(msg[6] & 1), msg[7], msg[HEADER:]
    id = body[:4] if version >= (1, 2) else b""
    bounds = [c - HEADER for c in cuts] + [len(body)]
    out = [message(version, little, type, body[:bounds[0]], len(bounds) > 1)]
    for a, b in zip(bounds, bounds[1:]):
        out.append(message(version, little, FRAGMENT, id + body[a:b], len(out) + 1 < len(bounds)))
    return out


def fragments(msg, size):
    """Cut a message into fragments of about `size` octets each (a multiple of 8, at least 24)."""
    first = size if tuple(msg[4:6]) >= (1, 2) else size - 4
    return split(msg, list(range(first, len(msg), size - 16)))


Message = namedtuple("Message", "version little type more body")


class Reply:
    """A decoded Reply or LocateReply with a Decoder standing at the start of its body."""

    def __init__(self, m):
        d = self.body = Decoder(m.body, m.little, HEADER)
        if m.type == LOCATE_REPLY:
            self.id, self.status = d.ulong(), d.ulong()
            if self.status > OBJECT_HERE:
                raise GiopError("locate status %d" % self.status)
            d.end()
        elif m.version < (1, 2):
            self.contexts, self.id, self.status = d.pairs(), d.ulong(), d.ulong()
        else:
            self.id, self.status, self.contexts = d.ulong(), d.ulong(), d.pairs()
            if d.left() and not d.align(8).left():
                raise GiopError("padding in front of no body")

    def result(self, read=None):
        """The decoded result, or the exception that the reply stands for."""
        d = self.body
        if self.status == USER_EXCEPTION:
            raise UserException(d.string(), d)
        if self.status == SYSTEM_EXCEPTION:
            id, minor, completed = d.string(), d.ulong(), d.ulong()
            d.end()
            if completed > 2:
                raise GiopError("completion status %d" % completed)
            raise SystemException(id, minor, completed)
        if self.status != NO_EXCEPTION:
            raise GiopError("reply status %d" % self.status)
        value = read(d) if read else None
        d.end()
        return value


class Connection:
    """One client connection: numbers requests, and refuses any answer that none of them awaits."""

    def __init__(self, address, version=(1, 2), little=True, timeout=60):
        self.sock = socket.create_connection(address, timeout)
        self.sock.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self.send = self.sock.sendall
        self.version, self.little = version, little
        self.last_id, self.awaited, self.early, self.partial = 0, {}, {}, {}

    def __enter__(self): return self
    def __exit__(self, *_): self.close()
    def close(self): self.sock.close()

    def reset(self):
        """End the connection so that the peer sees a reset."""
        self.sock.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        self.close()

    def _receive(self, n, start=False):
        buf = bytearray(n)
        view, got = memoryview(buf), 0
        while got < n:
            k = self.sock.recv_into(view[got:])
            if not k:
                raise Closed() if start and not got else GiopError("connection ended within a message")
            got += k
        return buf

    def read_piece(self):
        """The next message as it stands on the wire, with every field of its header checked."""
        h = self._receive(HEADER, True)
        version, flags, type = tuple(h[4:6]), h[6], h[7]
        little, more = bool(flags & 1), bool(flags & 2)
        size = Decoder(h[8:], little).ulong()
        fragmented = {(1, 0): (), (1, 1): (REPLY, FRAGMENT), (1, 2): (REPLY, LOCATE_REPLY, FRAGMENT)}
        for broken, wrong in (("magic", h[:4] != b"GIOP"), ("version", version not in VERSIONS), ("flags", flags > 3),
                              ("type", type not in (REPLY, LOCATE_REPLY, CLOSE_CONNECTION, MESSAGE_ERROR, FRAGMENT)),
                              ("more fragments", more and type not in fragmented.get(version, ())),
                              ("fragment", type == FRAGMENT and version == (1, 0)),
                              ("size", size > LIMIT or type in (CLOSE_CONNECTION, MESSAGE_ERROR) and size),
                              ("size of a fragment", more and version == (1, 2) and (HEADER + size) % 8)):
            if wrong:
                raise GiopError("bad %s in header %s" % (broken, h.hex()))
        return Message(version, little, type, more, self._receive(size))

    def read_message(self):
        """The next whole message: a Reply, or another as a Message."""
        while True:
            m = self.read_piece()
            if m.type in (CLOSE_CONNECTION, MESSAGE_ERROR):
                return m
            body, id = m.body, None
            if m.version >= (1, 2):
                id = Decoder(body, m.little).ulong()
                body = body[4:] if m.type == FRAGMENT else body
            first = self.partial.get(id)
            if (m.type == FRAGMENT) != (first is not None):
                raise GiopError("fragment without a start, or message within a fragmented one")
            if first:
                if (m.version, m.little) != first[:2]:
                    raise GiopError("fragments differ in version or byte order")
                first.body.extend(body)
            if m.more:
                self.partial.setdefault(id, m)
                continue
            if first:
                m = self.partial.pop(id)
            r = Reply(m)
            if self.awaited.pop(r.id, None) != (m.version, m.type):
                raise GiopError("nothing awaits answer %d (type %d, version %s)" % (r.id, m.type, m.version))
            return r

    def prepare(self, target, operation, args=None, response=True, **kw):
        """Marshal a request and note down that its answer is awaited; returns its id and octets."""
        self.last_id += 1
        if response:
            self.awaited[self.last_id] = self.version, REPLY
        return self.last_id, request(self.version, self.little, self.last_id, target, operation, args,
                                     response=response, **kw)

    def reply(self, id):
        """The reply to `id`; those to others that come before it are kept."""
        while id not in self.early:
            r = self.read_message()
            if isinstance(r, Message):
                raise GiopError("message of type %d instead of a reply" % r.type)
            self.early[r.id] = r
        return self.early.pop(id)

    def call(self, target, operation, args=None, result=None, **kw):
        id, data = self.prepare(target, operation, args, **kw)
        self.send(data)
        return self.reply(id).result(result)

    def locate(self, target, address=KEY_ADDR, size=None):
        """Send a LocateRequest, cut into fragments of `size` if given; returns the LocateReply."""
        self.last_id += 1
        self.awaited[self.last_id] = self.version, LOCATE_REPLY
        data = locate_request(self.version, self.little, self.last_id, target, address)
        self.send(b"".join(fragments(data, size)) if size else data)
        return self.reply(self.last_id)
