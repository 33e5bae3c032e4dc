"""Runs commands in alternation and compares the medians of their wall times."""

import dataclasses
import os
import pathlib
import statistics
import subprocess
import sys
import time


@dataclasses.dataclass
class Command:
    """A shell command, and what is done ahead of each of its runs."""
    text: str
    prepare: object


def evict(path):
    """Puts a file out of memory. The system keeps what was not written to the disk yet, so that is done first."""
    descriptor = os.open(path, os.O_RDONLY)
    try:
        os.fsync(descriptor)
        os.posix_fadvise(descriptor, 0, 0, os.POSIX_FADV_DONTNEED)
    finally:
        os.close(descriptor)


def without_announcements(directory):
    """A library that, preloaded, swallows announcements, and says that nothing is in memory."""
    library = (pathlib.Path(directory) / "silent.so").resolve()
    if not library.exists():
        source = library.with_suffix(".c")
        source.write_text("#include <sys/types.h>\n#include <sys/uio.h>\n"
                          "int posix_fadvise(int fd, off_t at, off_t length, int advice)\n"
                          "{ (void)fd; (void)at; (void)length; (void)advice; return 0; }\n"
                          "ssize_t preadv2(int fd, const struct iovec *to, int count, off_t at, int flags)\n"
                          "{ (void)fd; (void)to; (void)count; (void)at; (void)flags; return -1; }\n"
                          "int posix_fadvise64(int, off_t, off_t, int) __attribute__((alias(\"posix_fadvise\")));\n"
                          "ssize_t preadv64v2(int, const struct iovec *, int, off_t, int)"
                          " __attribute__((alias(\"preadv2\")));\n", encoding="utf-8")
        subprocess.run(["cc", "-shared", "-fPIC", "-O2", "-o", str(library), str(source)], check=True)
    return library


@dataclasses.dataclass
class Row:
    case: str
    tool: str
    seconds: float  # median of the runs
    ratio: float    # to quarry's median in the same case
    memory: float   # highest peak, MiB
    target: float | None  # the ratio must be at least this
    most_memory: float | None  # MiB

    @property
    def met(self):
        ok_time = self.target is None or self.ratio >= self.target
        return ok_time and (self.most_memory is None or self.memory <= self.most_memory)


class Bench:
    """Commands run in an empty directory on a memory file system, each with its own peak of memory."""

    def __init__(self, work, runs):
        self.work = pathlib.Path(work)
        self.out = self.work / "out"
        self.runs = runs
        self.rows = []

    def run_once(self, command, limit=None):
        """Wall seconds, peak MiB and exit status of one shell command."""
        subprocess.run(["rm", "-rf", str(self.out)], check=True)
        self.out.mkdir(parents=True)
        if isinstance(command, Command):
            command.prepare()
            command = command.text
        note = self.work / "memory"
        begin = time.perf_counter()
        try:
            status = subprocess.run(["/usr/bin/time", "-q", "-f", "%M", "-o", str(note), "bash", "-c", command],
                                    cwd=self.out, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                    timeout=limit, check=False)
        except subprocess.TimeoutExpired:
            return limit, 0.0, None
        seconds = time.perf_counter() - begin
        return seconds, int(note.read_text(encoding="utf-8").split()[-1]) / 1024, status.returncode

    def compare(self, case, commands, targets=(), most_memory=None, runs=None):
        """The first command is quarry's. `targets`: for each tool the least ratio of its time to quarry's."""
        targets = dict(targets)
        times = {tool: [] for tool in commands}
        memory = {tool: 0.0 for tool in commands}
        for tool, command in commands.items():  # warm
            if self.run_once(command)[2] != 0:
                raise RuntimeError(f"{case}: {tool} fails: {command}")
        for _ in range(runs or self.runs):
            for tool, command in commands.items():
                seconds, peak, _ = self.run_once(command)
                times[tool].append(seconds)
                memory[tool] = max(memory[tool], peak)
        own = next(iter(commands))
        mine = statistics.median(times[own])
        for tool in commands:
            median = statistics.median(times[tool])
            row = Row(case, tool, median, median / mine, memory[tool], targets.get(tool),
                      most_memory if tool == own else None)
            self.rows.append(row)
            print(text_of(row), file=sys.stderr, flush=True)
        return {tool: statistics.median(values) for tool, values in times.items()}


def text_of(row):
    target = "" if row.target is None else f"  at least {row.target:.3g}"
    target += "" if row.most_memory is None else f"  at most {row.most_memory:g} MiB"
    return (f"{row.case:38} {row.tool:16} {row.seconds * 1000:10.1f} ms {row.ratio:8.2f} x {row.memory:8.1f} MiB"
            f"{target}{'' if row.met else '  MISSED'}")
