#!/usr/bin/env python3
"""Shows whether the tests notice that a single condition of the program is negated.

Usage: mutants.py FOLDER [--seed S] [--count N] [--files N] [--minutes M]
       mutants.py FOLDER --list        what was found out so far

Draws N conditions at random (300) from the sources of the last commit, wraps each of them in a copy of the tree under
FOLDER, and builds the unit tests, the program and the command-line tests once: which condition is negated is read from
the environment (quarry_mutant.h). Every test runs once as it is, and says which of the conditions it gets to. Then each
condition is negated in turn, and the tests that get to it run until one fails, those of its own folder first. A crash
and a run beyond the time limit count as failures.

--files draws so many files first, the longer the likelier, and the conditions from these: less to parse and to compile.
Conditions in headers and in constexpr functions are left out. What was done is kept in FOLDER, and a second call goes
on.

Needs root and python3-clang. The tests run in a mount namespace of their own, in which nothing but FOLDER and an empty
/tmp can be written: a program with a negated condition is not to be trusted.
"""

import argparse
import collections
import json
import os
import pathlib
import random
import re
import signal
import subprocess
import sys
import time

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parents[1]
UNITS = [f"unit_{name}" for name in ("foundation", "disk", "volume", "namespace", "report", "exact", "frontend",
                                     "support")]
# What the first do not notice goes on to the next.
STAGES = (UNITS, ["cli_tests"])
SECONDS = 20


def quietly(command, **options):
    return subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True, check=False, **options)


# ---- drawing

def draw(folder, arguments):
    import conditions
    tree = folder / "tree"
    tree.mkdir(parents=True)
    archive = subprocess.run(["git", "-C", str(ROOT), "archive", "HEAD"], check=True, capture_output=True).stdout
    subprocess.run(["tar", "-x", "-C", str(tree)], input=archive, check=True)
    subprocess.run(["cmake", "--preset", "release"], cwd=tree, check=True, stdout=subprocess.DEVNULL)
    flags = conditions.flags_of(tree / "build/release")
    chance = random.Random(arguments.seed)
    files = sorted((tree / "src").rglob("*.cpp"))
    if arguments.files:
        weight = {path: path.stat().st_size for path in files}
        files = sorted(files, key=lambda path: chance.random() ** (1 / weight[path]), reverse=True)[:arguments.files]
    found = []
    for path in sorted(files):
        for begin, end, text in conditions.conditions_of(path, flags[path]):
            found.append({"file": str(path.relative_to(tree)), "begin": begin, "end": end, "text": text,
                          "line": path.read_bytes()[:begin].count(b"\n") + 1})
    chosen = chance.sample(found, min(arguments.count, len(found)))
    for number, mutant in enumerate(chosen, 1):
        mutant["number"] = number
    print(f"{len(chosen)} of {len(found)} conditions in {len(files)} files", flush=True)
    return {"mutants": chosen, "conditions": len(found), "files": len(files), "seed": arguments.seed}


def wrapped(text, mutants):
    """The text of a file with its conditions in calls. One condition may lie within another."""
    edits = []
    for mutant in mutants:
        length = mutant["end"] - mutant["begin"]
        call = f"quarry_mutant({mutant['number']}, static_cast<bool>(".encode()
        edits.append((mutant["begin"], 1, -length, call))
        edits.append((mutant["end"], 0, length, b"))"))
    for place, _, _, word in sorted(edits, reverse=True):
        text = text[:place] + word + text[place:]
    return f'#include "{HERE / "quarry_mutant.h"}"\n#line 1\n'.encode() + text


def write_and_build(folder, plan):
    """Conditions that do not compile in a call are left out."""
    tree = folder / "tree"
    by_file = collections.defaultdict(list)
    for mutant in plan["mutants"]:
        by_file[mutant["file"]].append(mutant)
    originals = {name: subprocess.run(["git", "-C", str(ROOT), "show", f"{plan['commit']}:{name}"], check=True,
                                      capture_output=True).stdout for name in by_file}
    programs = [program for stage in STAGES for program in stage]
    while True:
        for name, mutants in by_file.items():
            text = wrapped(originals[name], [each for each in mutants if not each.get("left_out")])
            if (tree / name).read_bytes() != text:
                (tree / name).write_bytes(text)
        built = quietly(["cmake", "--build", "build/release", "--target", "quarry", *programs, "--", "-k", "0"],
                        cwd=tree)
        if built.returncode == 0:
            return
        wrong = {(name, int(line)) for name, line in re.findall(r"(src/\S+?\.cpp):(\d+):\d+: error", built.stdout)}
        dropped = [each for each in plan["mutants"]
                   if (each["file"], each["line"]) in wrong and not each.get("left_out")]
        if not dropped:
            raise SystemExit(built.stdout[-4000:])
        for mutant in dropped:
            mutant["left_out"] = True


# ---- running, in a namespace of its own

def make_devices():
    """A mutant may remove one: they are made anew."""
    for name, major, minor in (("null", 1, 3), ("zero", 1, 5), ("full", 1, 7), ("random", 1, 8), ("urandom", 1, 9),
                               ("tty", 5, 0)):
        path = pathlib.Path("/dev", name)
        if not path.is_char_device():
            path.unlink(missing_ok=True)
            os.mknod(path, 0o020666, os.makedev(major, minor))
            path.chmod(0o666)
    for name, target in (("fd", "/proc/self/fd"), ("stdin", "fd/0"), ("stdout", "fd/1"), ("stderr", "fd/2")):
        if not os.path.lexists(f"/dev/{name}"):
            os.symlink(target, f"/dev/{name}")


def enter_namespace(folder):
    mounts = [line.split()[4] for line in open("/proc/self/mountinfo", encoding="utf-8")]
    # FOLDER may lie in /tmp.
    needed = [["mount", "--make-rprivate", "/"], ["mount", "--bind", str(folder), "/mnt"],
              ["mount", "-t", "tmpfs", "-o", "mode=1777", "tmpfs", "/tmp"], ["mkdir", "-p", str(folder)],
              ["mount", "--move", "/mnt", str(folder)], ["mount", "-o", "remount,bind,ro", "/"]]
    others = [["mount", "-o", "remount,bind,ro", place] for place in mounts
              if place != "/" and not place.startswith(("/dev", "/proc", "/sys"))]
    devices = [["mount", "-t", "tmpfs", "-o", "mode=755", "tmpfs", "/dev"]]
    for command in needed + others + devices:
        done = quietly(command)
        if done.returncode != 0 and command not in others:
            raise SystemExit(done.stdout)
    make_devices()
    pathlib.Path("/dev/shm").mkdir()
    subprocess.run(["mount", "-t", "tmpfs", "-o", "mode=1777", "tmpfs", "/dev/shm"], check=True)


class runner:
    def __init__(self, folder):
        self.programs = folder / "tree/build/release/tests"
        self.scratch = folder / "scratch"
        self.scratch.mkdir(exist_ok=True, mode=0o777)
        self.scratch.chmod(0o777)
        self.reached = folder / "reached"

    def run(self, program, tests, seconds, environment):
        """True if all of the tests pass."""
        make_devices()
        command = [str(self.programs / program), "--gtest_brief=1", "--gtest_fail_fast",
                   "--gtest_filter=" + ":".join(tests)]
        variables = {**os.environ, **environment, "TMPDIR": str(self.scratch)}
        with subprocess.Popen(command, cwd=self.scratch, env=variables, stdin=subprocess.DEVNULL,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True) as process:
            try:
                return process.wait(seconds) == 0
            except subprocess.TimeoutExpired:
                return False
            finally:
                try:
                    os.killpg(process.pid, signal.SIGKILL)
                except ProcessLookupError:
                    pass

    def tests_of(self, program):
        listed = subprocess.run([str(self.programs / program), "--gtest_list_tests"], check=True, capture_output=True,
                                text=True, cwd=self.scratch).stdout
        suite = ""
        for line in listed.splitlines():
            word = line.split("#")[0].rstrip()
            if word.startswith("  "):
                yield suite + word.strip()
            else:
                suite = word

    def note(self, program):
        """What each test reaches, and how long it takes. A test that fails as it is, or removes the file that it is to
        say that in, is of no use."""
        notes = []
        for test in self.tests_of(program):
            self.reached.write_text("")
            self.reached.chmod(0o666)
            begin = time.monotonic()
            passes = self.run(program, [test], 60, {"QUARRY_MUTANTS_REACHED": str(self.reached)})
            if passes and self.reached.exists():
                numbers = sorted({int(line) for line in self.reached.read_text().split()})
                notes.append({"program": program, "test": test, "seconds": time.monotonic() - begin,
                              "reached": numbers})
        return notes


def room_of(mutant):
    return "unit_" + mutant["file"].split("/")[1]


def caught_by(run, mutant, notes):
    """The program of the first run that fails. None if all pass, or no test gets there."""
    by_program = collections.defaultdict(list)
    for each in notes:
        if mutant["number"] in each["reached"]:
            by_program[each["program"]].append(each)
    own = room_of(mutant)
    for program in sorted(by_program, key=lambda name: (name != own, name)):
        tests = sorted(by_program[program], key=lambda each: each["seconds"])
        for begin in range(0, len(tests), 50):
            batch = tests[begin:begin + 50]
            limit = SECONDS + 2 * sum(each["seconds"] for each in batch)
            if not run.run(program, [each["test"] for each in batch], limit, {"QUARRY_MUTANT": str(mutant["number"])}):
                return program
    return None


def test_all(folder, minutes):
    end = time.monotonic() + 60 * minutes
    enter_namespace(folder)
    run = runner(folder)
    plan = json.loads((folder / "plan.json").read_text())
    kept = folder / "notes.json"
    notes = json.loads(kept.read_text()) if kept.exists() else {}
    for number, programs in enumerate(STAGES, 1):
        for program in programs:
            if program not in notes:
                notes[program] = run.note(program)
                kept.write_text(json.dumps(notes))
                print(f"{program}: {len(notes[program])} tests pass as they are", flush=True)
        of_stage = [each for program in programs for each in notes[program]]
        for mutant in plan["mutants"]:
            is_open = "caught_by" not in mutant and not mutant.get("left_out") and mutant.get("stages", 0) < number
            if is_open and time.monotonic() < end:
                program = caught_by(run, mutant, of_stage)
                if program is not None:
                    mutant["caught_by"] = program
                getting_there = sum(mutant["number"] in each["reached"] for each in of_stage)
                mutant["reached"] = mutant.get("reached", 0) + getting_there
                mutant["stages"] = number
                print(f"{mutant['number']}: {program}", flush=True)
                (folder / "plan.json").write_text(json.dumps(plan, indent=1))


# ---- telling

def tell(plan):
    tested = [each for each in plan["mutants"] if "stages" in each]
    missed = [each for each in tested if "caught_by" not in each]
    for mutant in missed:
        done = "" if mutant["stages"] == len(STAGES) else " so far"
        print(f"{mutant['file']}:{mutant['line']}: {' '.join(mutant['text'].split())}: "
              f"{mutant['reached']} tests get there, none notices{done}")
    caught = collections.Counter(each["caught_by"] for each in tested if "caught_by" in each)
    by_program = ", ".join(f"{n} {name}" for name, n in caught.most_common())
    print(f"{sum(caught.values())} of {len(tested)} caught ({by_program});"
          f" {sum(each['reached'] == 0 for each in missed)} reached by no test; {len(plan['mutants'])} drawn of"
          f" {plan['conditions']} conditions in {plan['files']} files, seed {plan['seed']}")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("folder", type=lambda path: pathlib.Path(path).resolve())
    parser.add_argument("--seed", default="1")
    parser.add_argument("--count", type=int, default=300)
    parser.add_argument("--files", type=int, default=0)
    parser.add_argument("--minutes", type=float, default=600)
    parser.add_argument("--list", action="store_true")
    parser.add_argument("--in-namespace", action="store_true", help=argparse.SUPPRESS)
    arguments = parser.parse_args()
    folder = arguments.folder
    plan_file = folder / "plan.json"
    if arguments.in_namespace:
        test_all(folder, arguments.minutes)
        return
    if not arguments.list:
        if not plan_file.exists():
            plan = draw(folder, arguments)
            plan["commit"] = subprocess.run(["git", "-C", str(ROOT), "rev-parse", "HEAD"], check=True, text=True,
                                            capture_output=True).stdout.strip()
            plan_file.write_text(json.dumps(plan, indent=1))
        plan = json.loads(plan_file.read_text())
        if not plan.get("built"):
            write_and_build(folder, plan)
            plan["built"] = True
            plan_file.write_text(json.dumps(plan, indent=1))
        subprocess.run(["unshare", "--mount", "--pid", "--fork", "--mount-proc", "--kill-child", sys.executable,
                        __file__, str(folder), "--minutes", str(arguments.minutes), "--in-namespace"], check=True)
    tell(json.loads(plan_file.read_text()))


if __name__ == "__main__":
    main()
