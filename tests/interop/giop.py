"""A small, strict GIOP/IIOP client library used to check the server from the outside.

It shares no code with the system under test: every octet sent is marshalled here, and every octet
received is accounted for. Anything out of the ordinary in a received message raises GiopError.
"""
import socket
import struct
import time
from collections import namedtuple

REQUEST, REPLY, CANCEL_REQUEST, LOCATE_REQUEST, LOCATE_REPLY, CLOSE_CONNECTION, MESSAGE_ERROR, FRAGMENT = range(8)
NO_EXCEPTION, USER_EXCEPTION, SYSTEM_EXCEPTION, LOCATION_FORWARD, LOCATION_FORWARD_PERM, NEEDS_ADDRESSING = range(6)
UNKNOWN_OBJECT, OBJECT_HERE, OBJECT_FORWARD = range(3)
KEY_ADDR, PROFILE_ADDR, REFERENCE_ADDR = range(3)
VERSIONS = ((1, 0), (1, 1), (1, 2))
HEADER = 12
LIMIT = 128 << 20
CHUNK = 1 << 20


class GiopError(Exception):
    """The peer broke the protocol."""


class Closed(Exception):
    """The peer ended the connection between two messages."""


class UserException(Exception):
    def __init__(self, id, body):
        super().__init__(id)
        self.id, self.body = id, body


class SystemException(Exception):
    def __init__(self, id, minor, completed):
        super().__init__("%s minor 0x%08X completed %d" % (id, minor, completed))
        self.id, self.minor, self.completed = id, minor, completed


class Forward(Exception):
    def __init__(self, ior, permanent):
        super().__init__("location forward")
        self.ior, self.permanent = ior, permanent


class Encoder:
    """CDR output. `base` is where the first octet stands relative to the origin of alignment."""

    def __init__(self, little, base=0):
        self.little, self.base, self.buf = little, base, bytearray()

    def align(self, n):
        self.buf += bytes(-(self.base + len(self.buf)) % n)
        return self

    def raw(self, data):
        self.buf += data
        return self

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

    def left(self):
        return len(self.data) - self.pos

    def raw(self, n):
        if n > self.left():
            raise GiopError("%d octets wanted, %d left" % (n, self.left()))
        self.pos += n
        return bytes(self.data[self.pos - n:self.pos])

    def align(self, n):
        self.raw(-(self.base + self.pos) % n)
        return self

    def octets(self): return self.raw(self.ulong())

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

    def pairs(self):
        count = self.ulong()
        if count > self.left() // 8:
            raise GiopError("a sequence of %d elements cannot fit" % count)
        return [(self.ulong(), self.octets()) for _ in range(count)]

    def end(self, what="message"):
        if self.left():
            raise GiopError("%d trailing octets in %s" % (self.left(), what))


def _primitive(name, code):
    size = struct.calcsize("=" + code)

    def put(self, value):
        return self.align(size).raw(struct.pack(("<" if self.little else ">") + code, value))

    def get(self):
        return struct.unpack(("<" if self.little else ">") + code, self.align(size).raw(size))[0]
    setattr(Encoder, name, put)
    setattr(Decoder, name, get)


for _name, _code in dict(octet="B", short="h", ushort="H", long="i", ulong="I", longlong="q", double="d").items():
    _primitive(_name, _code)

Profile = namedtuple("Profile", "version host port key components")


class IOR(namedtuple("IOR", "type_id profiles")):
    """An object reference; `profiles` holds (tag, data) as they came."""

    @classmethod
    def parse(cls, text):
        text = text.strip()
        if text[:4].upper() != "IOR:":
            raise GiopError("not a stringified reference: %r" % text[:40])
        try:
            data = bytes.fromhex(text[4:])
        except ValueError as e:
            raise GiopError("bad digits in a stringified reference: %s" % e)
        d = Decoder.encapsulation(data)
        ior = cls.read(d)
        d.end("reference")
        return ior

    @classmethod
    def read(cls, d):
        return cls(d.string(), d.pairs())

    def write(self, e):
        return e.string(self.type_id).pairs(self.profiles)

    def text(self, little=False):
        return "IOR:" + bytes(self.write(Encoder(little).boolean(little)).buf).hex()

    def iiop_index(self):
        for i, (tag, _) in enumerate(self.profiles):
            if tag == 0:
                return i
        raise GiopError("no IIOP profile")

    def iiop(self):
        d = Decoder.encapsulation(self.profiles[self.iiop_index()][1])
        version = d.octet(), d.octet()
        if version not in VERSIONS:
            raise GiopError("IIOP profile of version %d.%d" % version)
        host, port, key = d.string(), d.ushort(), d.octets()
        components = d.pairs() if version >= (1, 1) else []
        d.end("IIOP profile")
        return Profile(version, host, port, key, components)


def message(version, little, type, body=b"", more=False):
    flags = (1 if little else 0) | (2 if more else 0)
    return b"GIOP" + bytes((*version, flags, type)) + Encoder(little).ulong(len(body)).buf + body


def _target(e, target, address):
    """The 1.2 target address. `target` is an IOR, or a bare object key for KEY_ADDR."""
    e.short(address)
    if address == KEY_ADDR:
        return e.octets(_key(target))
    if address == PROFILE_ADDR:
        tag, data = target.profiles[target.iiop_index()]
        return e.ulong(tag).octets(data)
    return target.write(e.ulong(target.iiop_index()))


def _key(target):
    return target.iiop().key if isinstance(target, IOR) else target


def request(version, little, id, target, operation, args=None, contexts=(), response=True, address=KEY_ADDR):
    """A whole Request; `args` is a callable that writes the arguments to an Encoder."""
    e = Encoder(little, HEADER)
    if version < (1, 2):
        e.pairs(contexts).ulong(id).boolean(response)
        if version == (1, 1):
            e.raw(bytes(3))
        e.octets(_key(target)).string(operation).octets(b"")
    else:
        e.ulong(id).octet(3 if response else 0).raw(bytes(3))
        _target(e, target, address).string(operation).pairs(contexts)
        if args:
            e.align(8)
    if args:
        args(e)
    return message(version, little, REQUEST, e.buf)


def locate_request(version, little, id, target, address=KEY_ADDR):
    e = Encoder(little, HEADER).ulong(id)
    if version < (1, 2):
        e.octets(_key(target))
    else:
        _target(e, target, address)
    return message(version, little, LOCATE_REQUEST, e.buf)


def cancel_request(version, little, id):
    return message(version, little, CANCEL_REQUEST, Encoder(little).ulong(id).buf)


def split(msg, cuts):
    """Cut a message at the given offsets (counted from its start) into a list of fragments.

    In 1.2 every fragment but the last has to end on a multiple of 8 and repeats the request id, which
    keeps the whole aligned as if uncut. In 1.1 there is no fragment header: cuts have to keep 8-alignment
    too (offset 4 modulo 8), unless nothing but octets follows them.
    """
    version, little, type, body = tuple(msg[4:6]), bool(msg[6] & 1), msg[7], msg[HEADER:]
    if version < (1, 1):
        raise ValueError("1.0 has no fragments")
    id = body[:4] if version >= (1, 2) else b""
    bounds = [0] + [c - HEADER for c in cuts] + [len(body)]
    if sorted(bounds) != bounds:
        raise ValueError("cuts outside the message: %r" % (cuts,))
    out = []
    for i, (a, b) in enumerate(zip(bounds, bounds[1:])):
        last = i == len(bounds) - 2
        piece = message(version, little, FRAGMENT if i else type, (id if i else b"") + body[a:b], not last)
        if version >= (1, 2) and not last and len(piece) % 8:
            raise ValueError("a fragment of %d octets is not a multiple of 8" % len(piece))
        out.append(piece)
    return out


def fragments(msg, size):
    """Cut a message into fragments of about `size` octets each (a multiple of 8, at least 24)."""
    if size % 8 or size < 24:
        raise ValueError("bad fragment size %d" % size)
    # The first 1.1 cut stands at 4 modulo 8, so that the octets of both fragments align alike.
    first = size if tuple(msg[4:6]) >= (1, 2) else size - 4
    return split(msg, list(range(first, len(msg), size - 16)))


Message = namedtuple("Message", "version little type more body")


class Reply:
    """A decoded Reply header with a Decoder standing at the start of its body."""

    def __init__(self, m):
        d = self.body = Decoder(m.body, m.little, HEADER)
        self.version, self.little = m.version, m.little
        if m.version < (1, 2):
            self.contexts, self.id, self.status = d.pairs(), d.ulong(), d.ulong()
        else:
            self.id, self.status, self.contexts = d.ulong(), d.ulong(), d.pairs()
            if d.left():
                d.align(8)
                if not d.left():
                    raise GiopError("padding in front of no body")
        if self.status > (LOCATION_FORWARD if m.version < (1, 2) else NEEDS_ADDRESSING):
            raise GiopError("reply status %d" % self.status)

    def result(self, read=None):
        """The decoded result, or the exception that the reply stands for."""
        d = self.body
        if self.status == NO_EXCEPTION:
            value = read(d) if read else None
            d.end("reply")
            return value
        if self.status == USER_EXCEPTION:
            raise UserException(d.string(), d)
        if self.status == SYSTEM_EXCEPTION:
            e = SystemException(d.string(), d.ulong(), d.ulong())
            d.end("system exception")
            if e.completed > 2:
                raise GiopError("completion status %d" % e.completed)
            raise e
        if self.status in (LOCATION_FORWARD, LOCATION_FORWARD_PERM):
            ior = IOR.read(d)
            d.end("location forward")
            raise Forward(ior, self.status == LOCATION_FORWARD_PERM)
        raise GiopError("addressing disposition %d wanted" % d.short())


class LocateReply:
    def __init__(self, m):
        d = Decoder(m.body, m.little, HEADER)
        self.version, self.id, self.status, self.ior = m.version, d.ulong(), d.ulong(), None
        if self.status > (2 if m.version < (1, 2) else 5):
            raise GiopError("locate status %d" % self.status)
        if self.status in (OBJECT_FORWARD, 3):
            self.ior = IOR.read(d)
        elif self.status > 3:
            raise GiopError("locate status %d" % self.status)
        d.end("locate reply")


class Connection:
    """One client connection: numbers requests, and refuses any answer that none of them awaits."""

    def __init__(self, peer, version=(1, 2), little=True, timeout=10, patience=60):
        self.sock = peer if isinstance(peer, socket.socket) else socket.create_connection(peer, timeout)
        self.sock.settimeout(timeout)
        if self.sock.family != getattr(socket, "AF_UNIX", None):
            self.sock.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self.version, self.little, self.patience = version, little, patience
        self.last_id, self.awaited, self.early, self.partial, self.pieces = 0, {}, {}, {}, 0

    def __enter__(self): return self
    def __exit__(self, *_): self.close()
    def close(self): self.sock.close()

    def send(self, data):
        for i in range(0, len(data), CHUNK):
            self.sock.sendall(data[i:i + CHUNK])

    def _receive(self, n, deadline, start=False):
        buf = bytearray(n)
        view, got = memoryview(buf), 0
        while got < n:
            if time.monotonic() > deadline:
                raise GiopError("no whole message within %d s" % self.patience)
            k = self.sock.recv_into(view[got:], min(n - got, CHUNK))
            if not k:
                if start and not got:
                    raise Closed()
                raise GiopError("connection ended within a message")
            got += k
        return buf

    def read_piece(self, deadline=None):
        """The next message as it stands on the wire, with every field of its header checked."""
        deadline = deadline or time.monotonic() + self.patience
        h = self._receive(HEADER, deadline, True)
        version, flags, type = tuple(h[4:6]), h[6], h[7]
        if h[:4] != b"GIOP" or version not in VERSIONS:
            raise GiopError("bad header %s" % h.hex())
        if flags > (1 if version == (1, 0) else 3) or type > (MESSAGE_ERROR if version == (1, 0) else FRAGMENT):
            raise GiopError("bad flags or type in header %s" % h.hex())
        little, more = bool(flags & 1), bool(flags & 2)
        size = Decoder(h[8:], little).ulong()
        if type not in (REPLY, LOCATE_REPLY, CLOSE_CONNECTION, MESSAGE_ERROR, FRAGMENT):
            raise GiopError("message of type %d sent to a client" % type)
        if size > LIMIT or type in (CLOSE_CONNECTION, MESSAGE_ERROR) and size:
            raise GiopError("size %d in a message of type %d" % (size, type))
        if more and type not in ((REPLY, FRAGMENT) if version < (1, 2) else (REPLY, LOCATE_REPLY, FRAGMENT)):
            raise GiopError("message of type %d claims fragments" % type)
        if more and version >= (1, 2) and (HEADER + size) % 8:
            raise GiopError("fragment of %d octets is not a multiple of 8" % (HEADER + size))
        return Message(version, little, type, more, self._receive(size, deadline))

    def read_message(self):
        """The next whole message: Reply and LocateReply decoded, others as a Message."""
        deadline = time.monotonic() + self.patience
        while True:
            m = self.read_piece(deadline)
            if m.type in (CLOSE_CONNECTION, MESSAGE_ERROR):
                return m
            body, id = m.body, None
            if m.version >= (1, 2):
                id = Decoder(body, m.little).ulong()
                body = body[4:] if m.type == FRAGMENT else body
            first = self.partial.get(id)
            if (m.type == FRAGMENT) != (first is not None):
                raise GiopError("fragment without a start" if first is None else "message within a fragmented one")
            if first:
                if (m.version, m.little) != first[:2]:
                    raise GiopError("fragments differ in version or byte order")
                first.body.extend(body)
                if len(first.body) > LIMIT:
                    raise GiopError("fragments exceed the limit")
            self.pieces += 1
            if m.more:
                self.partial.setdefault(id, m)
                continue
            if first:
                m = self.partial.pop(id)
            r = (Reply if m.type == REPLY else LocateReply)(m)
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
