#!/usr/bin/env python3
"""What the C++ mapping of an interface costs to compile, and in code: `mapping_cost.py COMPILER POAIDL [OPERATIONS]`.

Writes an interface in the form that the IDL compiler generates, compiles it at -O2, and prints seconds of processor time and octets an
operation, and the seconds of a program that only includes the header. Ends with 1 when an operation takes more than 1 KB.
"""
import pathlib
import resource
import subprocess
import sys
import tempfile

TOP = pathlib.Path(__file__).resolve().parent.parent
INCLUDES = ["include", "orb/runtime/include", "orb/core/include", "orb/socket/include"]
LIMIT = 1024  # octets of code and data an operation

# Result, parameters, arguments, row.
KINDS = [
    ("CORBA::Long", "CORBA::Long a, CORBA::Long b", "a, b", "CORBA::Long", "idl::in<CORBA::Long>, idl::in<CORBA::Long>"),
    ("char*", "const char* s", "s", "idl::string<>", "idl::in<idl::string<>>"),
    ("Sample::Octets*", "const Sample::Octets& d", "d", "Sample::Octets", "idl::in<Sample::Octets>"),
    ("void", "const char* why, CORBA::Long code", "why, code", "void", "idl::in<idl::string<>>, idl::in<CORBA::Long>"),
    ("Sample::Entry*", "const Sample::Entry& e, CORBA::Octet& o, CORBA::String_out t", "e, o, t", "Sample::Entry",
     "idl::in<Sample::Entry>, idl::inout<CORBA::Octet>, idl::out<idl::string<>>"),
    ("CORBA::Double", "CORBA::Double x, Sample::Item* i", "x, i", "CORBA::Double",
     "idl::in<CORBA::Double>, idl::in<idl::ref<Sample::Item>>"),
    ("Sample::Item*", "CORBA::ULong u, Sample::Colour c", "u, c", "idl::ref<Sample::Item>",
     "idl::in<CORBA::ULong>, idl::in<Sample::Colour>"),
]


def operation(i):
    """Number i; five numbers of further parameters make 35 different forms."""
    result, parameters, arguments, of, row = KINDS[i % len(KINDS)]
    for more in range(i // len(KINDS) % 5):
        parameters += f", CORBA::Short z{more}"
        arguments += f", z{more}"
        row += ", idl::in<CORBA::Short>"
    return f"operation_{i}", result, parameters, arguments, of, row


def header(operations):
    client = "".join(f"  virtual {r} {n}({p});\n" for n, r, p, *_ in operations)
    skeleton = "".join(f"  virtual {r} {n}({p}) = 0;\n" for n, r, p, *_ in operations)
    return f"""#pragma once
#include "everything.h"
namespace Big {{
class I : public virtual CORBA::Object {{
 public:
  static constexpr const char *repository_id = "IDL:Big/I:1.0", *interface_name = "I";
  static I* _duplicate(I* reference);
{client}}};
}}
namespace POA_Big {{
class I : public virtual PortableServer::Skeleton {{
 public:
  static const CORBA::idl::InterfaceInfo _info;
  I();
  Big::I* _this(CORBA_ENV);
{skeleton} protected:
  const CORBA::idl::InterfaceInfo& _interface(void*& self) override;
}};
}}
"""


def source(operations):
    rows = "".join(f'constexpr idl::operation<Class, {of}({row})> op_{n}{{"{n}", &Class::{n}, idl::raises<Sample::Refused>}};\n'
                   for n, _, _, _, of, row in operations)
    stubs = "".join(f"{r} Big::I::{n}({p}) {{ return Big_I::op_{n}(this, {a}); }}\n" for n, r, p, a, *_ in operations)
    return f"""#include "big.h"
Big::I* Big::I::_duplicate(I* reference) {{ return CORBA::idl::duplicate(reference); }}
namespace {{
namespace Big_I {{
namespace idl = CORBA::idl;
using Class = POA_Big::I;
{rows}constexpr auto table = idl::operations({", ".join("op_" + n for n, *_ in operations)});
}}
}}
{stubs}constinit const CORBA::idl::InterfaceInfo POA_Big::I::_info =
    CORBA::idl::interface_info<POA_Big::I>(Big::I::repository_id, Big_I::table.table());
POA_Big::I::I() {{ _intf = Big::I::repository_id; }}
const CORBA::idl::InterfaceInfo& POA_Big::I::_interface(void*& self) {{ self = this; return _info; }}
Big::I* POA_Big::I::_this(CORBA::Environment& env) {{ return _this_as<Big::I>(env); }}
"""


def compiled(compiler, directory, name):
    """Seconds of processor time and octets of code and data."""
    command = [compiler, "-std=c++20", "-O2", "-c", f"{name}.cpp", "-o", f"{name}.o"] + [f"-I{TOP / i}" for i in INCLUDES]
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    subprocess.run(command, cwd=directory, check=True)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    sizes = subprocess.run(["size", f"{name}.o"], cwd=directory, check=True, capture_output=True, text=True).stdout.split()
    return after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime, int(sizes[9])


def main():
    compiler, poaidl, count = sys.argv[1], sys.argv[2], int(sys.argv[3]) if len(sys.argv) > 3 else 200
    with tempfile.TemporaryDirectory() as directory:
        subprocess.run([poaidl, "-o", directory, TOP / "idl/sample/everything.idl"], check=True)
        operations = [operation(i) for i in range(count)]
        pathlib.Path(directory, "big.h").write_text(header(operations))
        pathlib.Path(directory, "big.cpp").write_text(source(operations))
        pathlib.Path(directory, "user.cpp").write_text('#include "big.h"\nint main() {}\n')
        seconds, octets = compiled(compiler, directory, "big")
        included, _ = compiled(compiler, directory, "user")
    print(f"{count} operations: {seconds:.2f} s, {octets / count:.0f} octets an operation; header only: {included:.2f} s")
    return octets > LIMIT * count


if __name__ == "__main__":
    sys.exit(main())
