#!/usr/bin/env python3
"""The include graph of src/ is part of the design: folders include only to their left, files never in a circle.

Usage: include_graph.py SRC_DIR       checks a tree, prints each fault, exits 1 if there is one
       include_graph.py --self-test   shows that each kind of fault is found
"""

import pathlib
import re
import sys
import tempfile

# What a folder may include, itself always allowed.
ALLOWED = {
    "foundation": set(),
    "disk": {"foundation"},
    "volume": {"foundation", "disk"},
    "namespace": {"foundation", "disk", "volume"},
    "report": {"foundation", "disk", "volume"},
    "frontend": {"foundation", "disk", "volume", "namespace", "report"},
}
INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"', re.MULTILINE)


def read_graph(src):
    """Maps each file (path relative to src) to the project files that it includes, as written."""
    files = sorted(p for p in src.rglob("*") if p.suffix in (".h", ".cpp"))
    return {p.relative_to(src).as_posix(): INCLUDE.findall(p.read_text(encoding="utf-8")) for p in files}


def folder_faults(graph):
    faults = []
    for name, includes in graph.items():
        folder = name.split("/")[0]
        if folder not in ALLOWED:
            faults.append(f"{name}: folder '{folder}' is not part of the house")
            continue
        for include in includes:
            if include not in graph:
                faults.append(f"{name}: includes \"{include}\", which is no file of src/")
                continue
            target = include.split("/")[0]
            if target != folder and target not in ALLOWED[folder]:
                faults.append(f"{name}: '{folder}' may not include '{include}'")
    return faults


def cycle_faults(graph):
    """A header and its source are one file here, so a circle through a source file counts too."""
    rooms = {}
    for name, includes in graph.items():
        room = name.rsplit(".", 1)[0]
        targets = rooms.setdefault(room, set())
        targets.update(i.rsplit(".", 1)[0] for i in includes if i.rsplit(".", 1)[0] != room)
    state, faults = {}, []

    def visit(room, trail):
        if state.get(room) == "done" or room not in rooms:
            return
        if state.get(room) == "open":
            faults.append("circle: " + " -> ".join(trail[trail.index(room):] + [room]))
            return
        state[room] = "open"
        for target in sorted(rooms[room]):
            visit(target, trail + [room])
        state[room] = "done"

    for room in sorted(rooms):
        visit(room, [])
    return faults


def check(src):
    graph = read_graph(src)
    if not graph:
        return [f"{src}: no source files"]
    return folder_faults(graph) + cycle_faults(graph)


def self_test():
    cases = [
        ("left is fine", {"foundation/a.h": "", "disk/b.h": '#include "foundation/a.h"\n'}, 0),
        ("right is refused", {"foundation/a.h": '#include "disk/b.h"\n', "disk/b.h": ""}, 1),
        ("neighbours are refused", {"report/a.h": '#include "namespace/b.h"\n', "namespace/b.h": ""}, 1),
        ("a circle in one folder", {"disk/a.h": '#include "disk/b.h"\n', "disk/b.h": '#include "disk/a.h"\n'}, 1),
        ("a circle through a source",
         {"disk/a.h": "", "disk/a.cpp": '#include "disk/b.h"\n', "disk/b.h": "",
          "disk/b.cpp": '#include "disk/a.h"\n'}, 1),
        ("an unknown file", {"disk/a.h": '#include "disk/nowhere.h"\n'}, 1),
        ("an unknown folder", {"tools/a.h": ""}, 1),
        ("no files", {}, 1),
    ]
    failed = 0
    for title, files, expected in cases:
        with tempfile.TemporaryDirectory() as scratch:
            src = pathlib.Path(scratch)
            for name, text in files.items():
                (src / name).parent.mkdir(parents=True, exist_ok=True)
                (src / name).write_text(text, encoding="utf-8")
            found = check(src)
            if bool(found) != bool(expected):
                failed += 1
                print(f"self-test '{title}': expected {'a fault' if expected else 'none'}, found {found}")
    return failed


def main():
    if sys.argv[1:] == ["--self-test"]:
        return 1 if self_test() else 0
    if len(sys.argv) != 2:
        print(__doc__)
        return 2
    faults = check(pathlib.Path(sys.argv[1]))
    for fault in faults:
        print(fault)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
