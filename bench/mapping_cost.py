#!/usr/bin/env python3
"""What the C++ mapping of an interface costs to compile, and in code: `mapping_cost.py COMPILER POAIDL [OPERATIONS]`.

Compiles what the IDL compiler makes of an interface (header, stub and skeleton) at -O2, and prints seconds of processor time, octets and
generated lines an operation, and the seconds of a program that only includes the header. Ends with 1 when an operation takes more than
1 KB or 20 lines.
"""
import pathlib
import resource
import subprocess
import sys
import tempfile

TOP = pathlib.Path(__file__).resolve().parent.parent
INCLUDES = ["include", "orb/runtime/include", "orb/core/include", "orb/socket/include"]
LIMIT = 1024  # octets of code and data an operation
LINES = 20

# Result, parameters.
KINDS = [
    ("long", "in long a, in long b"), ("string", "in string s"), ("Sample::Octets", "in Sample::Octets d"),
    ("void", "in string why, in long code"), ("Sample::Entry", "in Sample::Entry e, inout octet o, out string t"),
    ("double", "in double x, in Sample::Item i"), ("Sample::Item", "in unsigned long u, in Sample::Colour c"),
]


def operation(i):
    """Number i; five numbers of further parameters make 35 different forms."""
    result, parameters = KINDS[i % len(KINDS)]
    more = "".join(f", in short z{n}" for n in range(i // len(KINDS) % 5))
    return f"    {result} operation_{i}({parameters}{more}) raises (Sample::Refused);\n"


def idl(operations):
    return f"""#include "everything.idl"
module Big {{
  interface I {{
{"".join(map(operation, range(operations)))}  }};
}};
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
        sample, file = TOP / "idl/sample", pathlib.Path(directory, "big.idl")
        file.write_text(idl(count))
        done = subprocess.run([poaidl, "-o", directory, "-I", sample, sample / "everything.idl", file],
                              stderr=subprocess.PIPE, text=True)  # it warns of names that differ in case only
        if done.returncode:
            sys.exit(done.stderr)
        made = sum(len(pathlib.Path(directory, name).read_text().splitlines()) for name in ("big.h", "big.cpp"))
        pathlib.Path(directory, "user.cpp").write_text('#include "big.h"\nint main() {}\n')
        seconds, octets = compiled(compiler, directory, "big")
        included, _ = compiled(compiler, directory, "user")
    print(f"{count} operations: {seconds:.2f} s, {octets / count:.0f} octets and {made / count:.1f} lines an operation; "
          f"header only: {included:.2f} s")
    return octets > LIMIT * count or made > LINES * count


if __name__ == "__main__":
    sys.exit(main())
