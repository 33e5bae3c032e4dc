#!/usr/bin/env python3
"""Shows whether the default mode still does what it did: status, both streams, logs and all files of random runs.

Usage: recorded.py compare OLD NEW [--cases N] [--first N] [--seed S] [--jobs N]
                                        runs both programs and prints each difference; 1 if there is one
       recorded.py check PROGRAM        compares a program with the digests that are stored in outcomes.txt
       recorded.py record PROGRAM       stores its digests anew
       recorded.py show S:NUMBER        prints the command line of a case
       recorded.py self-test PROGRAM    shows that a program that differs by one byte is found by both

QUARRY_SOURCES_WRITER names the program that writes the sources, else it is that of build/release. Needs root; nothing
outside of a mount namespace of its own is written.
"""

import argparse
import difflib
import json
import os
import pathlib
import queue
import shlex
import subprocess
import sys
import tempfile
import threading

import command_lines

HERE = pathlib.Path(__file__).resolve().parent
STORED = HERE / "outcomes.txt"
SOURCES_WRITER = HERE.parents[1] / "build/release/tests/write_recorded_sources"
STORED_SEED = "stored"
STORED_CASES = 500
PARTS = ("status", "stdout", "stderr", "files")
SKIPPED = 77


def described(case):
    text = "as root" if case.as_root else "as an ordinary user"
    text += ", both streams in one pipe" if case.joined else ""
    text += f"\n  quarry {' '.join(map(shlex.quote, case.words))}"
    if case.standard_input:
        text += f"\n  standard input: {case.standard_input!r}"
    return text + "".join(f"\n  damage: {change}" for change in case.damage)


def case_of(name):
    seed, number = name.rsplit(":", 1)
    return command_lines.make_case(seed, int(number))


def run_cases(programs, seed, first, cases, jobs):
    """Yields what the workers report of each case."""
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run([os.environ.get("QUARRY_SOURCES_WRITER", SOURCES_WRITER), folder], check=True)
        lines = queue.SimpleQueue()

        def listen(job):
            span = [str(number) for number in (first + job, first + cases, jobs)]
            command = ["unshare", "--mount", "--uts", sys.executable, str(HERE / "run_cases.py"), seed, *span, folder]
            with subprocess.Popen([*command, *map(str, programs)], stdout=subprocess.PIPE) as process:
                for line in process.stdout:
                    lines.put(line)
            lines.put(None)

        threads = [threading.Thread(target=listen, args=(job,), daemon=True) for job in range(jobs)]
        for thread in threads:
            thread.start()
        told = 0
        for _ in threads:
            for line in iter(lines.get, None):
                told += 1
                yield json.loads(line)
        if told != cases:
            raise RuntimeError(f"{told} of {cases} cases were run; see the message of a worker above")


def difference(outcomes):
    """The lines by which two outcomes differ."""
    texts = []
    for outcome in outcomes:
        lines = [f"status {outcome['status']}"]
        for stream in ("stdout", "stderr"):
            lines += [f"{stream}: {line}" for line in outcome[stream].splitlines()]
        for name, content in sorted(outcome["files"].items()):
            lines += [f"{name}: {line}" for line in content.splitlines()]
        texts.append(lines)
    return [line for line in difflib.unified_diff(*texts, lineterm="", n=0)
            if not line.startswith(("---", "+++", "@@"))]


def compare(options):
    found = 0
    for line in run_cases([options.old, options.new], options.seed, options.first, options.cases, options.jobs):
        if "outcomes" in line:
            found += 1
            print(f"\n{line['name']} {described(case_of(line['name']))}")
            print("\n".join("    " + text for text in difference(line["outcomes"])), flush=True)
    print(f"\n{options.cases} cases, {found} differ")
    return 1 if found else 0


def stored_line(told):
    return f"{told['name'].rsplit(':', 1)[1]} {' '.join(told['digests'].values())}"


def record_lines(program, cases):
    told = run_cases([program], STORED_SEED, 0, cases, os.cpu_count() or 1)
    return sorted(map(stored_line, told), key=lambda line: int(line.split()[0]))


def changed_parts(stored, now):
    """The numbers of the cases that differ, with the parts that differ."""
    changed = {}
    for a, b in zip(stored, now, strict=True):
        parts = [part for part, x, y in zip(PARTS, a.split()[1:], b.split()[1:], strict=True) if x != y]
        if parts or a.split()[0] != b.split()[0]:
            changed[int(b.split()[0])] = parts
    return changed


def check(options):
    stored = [line for line in STORED.read_text().splitlines() if not line.startswith("#")]
    changed = changed_parts(stored, record_lines(options.program, len(stored)))
    for number, parts in changed.items():
        name = f"{STORED_SEED}:{number}"
        print(f"\n{name} {described(case_of(name))}\n  changed: {', '.join(parts)}")
    print(f"{len(stored)} cases, {len(changed)} changed")
    if changed:
        print(f"To see how, build the commit before and run: recorded.py compare OLD NEW --seed {STORED_SEED} "
              f"--cases {len(stored)}")
    return 1 if changed or not stored else 0


def record(options):
    head = ["# Written by recorded.py record. Number of the case; digests of status, stdout, stderr and files."]
    STORED.write_text("\n".join(head + record_lines(options.program, STORED_CASES)) + "\n")
    return 0


# Each runs the program and changes one byte of what it does. In the namespace the program is /mnt/1/quarry.
TRUTH = "(exec -a quarry /mnt/1/quarry \"$@\")"
LIARS = {
    "status": TRUTH + "; s=$?; exit $((s ^ 1))",
    "stdout": TRUTH + " | sed s/host/Host/; exit ${PIPESTATUS[0]}",
    "stderr": "{ " + TRUTH + " 2>&1 >&3 | sed s/successful/Successful/ >&2; exit ${PIPESTATUS[0]}; } 3>&1",
    "files": TRUTH + "; s=$?; [ -s out.bin ] && printf x | dd of=out.bin conv=notrunc bs=1 2>&-; exit $s",
}


def self_test(options):
    cases = 40
    truth = record_lines(options.program, cases)
    assert not changed_parts(truth, record_lines(options.program, cases)), "two runs of one program differ"
    for part, text in LIARS.items():
        with tempfile.TemporaryDirectory() as folder:
            liar = pathlib.Path(folder) / "liar"
            liar.write_text(f"#!/bin/bash\n{text}\n")
            told = list(run_cases([liar, options.program], STORED_SEED, 0, cases, os.cpu_count() or 1))
        told.sort(key=lambda line: int(line["name"].rsplit(":", 1)[1]))
        by_digest = changed_parts(truth, list(map(stored_line, told)))
        by_comparison = [number for number, line in enumerate(told) if "outcomes" in line]
        assert [part] in by_digest.values(), f"a program that lies in its {part} is not found"
        assert list(by_digest) == by_comparison, f"check and compare disagree over the {part}"
        print(f"a program that lies in its {part} is found in {len(by_digest)} of {cases} cases")
    return 0


def arguments():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    tasks = parser.add_subparsers(required=True)
    task = tasks.add_parser("compare")
    task.set_defaults(run=compare)
    task.add_argument("old", type=pathlib.Path)
    task.add_argument("new", type=pathlib.Path)
    task.add_argument("--cases", type=int, default=10_000)
    task.add_argument("--first", type=int, default=0)
    task.add_argument("--seed", default="1")
    task.add_argument("--jobs", type=int, default=os.cpu_count() or 1)
    for run in (check, record, self_test):
        task = tasks.add_parser(run.__name__.replace("_", "-"))
        task.set_defaults(run=run)
        task.add_argument("program", type=lambda path: pathlib.Path(path).resolve())
    task = tasks.add_parser("show")
    task.set_defaults(run=lambda options: print(described(case_of(options.name))))
    task.add_argument("name")
    return parser.parse_args()


def can_isolate():
    return subprocess.run(["unshare", "--mount", "--uts", "mount", "--make-rprivate", "/"], check=False,
                          stderr=subprocess.DEVNULL).returncode == 0 and os.geteuid() == 0


def main():
    options = arguments()
    if "name" not in options and not can_isolate():
        print("needs root, and a mount namespace of its own")
        return 1 if os.environ.get("CI") else SKIPPED
    return options.run(options)


if __name__ == "__main__":
    sys.exit(main())
