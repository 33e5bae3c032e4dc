"""Reads the counts that the tests of a coverage build left, and holds them to limits and to the list of unreached lines.

Usage: coverage.py BUILD [--least FOLDER LINES BRANCHES]... [--conditions]

For each file of src/ it prints the lines and branches and how many of them were reached; with --conditions also each
condition that went only one way. A folder after --least must have that many per cent of both. Each of its lines that
was not reached must be named in tests/coverage/unreached.txt: paragraphs, the first line FILE: REASON (the reason may go
on in lines that begin with "#"), then the lines as they are in the file, indented. They are found by their text, as
often as they are listed; one that is no more in the file fails. Closing braces need not be listed.
"""
import argparse
import collections
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
LIST = ROOT / "tests/coverage/unreached.txt"


class File:
    """Counts of one source file: of each line that has code, and of both ways of each condition by its place."""

    def __init__(self):
        self.lines = {}
        self.conditions = {}

    def branches(self):
        """Each way of each condition, as a count. A condition that is a constant has none: its line was reached, but
        neither way was counted."""
        for (line, _), ways in self.conditions.items():
            if any(ways) or not self.lines.get(line):
                yield from ways

    def figures(self):
        """Lines, lines reached, branches, branches reached."""
        branches = list(self.branches())
        return (len(self.lines), sum(count > 0 for count in self.lines.values()),
                len(branches), sum(count > 0 for count in branches))


def tool(name):
    """The path of one of clang's tools: the one of version 14, which built the programs, or the plain name."""
    found = shutil.which(name + "-14") or shutil.which(name)
    if found is None:
        sys.exit(f"missing: {name}\nTo install it: scripts/setup.sh clang")
    return found


def is_program(path):
    if not path.is_file() or path.suffix or not path.stat().st_mode & 0o111:
        return False
    with path.open("rb") as file:
        return file.read(4) == b"\x7fELF"


def read_counts(build):
    """The files below src/ by their path from the root."""
    raw = sorted((build / "counts").glob("*.profraw"))
    if not raw:
        sys.exit(f"no counts in {build}/counts: no test ran")
    merged = build / "counts.profdata"
    subprocess.run([tool("llvm-profdata"), "merge", "-o", merged, *raw], check=True)
    programs = [path for folder in ("src", "tests", "fuzz") for path in sorted((build / folder).glob("*"))
                if is_program(path)]
    words = [f"-instr-profile={merged}", programs[0], *(f"-object={path}" for path in programs[1:])]
    files = collections.defaultdict(File)

    def export(form, *more):
        command = [tool("llvm-cov"), "export", f"-format={form}", *more, *words]
        return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout

    def name_of(path):
        # A cache of compiled files may have made the path one from the build's folder.
        path = os.path.normpath(path)
        return os.path.relpath(path, ROOT) if path.startswith(f"{ROOT}/src/") else None

    name = None
    for line in export("lcov").splitlines():
        if line.startswith("SF:"):
            name = name_of(line[3:])
        elif line.startswith("DA:") and name:
            number, count = map(int, line[3:].split(",")[:2])
            files[name].lines[number] = files[name].lines.get(number, 0) + count
    for entry in json.loads(export("text", "-skip-expansions", "-skip-functions"))["data"][0]["files"]:
        name = name_of(entry["filename"])
        # The same condition comes once for each type that a template was made for.
        for line, column, _, _, taken, not_taken, *_ in entry["branches"] if name else []:
            ways = files[name].conditions.setdefault((line, column), [0, 0])
            ways[0] += taken
            ways[1] += not_taken
    return files


def per_cent(reached, all_of_them):
    return 100.0 if all_of_them == 0 else 100.0 * reached / all_of_them


def print_table(files):
    print(f"{'file':52} {'lines':>6} {'reached':>8} {'%':>6}  {'branches':>8} {'reached':>8} {'%':>6}")
    for name in sorted(files):
        lines, reached, branches, taken = files[name].figures()
        print(f"{name:52} {lines:6} {reached:8} {per_cent(reached, lines):6.1f}  {branches:8} {taken:8} "
              f"{per_cent(taken, branches):6.1f}")


def print_conditions(name, file):
    text = (ROOT / name).read_text().splitlines()
    for (line, column), ways in sorted(file.conditions.items()):
        if file.lines.get(line) and any(ways) and not all(ways):
            print(f"{name}:{line}:{column}: never {'true' if ways[1] else 'false'}: {text[line - 1].strip()}")


def read_list():
    """For each file how often each text is listed."""
    listed = collections.defaultdict(collections.Counter)
    name = None
    for line in LIST.read_text().splitlines() if LIST.exists() else []:
        head = re.fullmatch(r"(src/\S+): .+", line)
        if head:
            name = head[1]
        elif line.startswith(" ") and name:
            listed[name][line.strip()] += 1
        elif line and not line.startswith("#"):
            sys.exit(f"{LIST}: not understood: {line}")
    return listed


def unlisted_lines(files, folders):
    """What is wrong with the list, a message for each line."""
    listed = read_list()
    for name in sorted(set(files) | set(listed)):
        if not name.startswith(tuple(folders)):
            continue
        if name not in files:
            yield f"{name}: is listed, but has no code"
            continue
        text = (ROOT / name).read_text().splitlines()
        for entry, times in listed[name].items():
            if sum(line.strip() == entry for line in text) < times:
                yield f"{name}: is listed, but not there: {entry}"
        left = listed[name].copy()
        for number, count in sorted(files[name].lines.items()):
            words = text[number - 1].strip()
            if count > 0 or re.fullmatch(r"[})\];,]*", words):
                continue
            if left[words] == 0:
                yield f"{name}:{number}: is not reached, nor listed: {words}"
            left[words] -= 1
        for entry, times in left.items():
            if times > 0:
                print(f"note: {name}: is listed, but reached: {entry}")


def main():
    parser = argparse.ArgumentParser(description="Lines and branches that the tests reached.")
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--least", nargs=3, action="append", default=[], metavar=("FOLDER", "LINES", "BRANCHES"))
    parser.add_argument("--conditions", action="store_true")
    chosen = parser.parse_args()
    files = read_counts(chosen.build.resolve())
    print_table(files)
    folders = [folder for folder, _, _ in chosen.least]
    if chosen.conditions:
        for name in sorted(files):
            if not folders or name.startswith(tuple(folders)):
                print_conditions(name, files[name])
    wrong = list(unlisted_lines(files, folders)) if folders else []
    for folder, least_lines, least_branches in chosen.least:
        figures = [files[name].figures() for name in files if name.startswith(folder)]
        if not figures:
            wrong.append(f"{folder}: no file of it was counted")
            continue
        lines, reached, branches, taken = map(sum, zip(*figures))
        print(f"{folder}: {reached} of {lines} lines ({per_cent(reached, lines):.2f} %), "
              f"{taken} of {branches} branches ({per_cent(taken, branches):.2f} %)")
        if per_cent(reached, lines) < float(least_lines):
            wrong.append(f"{folder}: fewer than {least_lines} % of the lines")
        if per_cent(taken, branches) < float(least_branches):
            wrong.append(f"{folder}: fewer than {least_branches} % of the branches")
    for message in wrong:
        print(f"FAILED: {message}", file=sys.stderr)
    sys.exit(1 if wrong else 0)


if __name__ == "__main__":
    main()
