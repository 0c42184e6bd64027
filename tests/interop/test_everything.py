"""Calls the server of everything.idl over bare sockets: each type in each direction, in both byte orders.

EVERYTHING_SERVER names the program. Every operation returns `a`, gives `a` back in `b` and what `b` was in `c`.
"""
import os
import shlex
import struct
import subprocess
import tempfile
import time
import unittest
from collections import namedtuple

import giop
from giop import Decoder, Encoder, IOR

for name, code in dict(longlong="q", ulonglong="Q", float="f", double="d").items():
    giop._primitive(name, code)

BAD_PARAM, MARSHAL = "IDL:omg.org/CORBA/BAD_PARAM:1.0", "IDL:omg.org/CORBA/MARSHAL:1.0"
LIMIT = 60
# Service context 1: texts in UTF-8, wide ones in UTF-16.
CODE_SETS = [(1, bytes(Encoder(False).boolean(False).ulong(0x05010001).ulong(0x00010109).buf))]

# --- types: how a value is written and read ---------------------------------------------------------------------------

Type = namedtuple("Type", "put get")


def basic(name): return Type(getattr(Encoder, name), getattr(Decoder, name))


def terminated(octets):
    if octets[-1:] != b"\0":
        raise giop.GiopError("text without its NUL")
    return octets[:-1]


def units(encoded):
    if encoded[:2] == b"\xff\xfe":
        return encoded[2:].decode("utf-16-le")
    return (encoded[2:] if encoded[:2] == b"\xfe\xff" else encoded).decode("utf-16-be")


def quad(e, v):
    """A long double as IEEE 754 has it in 128 bits, from a double or, for what no double can hold, from these bits."""
    if isinstance(v, int):
        return e.align(8).raw(v.to_bytes(16, "little" if e.little else "big"))
    bits = struct.unpack(">Q", struct.pack(">d", v))[0]
    sign, exponent, fraction = bits >> 63, bits >> 52 & 0x7ff, bits & (1 << 52) - 1
    whole = sign << 127 | (exponent and exponent - 1023 + 16383) << 112 | fraction << 60
    e.align(8).raw(whole.to_bytes(16, "little" if e.little else "big"))


def from_quad(d):
    whole = int.from_bytes(d.align(8).raw(16), "little" if d.little else "big")
    exponent = whole >> 112 & 0x7fff
    if whole & (1 << 60) - 1 or exponent and not 0 < exponent - 16383 + 1023 < 2047:
        return whole
    bits = whole >> 127 << 63 | (exponent and exponent - 16383 + 1023) << 52 | whole >> 60 & (1 << 52) - 1
    return struct.unpack(">d", struct.pack(">Q", bits))[0]


def packed(e, v):
    """fixed<9, 2>, given as cents."""
    e.raw(bytes.fromhex("%09d%s" % (abs(v), "d" if v < 0 else "c")))


def from_packed(d):
    digits = d.raw(5).hex()
    return int(digits[:9]) * (-1 if digits[9] == "d" else 1)


def sequence(of):
    def put(e, values):
        e.ulong(len(values))
        for v in values:
            of.put(e, v)
    return Type(put, lambda d: [of.get(d) for _ in range(d.ulong())])


def array(of, n):
    return Type(lambda e, values: [of.put(e, v) for v in values], lambda d: [of.get(d) for _ in range(n)])


def record(*parts):
    return Type(lambda e, values: [part.put(e, v) for part, v in zip(parts, values, strict=True)],
                lambda d: [part.get(d) for part in parts])


def union(discriminator, cases, default=None):
    """A value is (label,) or (label, member)."""
    def put(e, v):
        discriminator.put(e, v[0])
        if len(v) > 1:
            cases.get(v[0], default).put(e, v[1])

    def get(d):
        label = discriminator.get(d)
        member = cases.get(label, default)
        return (label, member.get(d)) if member else (label,)
    return Type(put, get)


def later(name):
    return Type(lambda e, v: globals()[name].put(e, v), lambda d: globals()[name].get(d))


octet, boolean, long, double = basic("octet"), basic("boolean"), basic("long"), basic("double")
text = Type(lambda e, v: e.octets(v.encode() + b"\0"), lambda d: terminated(d.octets()).decode())
wchar = Type(lambda e, v: e.octet(2).raw(v.encode("utf-16-be")), lambda d: units(d.raw(d.octet())))
wide = Type(lambda e, v: e.octets(v.encode("utf-16-be")), lambda d: units(d.octets()))
longdouble, money = Type(quad, from_quad), Type(packed, from_packed)
reference = Type(lambda e, v: v.write(e), lambda d: IOR(d.string(), d.pairs()))

# --- TypeCodes, as tuples: (kind,), (kind, what stands behind it) or (kind, the contents of its encapsulation). One that it
# stands in itself is (BACK, how many TypeCodes further out).

SHORT, ENUM, STRING, SEQUENCE, ARRAY, ALIAS, STRUCT, WSTRING, FIXED = 2, 17, 18, 19, 20, 21, 15, 27, 28
OBJREF, UNION, EXCEPT, BACK = 14, 16, 22, 0xFFFFFFFF
typecode = later("typecode_")


def members_of(discriminator):
    return sequence(record(type_of(discriminator), text, typecode))


def put_union(e, v):
    for part, value in zip((text, text, typecode, long, members_of(v[2])), v, strict=True):
        part.put(e, value)


def get_union(d):
    contents = [part.get(d) for part in (text, text, typecode, long)]
    return [*contents, members_of(contents[2]).get(d)]


structure = record(text, text, sequence(record(text, typecode)))
contents_of = {STRUCT: structure, EXCEPT: structure, UNION: Type(put_union, get_union), OBJREF: record(text, text),
               ENUM: record(text, text, sequence(text)), ALIAS: record(text, text, typecode),
               SEQUENCE: record(typecode, basic("ulong")), ARRAY: record(typecode, basic("ulong"))}
plain = {STRING: [basic("ulong")], WSTRING: [basic("ulong")], FIXED: [basic("ushort"), basic("short")]}


def place(stream):
    """Where a stream stands in the whole message, and where the TypeCodes around it began."""
    at = stream.pos if isinstance(stream, Decoder) else len(stream.buf)
    return getattr(stream, "origin", 0) + at, getattr(stream, "around", ())


def within(stream, outer, began, skipped):
    stream.origin, stream.around = place(outer)[0] + skipped, (*place(outer)[1], began)
    return stream


def put_typecode(e, v):
    began, around = place(e.align(4))
    e.ulong(v[0])
    if v[0] == BACK:
        return e.long(around[-v[1]] - place(e)[0])
    if v[0] in contents_of:
        inner = within(Encoder(e.little), e, began, 4).boolean(e.little)
        contents_of[v[0]].put(inner, v[1])
        return e.octets(inner.buf)
    for part, value in zip(plain.get(v[0], []), v[1:], strict=True):
        part.put(e, value)


def get_typecode(d):
    began, around = place(d.align(4))
    kind = d.ulong()
    if kind == BACK:
        at = place(d)[0]
        return kind, len(around) - around.index(at + d.long())
    if kind in contents_of:
        data = d.octets()
        inner = within(Decoder(data, bool(data[0])), d, began, -len(data))
        inner.boolean()
        contents = contents_of[kind].get(inner)
        inner.end()
        return kind, contents
    return kind, *(part.get(d) for part in plain.get(kind, []))


typecode_ = Type(put_typecode, get_typecode)


def type_of(code, around=()):
    """How values of a TypeCode travel that stands in those."""
    kind, contents = code[0], code[1] if len(code) > 1 else None
    if kind == BACK:
        found = around[-contents], around[:-contents]
        return Type(lambda e, v: type_of(*found).put(e, v), lambda d: type_of(*found).get(d))
    if kind in SIMPLE:
        return SIMPLE[kind]

    def inner(one): return type_of(one, (*around, code))
    if kind in (STRUCT, EXCEPT):
        return record(*(inner(member[1]) for member in contents[2]))
    if kind == UNION:
        cases = [(label, inner(one)) for label, _, one in contents[4]]
        default = cases.pop(contents[3])[1] if contents[3] >= 0 else None
        return union(inner(contents[2]), dict(cases), default)
    of = inner(contents[2 if kind == ALIAS else 0])
    return {ALIAS: of, SEQUENCE: sequence(of), ARRAY: array(of, contents[1])}[kind]


def put_any(e, v):
    put_typecode(e, v[0])
    type_of(v[0]).put(e, v[1])


def get_any(d):
    code = get_typecode(d)
    return code, type_of(code).get(d)


any_ = Type(put_any, get_any)
SIMPLE = {kind: basic(name) for kind, name in {
    2: "short", 3: "long", 4: "ushort", 5: "ulong", 6: "float", 7: "double", 8: "boolean", 9: "octet", 10: "octet",
    ENUM: "ulong", 23: "longlong", 24: "ulonglong"}.items()}
nothing = Type(lambda e, v: None, lambda d: None)
SIMPLE |= {0: nothing, 11: any_, 12: typecode, OBJREF: reference, STRING: text, WSTRING: wide, FIXED: money, 25: longdouble,
           26: wchar}

# --- what the interface has -------------------------------------------------------------------------------------------

small = record(octet, double, boolean, basic("ulong"))
row, names = array(long, 3), array(text, 2)
mixed = record(text, wide, small, row, array(wchar, 2), text, money, longdouble, record(basic("ulonglong")))
sized = union(basic("ulong"), {0: octet, 1: row}, small)
choice = union(basic("short"), {1: text, 2: text, -3: mixed, 4: names, 5: array(double, 6), 6: any_}, wchar)
tree = record(text, sequence(later("tree")))
term = union(boolean, {True: long, False: sequence(later("term"))})

LEVEL_CODE = (ENUM, ["IDL:Every/Level:1.0", "Level", ["low", "middle", "high"]])
SMALL_CODE = (STRUCT, ["IDL:Every/Small:1.0", "Small",
                       [["o", (10,)], ["d", (7,)], ["b", (8,)], ["l", LEVEL_CODE]]])
UNKNOWN_CODE = (ALIAS, ["IDL:Elsewhere/List:1.0", "List", (SEQUENCE, [(STRUCT, [
    "IDL:Elsewhere/Thing:1.0", "Thing", [["name", (STRING, 0)], ["grid", (ARRAY, [(2,), 3])]]]), 0])])
SMALL = [200, -0.5, True, 2]
MIXED = ["Gr\xfc\xdfe \u20ac \U0001F600", "\u03c0 \U0001F600", SMALL, [1, -2, 3], ["x", "\u20ac"], "12345678", -123456789,
         -2.5, [(1 << 64) - 1]]
PLAIN = ["", "", [0, 0.0, False, 0], [0, 0, 0], ["a", "b"], "", 0, 0.0, [0]]
TREE = ["root", [["left", []], ["right", [["leaf", []]]]]]
ANYS = [((0,), None), ((SHORT,), -7), ((STRING, 0), "in an any"), ((SEQUENCE, [(STRING, 0), 0]), ["x", "", "yz"]),
        ((WSTRING, 0), "\u20ac"), ((FIXED, 9, 2), -5), (LEVEL_CODE, 2), (SMALL_CODE, SMALL),
        (UNKNOWN_CODE, [["one", [1, 2, 3]], ["two", [-4, 5, 6]]])]

TYPES = {
    "booleans": (boolean, [False, True]), "bytes": (octet, [0, 200, 255]), "chars": (octet, [0, 65, 127]),
    "wchars": (wchar, ["A", "\xe9", "\u20ac"]),
    "shorts": (basic("short"), [0, -1, -1 << 15]), "ushorts": (basic("ushort"), [0, 65535]),
    "longs": (long, [0, -1, -1 << 31]), "ulongs": (basic("ulong"), [0, (1 << 32) - 1]),
    "longlongs": (basic("longlong"), [0, -1, -1 << 63]), "ulonglongs": (basic("ulonglong"), [0, (1 << 64) - 1]),
    "floats": (basic("float"), [0.0, -0.5]), "numbers": (double, [1e300, -0.1]),
    "longdoubles": (longdouble, [0.0, 1.0, -1e300, 0.1]), "enums": (basic("ulong"), [0, 1, 2]),
    "strings": (text, ["", "plain", "Gr\xfc\xdfe \u20ac \U0001F600", "x" * 100000]), "bounded": (text, ["", "12345678"]),
    "wstrings": (wide, ["", "plain", "\u20ac \U0001F600"]), "wbounded": (wide, ["", "\U0001F600bcde"]),
    "fixeds": (money, [0, 5, -123456789, 999999999]), "smalls": (small, [SMALL, PLAIN[2]]),
    "sizeds": (sized, [(0, 200), (1, [1, 2, 3]), (2, SMALL)]),
    "switcheds": (union(boolean, {True: long}), [(True, -5), (False,)]),
    "structs": (mixed, [MIXED, PLAIN]),
    "unions": (choice, [(1, "one"), (2, "two"), (-3, MIXED), (4, ["x", ""]), (5, [1.0, 2.0, 3.0, 4.0, 5.0, 6.0]),
                        (6, ANYS[2]), (77, "\u03c0")]),
    "lettered": (union(octet, {97: text, 255: sequence(octet)}), [(97, "a"), (122,)]),
    "widely": (union(basic("ulonglong"), {(1 << 64) - 1: basic("float")}, text), [((1 << 64) - 1, 0.5), (3, "mark")]),
    "trees": (tree, [TREE, ["", []]]), "terms": (term, [(True, 1), (False, [(True, -2), (False, [])])]),
    "anys": (any_, ANYS),
    "octetlists": (sequence(octet), [[], [200] * 3]), "booleanlists": (sequence(boolean), [[True, False], []]),
    "shortlists": (sequence(basic("short")), [[1, -2, 3, 4], []]), "doublelists": (sequence(double), [[], [0.5] * 9]),
    "preciselists": (sequence(longdouble), [[0.5, -1.5], []]), "signlists": (sequence(wchar), [["x", "\u20ac"], []]),
    "moneylists": (sequence(money), [[1, -2, 3], []]), "levellists": (sequence(basic("ulong")), [[2, 1, 0], []]),
    "textlists": (sequence(text), [["", "two"], []]), "widelists": (sequence(wide), [["\u20ac", ""], []]),
    "codelists": (sequence(text), [["1", "12345678"], []]), "mixedlists": (sequence(mixed), [[MIXED, PLAIN] * 20, []]),
    "choicelists": (sequence(choice), [[(4, ["a", "b"]), (9, "x")], []]),
    "rowlists": (sequence(row), [[[1, 2, 3], [4, 5, 6]], []]), "nameslists": (sequence(names), [[["a", ""]], []]),
    "nestedlists": (sequence(sequence(long)), [[[], [1, 2], [3]], []]), "anylists": (sequence(any_), [ANYS, []]),
    "typecodelists": (sequence(typecode), [[SMALL_CODE, (SHORT,)], []]),
    "rows": (row, [[1, 2, 3], [-1, 0, 1 << 30]]), "grids": (array(double, 6), [[0.5] * 6, [1.0, 2.0, 3.0, 4.0, 5.0, 6.0]]),
    "smallarrays": (array(small, 2), [[SMALL, PLAIN[2]]]), "names": (names, [["", "b"], ["long" * 50, "c"]]),
    "widenames": (array(wide, 2), [["\u20ac", ""]]),
    "typecodes": (typecode, [(SHORT,), (WSTRING, 7), (FIXED, 5, 2), SMALL_CODE, UNKNOWN_CODE]),
}
ALL = record(*map(basic, ("boolean", "octet", "octet")), wchar, *map(basic, (
    "short", "ushort", "long", "ulong", "longlong", "ulonglong", "float", "double")), longdouble, basic("ulong"), money, text,
    wide, text, wide, small, mixed, sized, choice, tree, term, row, array(double, 6), names, array(small, 2), sequence(octet),
    sequence(basic("short")), sequence(text), sequence(mixed), sequence(row), sequence(sequence(long)), any_, reference,
    typecode)


def all_values(ref):
    return [True, 200, 65, "\u20ac", -2, 65535, -3, 1 << 31, -1 << 63, 1 << 63, 0.5, 0.1, -1.5, 1, -5, "text", "wide", "code",
            "abcde", SMALL, MIXED, (1, [1, 2, 3]), (4, ["x", "y"]), TREE, (False, [(True, 1)]), [1, 2, 3], [0.5] * 6,
            ["n", ""], [SMALL, SMALL], [200, 0], [1, -1], ["a", ""], [MIXED, PLAIN], [[1, 2, 3]], [[], [1]], ANYS[-1], ref,
            SMALL_CODE]


class EverythingTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.dir = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.dir.cleanup)
        file = os.path.join(cls.dir.name, "reference")
        cls.process = subprocess.Popen([*shlex.split(os.environ["EVERYTHING_SERVER"]), file])
        cls.addClassCleanup(cls.end)
        end = time.monotonic() + LIMIT
        while not os.path.exists(file):
            if cls.process.poll() is not None or time.monotonic() > end:
                raise AssertionError("the server was not ready")
            time.sleep(0.01)
        with open(file) as f:
            cls.ref = IOR.parse(f.read())
        profile = cls.ref.iiop()
        cls.address = profile.host, profile.port

    @classmethod
    def end(cls):
        cls.process.kill()
        cls.process.wait()

    def peers(self):
        for little in (False, True):
            with self.subTest(little=little), giop.Connection(self.address, (1, 2), little) as c:
                yield c

    def echo(self, c, operation, type, a, b):
        def arguments(e):
            type.put(e, a)
            type.put(e, b)
        return c.call(self.ref, "echo_" + operation, arguments, lambda d: tuple(type.get(d) for _ in range(3)),
                      contexts=CODE_SETS)

    def test_every_type_goes_every_way(self):
        for c in self.peers():
            for operation, (type, values) in TYPES.items():
                for a, b in zip(values, values[1:] + values[:1]):
                    with self.subTest(operation=operation, a=str(a)[:40]):
                        self.assertEqual(self.echo(c, operation, type, a, b), (a, a, b))

    def test_references_and_nil(self):
        nil = IOR("", [])
        for c in self.peers():
            for operation in ("things", "objects"):
                result, b, out = self.echo(c, operation, reference, nil, self.ref)
                self.assertEqual((result, b), (nil, nil))
                self.assertEqual(out.iiop().key, self.ref.iiop().key)
            found = self.echo(c, "objectlists", sequence(reference), [nil, self.ref], [])
            self.assertEqual(found[0][0], nil)
            self.assertEqual(found[0][1].iiop().key, self.ref.iiop().key)

    def test_everything_as_an_attribute_and_in_an_exception(self):
        nil = IOR("", [])
        for c in self.peers():
            values = all_values(nil)
            c.call(self.ref, "_set_everything", lambda e: ALL.put(e, values), contexts=CODE_SETS)
            self.assertEqual(c.call(self.ref, "_get_everything", None, ALL.get, contexts=CODE_SETS), values)
            with self.assertRaises(giop.UserException) as caught:
                c.call(self.ref, "fail", contexts=CODE_SETS)
            id, body = caught.exception.args
            self.assertEqual((id, ALL.get(body)), ("IDL:Every/Failed:1.0", values))
            body.end()

    def test_values_out_of_their_type_are_refused(self):
        def ulongs(e, *values):
            for v in values:
                e.ulong(v)
        wrong = [("booleans", lambda e: e.raw(b"\x02\x00")), ("booleans", lambda e: e.raw(b"\x00\xff")),
                 ("bytes", lambda e: e.raw(b"\x01")), ("enums", lambda e: ulongs(e, 0, 3)),
                 ("strings", lambda e: ulongs(e, 0, 0)), ("mixedlists", lambda e: ulongs(e, 1 << 30, 0)),
                 ("shortlists", lambda e: ulongs(e, 5, 0, 0, 0, 0)), ("bounded", lambda e: e.octets(b"123456789\0")),
                 ("fixeds", lambda e: e.raw(b"\x12\x34\xa6\x78\x9c")), ("fixeds", lambda e: e.raw(b"\x12\x34\x56\x78\x91")),
                 ("sizeds", lambda e: e.ulong(3)), ("typecodes", lambda e: e.ulong(99)),
                 ("terms", lambda e: e.boolean(False).ulong(3))]
        for c in self.peers():
            for operation, arguments in wrong:
                with self.subTest(operation=operation):
                    with self.assertRaises(giop.SystemException) as caught:
                        c.call(self.ref, "echo_" + operation, arguments, contexts=CODE_SETS)
                    self.assertIn(caught.exception.args[0], (MARSHAL, BAD_PARAM,
                                                             "IDL:omg.org/CORBA/DATA_CONVERSION:1.0"))
                    self.assertEqual(caught.exception.args[2], 1)
            self.assertEqual(self.echo(c, "bytes", octet, 9, 8), (9, 9, 8))


if __name__ == "__main__":
    unittest.main()
