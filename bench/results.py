"""Writes bench/RESULTS.md: the last figures of each case, with the machine and the date.

The rows of a case belong to one run of it and are kept together; each case may be measured again by itself.
"""

import dataclasses
import datetime
import json
import pathlib
import platform
import subprocess

import measure


def first_line(command):
    return subprocess.run(command, shell=True, capture_output=True, text=True, check=False).stdout.strip().split("\n")[0]


def machine():
    cpu = first_line("sed -n 's/^model name[^:]*: //p' /proc/cpuinfo") or platform.machine()
    memory = first_line("awk '/MemTotal/ { printf \"%.0f GiB\", $2 / 1048576 }' /proc/meminfo")
    return f"{cpu}, {first_line('nproc')} cores, {memory}, Linux {platform.release().split('-')[0]}"


HEAD = """# Measured figures

Written by `scripts/bench.sh --results`, {date}, on: {machine}; {compiler}; {peers}.

Wall times, medians of at least {runs} runs in alternation, everything on a memory file system and read before. The ratio
is the tool's time divided by quarry's in the same case; where there is a target, the ratio must be at least that.
Memory is the highest peak of the whole command.

| case | tool | time | ratio | target | memory |
|---|---|---:|---:|---:|---:|
"""


def row_text(row):
    target = "" if row.target is None else f"{row.target:.3g}{'' if row.ratio >= row.target else ' **missed**'}"
    memory = f"{row.memory:.1f} MiB"
    if row.most_memory is not None:
        memory += f" of {row.most_memory:g}" + ("" if row.memory <= row.most_memory else " **missed**")
    tool = row.tool.replace("|", "\\|")
    return f"| {row.case} | {tool} | {row.seconds * 1000:.1f} ms | {row.ratio:.2f} | {target} | {memory} |\n"


def kept_rows(options):
    return pathlib.Path(options.work) / ("rows-small.json" if options.small else "rows.json")


def keep(case, rows, options):
    """Remembers the rows of a case beside its volumes."""
    path = kept_rows(options)
    kept = json.loads(path.read_text(encoding="utf-8")) if path.exists() else {}
    kept[case] = [dataclasses.asdict(row) for row in rows]
    path.write_text(json.dumps(kept), encoding="utf-8")


def write(cases, options):
    kept = json.loads(kept_rows(options).read_text(encoding="utf-8"))
    rows = [measure.Row(**row) for case in cases for row in kept.get(case, [])]
    peers = f"{first_line('icat -V')}; {first_line('ntfscat -V 2>&1 | grep .').split(' - ')[0]}"
    text = HEAD.format(date=datetime.date.today().isoformat(), machine=machine(), compiler=first_line("c++ --version"),
                       peers=peers, runs=min(5, options.runs))
    path = pathlib.Path(__file__).with_name("RESULTS.md")
    path.write_text(text + "".join(map(row_text, rows)), encoding="utf-8")
    print(f"wrote {path}")
