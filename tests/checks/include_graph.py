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
    "exact": {"foundation", "disk"},
    "frontend": {"foundation", "disk", "volume", "namespace", "report"},
}
# The strict reader shares the layouts of the volume's structures with the other one, and none of its walks.
LAYOUTS = {f"volume/{name}.h" for name in ("attribute_layout", "attribute_values", "boot_sector", "index_layout",
                                           "lznt1", "record_layout", "well_known")}
# The exact mode's side of the command line; frontend/run.cpp is the one place that leads to it.
EXACT_FRONT = "frontend/exact/"
EXACT_DOOR = "frontend/run.cpp"
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
            if target == "exact" and name.startswith(EXACT_FRONT):
                continue
            if folder == "exact" and include in LAYOUTS:
                continue
            if include.startswith(EXACT_FRONT) and not name.startswith(EXACT_FRONT) and name != EXACT_DOOR:
                faults.append(f"{name}: only {EXACT_DOOR} leads to '{include}'")
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
        ("the strict reader takes a layout", {"exact/a.h": '#include "volume/record_layout.h"\n',
                                              "volume/record_layout.h": ""}, 0),
        ("the strict reader takes no walk", {"exact/a.h": '#include "volume/ntfs.h"\n', "volume/ntfs.h": ""}, 1),
        ("the front of the exact mode takes the strict reader",
         {"frontend/exact/a.h": '#include "exact/b.h"\n', "exact/b.h": ""}, 0),
        ("nothing else takes the strict reader", {"frontend/a.h": '#include "exact/b.h"\n', "exact/b.h": ""}, 1),
        ("one door leads to the exact mode",
         {"frontend/run.cpp": '#include "frontend/exact/a.h"\n', "frontend/exact/a.h": ""}, 0),
        ("and no other", {"frontend/usage.cpp": '#include "frontend/exact/a.h"\n', "frontend/exact/a.h": ""}, 1),
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
