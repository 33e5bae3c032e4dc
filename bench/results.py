"""Writes bench/RESULTS.md: the figures of one run, with the machine and the date."""

import datetime
import pathlib
import platform
import subprocess


def first_line(command):
    return subprocess.run(command, shell=True, capture_output=True, text=True, check=False).stdout.strip().split("\n")[0]


def machine():
    cpu = first_line("sed -n 's/^model name[^:]*: //p' /proc/cpuinfo") or platform.machine()
    memory = first_line("awk '/MemTotal/ { printf \"%.0f GiB\", $2 / 1048576 }' /proc/meminfo")
    return f"{cpu}, {first_line('nproc')} cores, {memory}, Linux {platform.release().split('-')[0]}"


HEAD = """# Measured figures

Written by `scripts/bench.sh --results`, {date}, on: {machine}; {compiler}; {peers}.

Wall times, medians of {runs} runs in alternation, everything on a memory file system and read before. The ratio
is the tool's time divided by quarry's in the same case; where a target stands, the ratio must be at least that.
Memory is the highest peak of the whole command.

| case | tool | time | ratio | target | memory |
|---|---|---:|---:|---:|---:|
"""


def row_text(row):
    target = "" if row.target is None else f"{row.target:.3g}{'' if row.ratio >= row.target else ' **missed**'}"
    memory = f"{row.memory:.1f} MiB"
    if row.most_memory is not None:
        memory += f" of {row.most_memory:g}" + ("" if row.memory <= row.most_memory else " **missed**")
    return f"| {row.case} | {row.tool} | {row.seconds * 1000:.1f} ms | {row.ratio:.2f} | {target} | {memory} |\n"


def write(rows, options):
    peers = f"{first_line('icat -V')}; {first_line('ntfscat -V 2>&1 | grep .')}"
    text = HEAD.format(date=datetime.date.today().isoformat(), machine=machine(), compiler=first_line("c++ --version"),
                       peers=peers, runs=options.runs)
    path = pathlib.Path(__file__).with_name("RESULTS.md")
    path.write_text(text + "".join(map(row_text, rows)), encoding="utf-8")
    print(f"wrote {path}")
