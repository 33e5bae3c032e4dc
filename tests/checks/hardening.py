#!/usr/bin/env python3
"""Checks that a program was built hardened. Usage: hardening.py PROGRAM"""

import subprocess
import sys


def readelf(option, program):
    return subprocess.run(["readelf", "-W", option, program], check=True, capture_output=True, text=True).stdout


def main():
    program = sys.argv[1]
    header, segments = readelf("-h", program), readelf("-l", program)
    dynamic, symbols = readelf("-d", program), readelf("--dyn-syms", program)
    stack = next((line for line in segments.splitlines() if "GNU_STACK" in line), "")
    checks = {
        "position-independent": "DYN (" in header,
        "relocations become read-only": "GNU_RELRO" in segments and "NOW" in dynamic,
        "no executable stack": " RW " in stack,
        "stack protector": "__stack_chk_fail" in symbols,
        "checked library calls": "_chk@" in symbols,
    }
    for name, holds in checks.items():
        print(f"{'yes' if holds else 'NO ':4}{name}")
    return 0 if all(checks.values()) else 1


if __name__ == "__main__":
    sys.exit(main())
