"""Runs cases in a mount namespace of its own and reports what became of each.

Nothing but /mnt can be written in there and /dev is empty, so that no command line harms the machine, also not as
root. /mnt holds the programs, the sources and the folder of the case, so every path is the same in every run.
"""

import hashlib
import json
import os
import pathlib
import re
import resource
import shutil
import socket
import subprocess
import sys

import command_lines

MOUNT = pathlib.Path("/mnt")
FOLDER = MOUNT / "c"
HOME = FOLDER / "w"
ORDINARY_USER = 65534
SECONDS = 60
LARGEST_FILE = 64 << 20
ENVIRONMENT = {"LC_ALL": "C", "TZ": "UTC", "HOME": str(HOME), "PATH": "/usr/bin:/bin", "DIR": "sub", "ROOT": ""}
RUN_TIME = re.compile(rb"run time: [^;\n]*")
PLATFORM = re.compile(rb"platform: [^\n]*")
PROFILE = re.compile(rb"[0-9.]+ (seconds|secs)")
TEMPORARY_NAME = re.compile(r"^_[0-9A-Za-z]{5}$")


def enter_namespace(program_paths, source_folder):
    """To be called in a fresh mount and host name namespace."""
    programs = [path.read_bytes() for path in program_paths]
    sources = {path.name: path.read_bytes() for path in source_folder.iterdir()}
    mounts = [line.split()[4] for line in open("/proc/self/mountinfo", encoding="utf-8")]
    for options in (["--make-rprivate", "/"], ["-t", "tmpfs", "-o", "size=600m", "tmpfs", str(MOUNT)],
                    ["-t", "tmpfs", "tmpfs", "/dev"]):
        subprocess.run(["mount", *options], check=True)
    for place in mounts:
        if place == "/" or not place.startswith(("/dev", "/proc", "/sys", "/mnt")):
            subprocess.run(["mount", "-o", "remount,bind,ro", place], check=place == "/")
    os.umask(0o022)
    (MOUNT / "sources").mkdir()
    for name, content in sources.items():
        (MOUNT / "sources" / name).write_bytes(content)
    for number, content in enumerate(programs):
        folder = MOUNT / str(number)
        folder.mkdir()
        (folder / "quarry").write_bytes(content)
        (folder / "quarry").chmod(0o755)
    socket.sethostname("host")
    resource.setrlimit(resource.RLIMIT_FSIZE, (LARGEST_FILE, LARGEST_FILE))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


def damaged(content, changes):
    content = bytearray(content)
    for what, place, value in changes:
        # The words that hold something, by lines of 64 bytes: what is damaged matters.
        lines = [at for at in range(0, len(content), 64) if any(content[at:at + 64])]
        if not lines:
            return content
        exact = place * len(lines)
        at = lines[int(exact)] + int((exact % 1) * 64)
        if what == "word":
            at -= at % 4
            content[at:at + 4] = value.to_bytes(4, "little")[:max(0, len(content) - at)]
        elif what == "cut":
            del content[at:]
        elif at < len(content):
            content[at] = value & 0xFF if what == "byte" else content[at] ^ (1 << value % 8)
    return content


def lay_out(case):
    """The folder of a case as it is before the run."""
    shutil.rmtree(FOLDER, ignore_errors=True)
    for folder in ("", "w", "w/sub", "w/Folder", "w/Windows", "w/locked"):
        (FOLDER / folder).mkdir()
    for name in set(case.sources):
        stored = MOUNT / "sources" / name
        if stored.is_file():
            changes = [change[1:] for change in case.damage if change[0] == name]
            (HOME / name).write_bytes(damaged(stored.read_bytes(), changes))
    (HOME / "taken.bin").write_text("what was here before\n")
    (HOME / "fifo.txt").write_text("")
    for name in ("Folder/stored.bin", "Folder/other.txt", "Windows/notepad.exe"):
        (HOME / name).write_text("abc " + name)
    (HOME / "link_to_taken").symlink_to("taken.bin")
    (HOME / "link_to_nothing").symlink_to("nothing")
    if not case.as_root:
        for path in [FOLDER, *FOLDER.rglob("*")]:
            os.lchown(path, ORDINARY_USER, ORDINARY_USER)
    (HOME / "locked.bin").write_text("of root\n")
    for name in ("locked.bin", "locked"):
        os.chown(HOME / name, 0, 0)


def without_chance(content):
    """The bytes without what differs from run to run and from machine to machine."""
    content = RUN_TIME.sub(b"run time: TIME", content)
    content = PLATFORM.sub(b"platform: PLATFORM", content)
    return PROFILE.sub(b"SECONDS", content)


def files_after():
    found = {}
    temporary = 0
    for path in sorted(FOLDER.rglob("*")):
        name = os.fsencode(path.relative_to(FOLDER)).decode("utf-8", "backslashreplace")
        if TEMPORARY_NAME.match(path.name):
            name = f"temporary {temporary}"
            temporary += 1
        if path.is_symlink():
            found[name] = "link to " + os.readlink(path)
        elif path.is_file():
            content = without_chance(path.read_bytes())
            text = content[:6000].decode("utf-8", "backslashreplace") if looks_like_text(content) else ""
            found[name] = f"{path.stat().st_mode:o} {len(content)} {hashlib.sha256(content).hexdigest()}\n{text}"
        else:
            found[name] = f"{path.stat().st_mode:o}"
    return found


def looks_like_text(content):
    return b"\0" not in content


def outcome_of(case, program):
    """What one run of a program makes of a case: status, the two streams, and the files afterwards."""
    lay_out(case)
    user = {} if case.as_root else {"user": ORDINARY_USER, "group": ORDINARY_USER, "extra_groups": []}
    words = [word.encode("utf-8", "surrogateescape") for word in case.words]
    streams = {"stdout": subprocess.PIPE, "stderr": subprocess.STDOUT if case.joined else subprocess.PIPE}
    with subprocess.Popen([b"quarry", *words], executable=str(program), cwd=HOME, env=ENVIRONMENT,
                          stdin=subprocess.PIPE, **streams, **user) as process:
        try:
            output, errors = process.communicate(case.standard_input, SECONDS)
            status = str(process.returncode)
        except subprocess.TimeoutExpired:
            process.kill()
            output, errors = process.communicate()
            status = "no end"
    return {"status": status, "stdout": without_chance(output).decode("utf-8", "backslashreplace"),
            "stderr": without_chance(errors or b"").decode("utf-8", "backslashreplace"), "files": files_after()}


def digests(outcome):
    return {part: hashlib.sha256(json.dumps(value, sort_keys=True).encode()).hexdigest()[:10]
            for part, value in outcome.items()}


def worker():
    """run_cases.py SEED FIRST END STEP SOURCES PROGRAM...: prints a line of JSON for each case.

    With one program its digests; with two both outcomes where they differ, and nothing but the name where not.
    """
    seed, first, end, step = sys.argv[1], *map(int, sys.argv[2:5])
    programs = [pathlib.Path(path) for path in sys.argv[6:]]
    enter_namespace(programs, pathlib.Path(sys.argv[5]))
    for number in range(first, end, step):
        case = command_lines.make_case(seed, number)
        outcomes = [outcome_of(case, MOUNT / str(i) / "quarry") for i in range(len(programs))]
        line = {"name": case.name, "digests": digests(outcomes[0])}
        if len(outcomes) == 2 and outcomes[0] != outcomes[1]:
            line["outcomes"] = outcomes
        print(json.dumps(line), flush=True)


if __name__ == "__main__":
    worker()
