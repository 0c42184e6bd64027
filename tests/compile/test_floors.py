"""Folders of the adapter, the runtime and the ORB core include those below them only."""
import pathlib
import re
import sys

ADAPTER = ["base", "objects", "records", "dispatch", "operations"]
RUNTIME = ["base", "typecodes", "orb", "calls"]
CORE = ["base", "wire", "references", "connections", "requests", "serving", "calls"]


def downward(floors):
    return {floor: set(floors[: i + 1]) for i, floor in enumerate(floors)}


def wrong_includes(folder, allowed):
    files = [file for floor in allowed for file in (folder / floor).iterdir() if file.suffix in (".h", ".cpp")]
    assert len(files) > 40, f"the sources of {folder} are somewhere else"
    for file in files:
        for name in re.findall(r'#include "([^"]+)"', file.read_text()):
            floor = name.split("/")[0]
            if floor in allowed and floor not in allowed[file.parent.name]:
                yield f"{file} includes {name}"


root = pathlib.Path(sys.argv[1])
wrong = [
    *wrong_includes(root / "Src", downward(ADAPTER) | {"mapping": {"base", "mapping"}}),
    *wrong_includes(root / "orb/runtime", downward(RUNTIME)),
    *wrong_includes(root / "orb/core", downward(CORE)),
]
sys.exit("\n".join(wrong) or 0)
