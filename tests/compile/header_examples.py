"""Makes a program of the examples in public headers: python3 header_examples.py PROGRAM HEADER...

An example is code that stands three blanks behind the slashes of a comment. It is compiled as it stands, in a function of its
own, beside what examples.h declares; `...` stands for what it leaves out. One that defines a function or a namespace stands in a
namespace, and one that overrides a function without a class around it is part of a servant.
"""
import pathlib
import re
import sys

LINE = re.compile(r" */{2,3} {3}(.*)")
EMPTY = re.compile(r" */{2,3}$")
FUNCTION = re.compile(r"\w[\w:*]* \w+\([^;]*\) {")


def examples(header):
    """The first line's number and the text of each."""
    lines = pathlib.Path(header).read_text().split("\n") + [""]
    code = [LINE.fullmatch(line) for line in lines]
    start = None
    for i, found in enumerate(code):
        if found and start is None:
            start = i
        elif start is not None and not found and not (EMPTY.fullmatch(lines[i]) and code[i + 1]):
            text = "\n".join(c[1] if c else "" for c in code[start:i])
            if re.search("[;{]", text):  # else it is a table
                yield start + 1, text
            start = None


def around(text):
    if re.search(r"^namespace ", text, re.M) or FUNCTION.match(text) and "override" not in text:
        return "namespace example_%d {", "}"
    if re.search(r"\boverride\b", text) and not re.search(r"\b(class|struct) \w+ :", text):
        return "struct Example_%d : POA_Bank::Session {", "};"
    return "void example_%d() {", "}"


def main():
    program, headers = pathlib.Path(sys.argv[1]), sys.argv[2:]
    made = ['#include "examples.h"\n']
    for header in headers:
        found = list(examples(header))
        if not found:
            sys.exit("%s: no example" % header)
        for line, text in found:
            begin, end = around(text)
            code = re.sub(r"(?<!\.)\.\.\.(?=\s|$)", "", text)
            made.append('%s\n#line %d "%s"\n%s\n%s\n' % (begin % len(made), line, header, code, end))
    program.write_text("\n".join(made))


main()
