"""Folders of Src include those below them only."""
import pathlib
import re
import sys

FLOORS = ["base", "objects", "records", "dispatch", "operations"]
ALLOWED = {floor: set(FLOORS[: i + 1]) for i, floor in enumerate(FLOORS)}
ALLOWED["mapping"] = {"base", "mapping"}

root = pathlib.Path(sys.argv[1])
files = [file for file in root.rglob("*") if file.suffix in (".h", ".cpp")]
wrong = [
    f"{file.relative_to(root)} includes {name}"
    for file in files
    for name in re.findall(r'#include "([^"]+)"', file.read_text())
    if name.split("/")[0] in ALLOWED
    and name.split("/")[0] not in ALLOWED.get(file.relative_to(root).parts[0], set())
]
assert len(files) > 50, "the sources are somewhere else"
sys.exit("\n".join(wrong) or 0)
