#!/usr/bin/env python3
"""Runs clang-tidy over source files, in two ways that together are one run over each file with all checks.

Most of the time of most checks goes into the headers of the C++ library, which every file includes. So these checks
see many files at once, in one source that includes them all. The static analyzer looks into a file only when it is the
one that is named, and so do some checks of `misc`: they see each file alone, which takes ten times as long, and only
when they are asked for.

Usage: tidy.py [--deep] BUILD FILE...   BUILD has a compile_commands.json that knows the files
       tidy.py --self-test              plants a fault of either kind and expects to hear of it
"""

import concurrent.futures
import json
import os
import pathlib
import shlex
import subprocess
import sys
import tempfile

CONFIGURATION = pathlib.Path(__file__).resolve().parents[2] / ".clang-tidy"
ALONE = "-bugprone-*,-cppcoreguidelines-*,-modernize-*,-performance-*,-readability-*"
TOGETHER = "-clang-analyzer-*,-misc-*"
MOST_TOGETHER = 24


def flags_of(command):
    """Those of the compiler's words that say how to compile: not what, nor where the result goes."""
    words = shlex.split(command)
    flags = []
    for place, word in enumerate(words):
        if word.startswith("-") and word not in ("-o", "-c"):
            flags.append(word)
        elif flags and words[place - 1] in ("-isystem", "-include", "-I"):
            flags.append(word)
    return flags


class Tidy:
    def __init__(self, commands, scratch, deep=False):
        self.commands = commands
        self.scratch = pathlib.Path(scratch)
        self.deep = deep

    def run(self, path, like, checks, *more):
        """The findings in `path`, which is compiled like the file `like`."""
        entry = self.commands[like]
        run = subprocess.run(
            ["clang-tidy", "--quiet", f"--config-file={CONFIGURATION}", f"--checks={checks}",
             r"--header-filter=src/.*\.(h|cpp)$", "--extra-arg=-Wno-unknown-warning-option",
             "--extra-arg=-ferror-limit=0", *more, str(path), "--", *flags_of(entry["command"])],
            cwd=entry["directory"], capture_output=True, text=True, check=False)
        if run.returncode != 0 and not run.stdout:
            return run.stderr or f"clang-tidy ended with {run.returncode}\n"
        return run.stdout

    def alone(self, file):
        return self.run(file, file, ALONE)

    def together(self, files):
        """Names without linkage may meet in one source: then the files that clang complains of are looked at apart."""
        if len(files) == 1:
            return self.run(files[0], files[0], TOGETHER)
        handle, name = tempfile.mkstemp(suffix=".cpp", dir=self.scratch)
        with os.fdopen(handle, "w", encoding="utf-8") as source:
            source.writelines(f'#include "{file}"  // NOLINT(bugprone-suspicious-include)\n' for file in files)
        errors = [line for line in self.run(name, files[0], "-*,modernize-use-nullptr").splitlines()
                  if "[clang-diagnostic-error" in line]
        if not errors:
            # A local name may meet one of another file.
            return self.run(name, files[0], TOGETHER, "--extra-arg=-Wno-shadow")
        apart = [file for file in files if any(line.startswith(f"{file}:") for line in errors)]
        if len(apart) in (0, len(files)):
            apart = files[:len(files) // 2]
        return self.together(apart) + self.together([file for file in files if file not in apart])

    def all(self, files):
        """What is found in the files. The largest come first, so that no core waits for one at the end."""
        by_folder = {}
        for file in files:
            by_folder.setdefault(pathlib.Path(file).parent, []).append(file)
        groups = [folder[begin:begin + MOST_TOGETHER] for folder in by_folder.values()
                  for begin in range(0, len(folder), MOST_TOGETHER)]
        with concurrent.futures.ThreadPoolExecutor(len(os.sched_getaffinity(0))) as pool:
            running = [pool.submit(self.together, group) for group in sorted(groups, key=len, reverse=True)]
            if self.deep:
                running += [pool.submit(self.alone, file)
                            for file in sorted(files, key=os.path.getsize, reverse=True)]
            found = [each.result() for each in concurrent.futures.as_completed(running)]
        return "".join(found)


def self_test():
    planted = {
        "one.cpp": "static const int limit = 3;\nint one(int* p) { p = limit > 2 ? nullptr : p; return *p; }\n",
        "two.cpp": "static const long limit = 4;\nint* two() { return limit > 3 ? 0 : nullptr; }\n",
        "three.cpp": "namespace a { int f(); }\nusing a::f;\nvoid* three() { return nullptr; }\n",
        "four.cpp": "long four(int a) { return a * 1000; }\n",
        "good.cpp": "int good() { return 4; }\n",
    }
    together = {("two.cpp", "modernize-use-nullptr"),
                ("four.cpp", "bugprone-implicit-widening-of-multiplication-result")}
    alone = {("one.cpp", "clang-analyzer-core.NullDereference"), ("three.cpp", "misc-unused-using-decls")}
    with tempfile.TemporaryDirectory() as scratch:
        folder = pathlib.Path(scratch, "src")
        folder.mkdir()
        for name, text in planted.items():
            (folder / name).write_text(text, encoding="utf-8")
        files = [str(folder / name) for name in planted]
        commands = {file: {"directory": scratch, "command": f"g++ -std=c++20 -o x.o -c {file}"} for file in files}
        for deep, expected in ((False, together), (True, together | alone)):
            told = Tidy(commands, scratch, deep).all(files)
            lines = [line for line in told.splitlines() if "error:" in line]
            seen = {(name, check) for name, check in expected
                    for line in lines if f"/{name}:" in line and check in line}
            if seen != expected or len(lines) != len(expected):
                print(f"Planted and not found: {sorted(expected - seen)}. What was found:\n{told}")
                return 1
    print("planted faults are found")
    return 0


def main():
    if sys.argv[1:] == ["--self-test"]:
        return self_test()
    words = sys.argv[1:]
    deep = words[:1] == ["--deep"]
    build, *files = words[1:] if deep else words
    build = pathlib.Path(build).resolve()
    entries = json.loads((build / "compile_commands.json").read_text(encoding="utf-8"))
    with tempfile.TemporaryDirectory() as scratch:
        found = Tidy({entry["file"]: entry for entry in entries}, scratch, deep).all(
            [os.path.abspath(file) for file in files])
    print(found, end="")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
