#!/usr/bin/env python3
"""Runs every command that a document shows, in order, in one shell and one empty directory.

    run_document.py DOCUMENT        exit status 0: all as shown, 1: not, 77: could not be run here
    run_document.py --self-test

In Markdown every fenced block is something:

    ```sh               commands; each must succeed
    ```console          what a terminal shows: commands after "$ " (more lines of one after "> ") and below each
                        what it prints. A line "..." matches any lines, "..." in a line any text. A command
                        must succeed unless `echo $?` comes next. The directory of the run is shown as /cases/7.
                        Time, host and platform of quarry's header and the last line of a log ("->0.01 secs")
                        are compared by their form.
    ```sh file=NAME     a file of that name, executable (any language may be named in place of sh)
    ```sh ci            commands too long for a document's test: each is a step of .ci/run or a
                        command of a script that is one
    ```mermaid          a picture
    <!-- run ... -->    commands that readers need not see; each must succeed
    <!-- needs: a b --> programs without which the document cannot be run, and "root" if it takes that

Indented blocks, other fences, and lines in plain fences that look like commands are errors, so that no command
escapes. In a manual page the lines after ".Dl" are the commands, `.\\" run: ` begins one that is not shown,
and `.\\" may fail: ` is above one that may.

The shell finds `quarry`, `sudo` (a document with sudo needs root, so this one has nothing to do) and $QUARRY_ROOT, the
source tree. As root it runs in a process and mount namespace of its own: what a document starts or mounts is gone when it
ends.
"""

import os
import re
import shutil
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))
SKIPPED = 77
TIME_LIMIT_SECONDS = 600
SHOWN_DIRECTORY = "/cases/7"
SYSTEM_PATH = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"


class Step:
    """A command, the line it is on, and what it is to print (None: whatever it likes)."""

    def __init__(self, line, command, expected=None, may_fail=False):
        self.line = line
        self.command = command
        self.expected = expected
        self.may_fail = may_fail


class Mistake(Exception):
    """Something in the document that this program cannot take."""


def blocks_of(text):
    """(line, kind, words of the fence, lines) of each block; kind is "fence" or "run"."""
    lines = text.split("\n")
    index = 0
    in_list = False
    while index < len(lines):
        line = lines[index]
        fence = re.match(r"(\s*)(```+|~~~+)\s*(.*)$", line)
        if fence or line.strip() == "<!-- run":
            indent, end, words = (fence.group(1), fence.group(2), fence.group(3)) if fence else ("", "-->", "")
            start = index + 1
            index = start
            while index < len(lines) and lines[index].strip() != end:
                index += 1
            if index == len(lines):
                raise Mistake(f"line {start}: this block has no end")
            content = [each[len(indent):] if each.startswith(indent) else each for each in lines[start:index]]
            yield start + 1, "fence" if fence else "run", words.split(), content
        elif line.startswith("    ") and not in_list and (index == 0 or not lines[index - 1].strip()):
            raise Mistake(f"line {index + 1}: an indented block; use a fence, so that it is run")
        if line.strip() and not line.startswith(" "):
            in_list = bool(re.match(r"([-*+]|\d+\.) ", line))
        index += 1


def transcript_steps(start, lines):
    """Commands with their expected output from a console block."""
    steps = []
    for number, line in enumerate(lines, start):
        if line.startswith("$ "):
            steps.append(Step(number, line[2:], []))
        elif not steps:
            raise Mistake(f"line {number}: output ahead of the first command")
        elif line.startswith("> ") and not steps[-1].expected:
            steps[-1].command += "\n" + line[2:]
        else:
            steps[-1].expected.append(line)
    for step, following in zip(steps, steps[1:]):
        step.may_fail = following.command == "echo $?"
    return steps


def quoted_file(name, lines):
    """A command that writes a file."""
    return f"cat >{name} <<'END_OF_FILE'\n" + "\n".join(lines) + f"\nEND_OF_FILE\nchmod +x {name}"


def check_ci_lines(start, lines):
    """Each is a step of .ci/run, or begins a line of a script that is one."""
    with open(os.path.join(ROOT, ".ci", "run"), encoding="utf-8") as file:
        ci_steps = [line.split(None, 1)[1].strip() for line in file if line.startswith("step ")]
    run = [".ci/run"] + ci_steps
    for script in {step.split()[0] for step in ci_steps}:
        with open(os.path.join(ROOT, script), encoding="utf-8") as file:
            run += [line.strip() for line in file]
    for number, line in enumerate(lines, start):
        command = re.split(r"  +#", line)[0].strip()
        if command and not any(each == command or each.startswith(command + " ") for each in run):
            raise Mistake(f"line {number}: {command} is no step of .ci/run")


def markdown_steps(text):
    steps = []
    for start, kind, words, lines in blocks_of(text):
        language = words[0] if words else ""
        marks = words[1:]
        if kind == "run":
            steps.append(Step(start, "\n".join(lines)))
        elif marks and marks[0].startswith("file="):
            steps.append(Step(start, quoted_file(marks[0][len("file="):], lines)))
        elif marks == ["ci"]:
            check_ci_lines(start, lines)
        elif language == "sh" and not marks:
            # One step, but as strict as single ones: a failure of any of its commands counts.
            steps.append(Step(start, "\n".join(lines)))
        elif language == "console" and not marks:
            steps += transcript_steps(start, lines)
        elif language in ("text", "mermaid") and not marks:
            for number, line in enumerate(lines, start):
                if re.match(r"\s*(\$ |# |sudo |quarry -|scripts/)", line):
                    raise Mistake(f"line {number}: looks like a command that nothing runs")
        else:
            raise Mistake(f"line {start - 1}: a fence that is not known: {' '.join(words)!r}")
    return steps


def manual_steps(text):
    steps = []
    may_fail = False
    for number, line in enumerate(text.split("\n"), 1):
        if line.startswith('.\\" run: '):
            steps.append(Step(number, line[len('.\\" run: '):]))
        elif line.startswith(".Dl "):
            steps.append(Step(number, line[len(".Dl "):].replace("\\e", "\\").replace("\\&", ""), None, may_fail))
        may_fail = line.startswith('.\\" may fail: ')
    return steps


# What a terminal would show of it: carriage returns go back, "ESC [2K" clears the line.
def as_on_a_terminal(raw):
    shown = []
    for line in raw.split("\n"):
        screen = []
        column = 0
        for piece in re.findall(r"\x1b\[2K|.", line):
            if piece == "\x1b[2K":
                screen = [" "] * len(screen)
            elif piece == "\r":
                column = 0
            else:
                screen[column:column + 1] = [" "] * (column - len(screen)) + [piece]
                column += 1
        shown.append("".join(screen).rstrip())
    while shown and not shown[-1]:
        shown.pop()
    return shown


VARYING = [
    (re.compile(r"(->)?run time: \d\d/\d\d/\d{4} \d\d:\d\d:\d\d UTC; host: [^;]+; platform: Linux;[^;]*;[^;]*;(64|32)(; \S+)?"),
     "run time: (time, host and platform)"),
    (re.compile(r"->[0-9.e-]+ secs"), "->(seconds) secs"),
]


def without_variation(line):
    for pattern, replacement in VARYING:
        if pattern.fullmatch(line):
            return replacement
    return line


def line_matches(expected, actual):
    pattern = ".*".join(re.escape(part) for part in without_variation(expected).split("..."))
    return re.fullmatch(pattern, without_variation(actual)) is not None


def output_matches(expected, actual):
    """Lines against lines; a line "..." takes any number of them."""
    if not expected:
        return not actual
    if expected[0].strip() == "...":
        return any(output_matches(expected[1:], actual[taken:]) for taken in range(len(actual) + 1))
    return bool(actual) and line_matches(expected[0], actual[0]) and output_matches(expected[1:], actual[1:])


def driver_of(steps, directory):
    """One shell for all steps; each has a file for its command, its output and its status."""
    lines = ["last=0"]
    for number, step in enumerate(steps):
        base = os.path.join(directory, str(number))
        with open(base + ".sh", "w", encoding="utf-8") as file:
            file.write(step.command + "\n")
        if step.expected is None:
            # The steps share one shell, so its variables stay; the trap marks the first command that fails.
            lines.append(f"failed=; set -E; trap 'failed=${{failed:-$?}}' ERR; . {base}.sh >{base}.out 2>&1 </dev/null; "
                         f"last=${{failed:-$?}}; trap - ERR; set +E; echo $last >{base}.status")
        else:
            lines.append(f"(exit $last); . {base}.sh >{base}.out 2>&1 </dev/null; last=$?; echo $last >{base}.status")
    return "\n".join(lines) + "\n"


def write_program(path, text):
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)
    os.chmod(path, 0o755)


def shell_command(bin_directory):
    """The shell, isolated where that is possible."""
    write_program(os.path.join(bin_directory, "sudo"), '#!/bin/sh\nexec "$@"\n')
    shell = ["bash", "--norc"]
    isolated = ["unshare", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc"]
    if os.geteuid() == 0 and subprocess.run(isolated + ["true"], capture_output=True, check=False).returncode == 0:
        return isolated + shell
    return shell


def run_steps(steps, program):
    """The steps that did not go as shown, as texts."""
    scratch = tempfile.mkdtemp(prefix="quarry-document-")
    try:
        work, notes, programs = (os.path.join(scratch, name) for name in ("work", "steps", "bin"))
        for directory in (work, notes, programs):
            os.mkdir(directory)
        if program:
            os.symlink(program, os.path.join(programs, "quarry"))
        environment = {**os.environ, "QUARRY_ROOT": ROOT, "LC_ALL": "C.UTF-8", "TZ": "UTC", "HOME": scratch,
                       "PATH": f"{programs}:{SYSTEM_PATH}"}
        for name in ("BASH_ENV", "CI"):
            environment.pop(name, None)
        driver = os.path.join(notes, "driver")
        write_program(driver, driver_of(steps, notes))
        try:
            subprocess.run(shell_command(programs) + [driver], cwd=work, env=environment, stdin=subprocess.DEVNULL,
                           check=False, timeout=TIME_LIMIT_SECONDS, capture_output=True)
        except subprocess.TimeoutExpired:
            pass
        return [problem for number, step in enumerate(steps)
                if (problem := judge(step, os.path.join(notes, str(number)), work))]
    finally:
        shutil.rmtree(scratch, ignore_errors=True)


def judge(step, base, work):
    """What is wrong with a step that was run in the directory `work`, or nothing."""
    if not os.path.exists(base + ".status"):
        return f"line {step.line}: did not come to an end\n  $ {step.command}"
    with open(base + ".out", encoding="utf-8", errors="replace", newline="") as file:
        actual = as_on_a_terminal(file.read().replace(work, SHOWN_DIRECTORY))
    with open(base + ".status", encoding="utf-8") as file:
        status = int(file.read())
    printed = "\n".join("  | " + line for line in actual)
    if status != 0 and not step.may_fail:
        return f"line {step.line}: exit status {status}\n  $ {step.command}\n{printed}"
    if step.expected is None:
        return None
    expected = as_on_a_terminal("\n".join(step.expected))
    if not output_matches(expected, actual):
        shown = "\n".join("  | " + line for line in expected)
        return f"line {step.line}: prints something else\n  $ {step.command}\n shown:\n{shown}\n printed:\n{printed}"
    return None


def is_at_hand(name):
    return os.geteuid() == 0 if name == "root" else shutil.which(name, path=SYSTEM_PATH) is not None


def run_document(path):
    with open(path, encoding="utf-8") as file:
        text = file.read()
    try:
        steps = markdown_steps(text) if path.endswith(".md") else manual_steps(text)
    except Mistake as mistake:
        print(f"{path}: {mistake}")
        return 1
    wanting = [name for found in re.findall(r"^(?:<!--|\.\\\") needs: (.*?)(?: -->)?$", text, re.M)
               for name in found.split() if not is_at_hand(name)]
    if wanting:
        print(f"{path}: needs {', '.join(wanting)}")
        return 1 if os.environ.get("CI") else SKIPPED
    problems = run_steps(steps, os.environ.get("QUARRY_PROGRAM"))
    for problem in problems:
        print(f"{path}: {problem}")
    print(f"{path}: {len(steps)} steps, {len(problems)} not as shown")
    return 1 if problems else 0


def self_test():
    """Each text with the number of steps that must be found wrong, or the words of the mistake."""
    cases = [
        ("```sh\ntrue\n```", 0),
        ("```sh\nfalse\ntrue\n```", 1),
        ("```sh\nx=1\n```\n```console\n$ echo $x\n1\n```", 0),
        ("```console\n$ echo a; echo b\na\nb\n```", 0),
        ("```console\n$ echo a; echo b\na\n```", 1),
        ("```console\n$ echo a\na\nb\n```", 1),
        ("```console\n$ echo a\n$ echo b\nb\n```", 1),
        ("```console\n$ printf '1\\n2\\n3\\n'\n...\n3\n```", 0),
        ("```console\n$ printf '1\\n2\\n3\\n'\n...\n2\n```", 1),
        ("```console\n$ echo one two\none ...\n```", 0),
        ("```console\n$ false\n```", 1),
        ("```console\n$ false\n$ echo $?\n1\n```", 0),
        ("```console\n$ false\n$ echo $?\n0\n```", 1),
        ("```console\n$ printf 'gone\\033[2K\\r    \\rleft\\n'\nleft\n```", 0),
        ("```console\n$ echo 'run time: 01/01/2026 10:00:00 UTC; host: a; platform: Linux;b;c;64'\n"
         "run time: 11/21/2026 15:34:52 UTC; host: lab1; platform: Linux;x;y;64\n```", 0),
        ("```console\n$ echo 'run time: today'\nrun time: 11/21/2026 15:34:52 UTC; host: l; platform: Linux;x;y;64\n```", 1),
        ("```text\nas it lies\n```", 0),
        ("```sh file=here\necho in the file\n```\n```console\n$ ./here\nin the file\n```", 0),
        ("<!-- run\nfalse\n-->", 1),
        ("<!-- run\nexit_status() { return 3; }\n-->\n```console\n$ exit_status\n$ echo $?\n3\n```", 0),
        ("```text\n$ quarry\n```", "nothing runs"),
        ("```\nfalse\n```", "not known"),
        ("```sh other\nfalse\n```", "not known"),
        ("\n    false\n", "indented"),
        ("```sh\ntrue", "no end"),
        ("```sh ci\nno/such/step\n```", "no step of"),
    ]
    wrong = 0
    for text, wanted in cases:
        try:
            found = len(run_steps(markdown_steps(text), None))
        except Mistake as mistake:
            found = wanted if isinstance(wanted, str) and wanted in str(mistake) else str(mistake)
        if found != wanted:
            wrong += 1
            print(f"{text!r}: wanted {wanted}, found {found}")
    manual = '.\\" run: x=5\n.Dl test $x = 5\n.\\" may fail: so it is\n.Dl test $x = 6\n.Dl test $x = 7\n'
    if len(run_steps(manual_steps(manual), None)) != 1:
        wrong += 1
        print("a manual page: wanted 1 wrong step")
    print(f"{len(cases) + 1} cases, {wrong} wrong")
    return 1 if wrong else 0


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    if sys.argv[1] != "--self-test" and "QUARRY_PROGRAM" not in os.environ:
        sys.exit("QUARRY_PROGRAM does not name the program")
    sys.exit(self_test() if sys.argv[1] == "--self-test" else run_document(sys.argv[1]))
