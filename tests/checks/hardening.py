#!/usr/bin/env python3
"""Checks that a build is guarded against mistakes.

Usage: hardening.py COMPILE_COMMANDS             every file checks the bounds of the C++ library's containers
       hardening.py COMPILE_COMMANDS PROGRAM     that, and the program was built hardened
"""

import json
import pathlib
import subprocess
import sys

SOURCES = pathlib.Path(__file__).resolve().parents[2]


def readelf(option, program):
    return subprocess.run(["readelf", "-W", option, program], check=True, capture_output=True, text=True).stdout


def commands_of(path, folders):
    """What compiles the files of these folders, by file."""
    roots = [SOURCES / folder for folder in folders]
    return {entry["file"]: entry["command"] for entry in json.loads(pathlib.Path(path).read_text(encoding="utf-8"))
            if any(root in pathlib.Path(entry["file"]).parents for root in roots)}


def all_have(commands, option):
    without = [file for file, command in commands.items() if option not in command.split()]
    for file in without[:5]:
        print(f"    without {option}: {file}")
    return bool(commands) and not without


def build_checks(compile_commands):
    return {"bounds of the C++ library": all_have(commands_of(compile_commands, ["src", "tests", "fuzz"]),
                                                  "-D_GLIBCXX_ASSERTIONS")}


def program_checks(compile_commands, program):
    header, segments = readelf("-h", program), readelf("-l", program)
    dynamic, symbols = readelf("-d", program), readelf("--dyn-syms", program)
    stack = next((line for line in segments.splitlines() if "GNU_STACK" in line), "")
    sources = commands_of(compile_commands, ["src"])
    return {
        "position-independent": "DYN (" in header,
        "relocations become read-only": "GNU_RELRO" in segments and "NOW" in dynamic,
        "no executable stack": " RW " in stack,
        "stack protector": "__stack_chk_fail" in symbols,
        "checked library calls": "_chk@" in symbols,
        "no jump over the guard page": all_have(sources, "-fstack-clash-protection"),
        "zeros in locals": all_have(sources, "-ftrivial-auto-var-init=zero"),
    }


def main():
    checks = build_checks(sys.argv[1])
    if len(sys.argv) > 2:
        checks.update(program_checks(sys.argv[1], sys.argv[2]))
    for name, holds in checks.items():
        print(f"{'yes' if holds else 'NO ':4}{name}")
    return 0 if all(checks.values()) else 1


if __name__ == "__main__":
    sys.exit(main())
