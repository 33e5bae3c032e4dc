#!/usr/bin/env python3
"""Damages volumes and lets the second reader judge every copy that `-exact` made of them with other bytes than before.

Usage: damage.py --program EXACT_DAMAGE [--cases N] [--parts N]

NTFS has no checksums: some damage makes another volume that is just as sound. A copy that is complete and not in doubt
must then be what the volume says now, and the reader in plain_ntfs.py says what that is. Printed at the end: cases, and
copies by what became of them. Status: 0 if the second reader gives the same bytes each time, 1 if not.
"""

import argparse
import collections
import concurrent.futures
import hashlib
import os
import subprocess
import sys
import tempfile

import plain_ntfs
from codecs_of_ntfs import Bad

SHOWN = 20  # wrong copies that are shown in full

Order = collections.namedtuple("Order", "path entry stream")


def damaged(image, words):
    """The bytes of a volume with the damage that a line describes."""
    fields = words.split(" ")
    if fields[0] == "cut":
        return image[:int(fields[1])]
    out = bytearray(image)
    for at in range(0, len(fields), 3):
        assert fields[at] == "put", words
        out[int(fields[at + 1])] = int(fields[at + 2], 16)
    return bytes(out)


def has_name(volume, file, path):
    """Whether the names of a file, and of the directories above it, are those of a path in any case."""
    steps = [step.encode("utf-16-le") for step in path.strip("/").split("/")]
    upcase = volume.upcase()

    def folded(name):
        return [upcase[2 * unit:2 * unit + 2] for unit in (name[at] | name[at + 1] << 8 for at in range(0, len(name), 2))]

    if not steps:
        return file.base.entry == plain_ntfs.ROOT
    for name in file.names():
        if folded(name.name) == folded(steps[-1]):
            parent = volume.file(name.parent)
            if len(steps) == 1 and name.parent == plain_ntfs.ROOT:
                return True
            if len(steps) > 1 and has_name(volume, parent, "/".join(s.decode("utf-16-le") for s in steps[:-1])):
                return True
    return False


def judge(image, order, line):
    """Why a copy is wrong; nothing if the second reader gives the same."""
    kind, _, _, entry, given = line[:5]
    try:
        volume = plain_ntfs.Volume(plain_ntfs.Source(image))
        file = volume.file(int(entry))
        if order.path and not has_name(volume, file, order.path):
            return f"entry {entry} has no such name"
        if not order.path and int(entry) != order.entry:
            return f"entry {entry} was not asked for"
        name = the_name(volume, file, order.stream)
        if kind == "large":
            size = file.stream(plain_ntfs.DATA, name).size
            return None if size == int(given) else f"the second reader has {size} bytes"
        found = hashlib.sha256(file.content(name)).hexdigest()
        return None if found == given else "the second reader has other bytes"
    except Bad as reason:
        return f"the second reader refuses it: {reason}"


def the_name(volume, file, wanted):
    """The stream of this name, in other letters if none has these."""
    name = wanted.encode("utf-16-le")
    names = file.stream_names()
    if name in names or not name:
        return name
    upcase = volume.upcase()

    def folded(text):
        return [upcase[2 * (text[at] | text[at + 1] << 8):][:2] for at in range(0, len(text), 2)]

    return next((each for each in names if folded(each) == folded(name)), name)


def read_orders(folder):
    orders = {}
    with open(os.path.join(folder, "streams"), encoding="utf-8") as file:
        for line in file:
            volume, number, path, entry, stream = line.rstrip("\n").split("\t")
            orders[volume, number] = Order(path, int(entry), stream)
    return orders


class Result:
    def __init__(self):
        self.counts, self.wrong, self.judged, self.sound = collections.Counter(), [], 0, set()


def run_part(program, folder, cases, part, parts):
    """One process that damages and copies, and its copies judged."""
    result, orders, images = Result(), read_orders(folder), {}
    with subprocess.Popen([program, "run", str(cases), str(part), str(parts)], stdout=subprocess.PIPE, text=True) as run:
        for text in run.stdout:
            if text.startswith("cases "):
                words = text.split()
                result.counts.update(dict(zip(words[::2], map(int, words[1::2]))))
                continue
            line = text.rstrip("\n").split("\t")
            volume, order = line[1], orders[line[1], line[2]]
            if volume not in images:
                with open(os.path.join(folder, volume + ".img"), "rb") as file:
                    images[volume] = file.read()
            words = line[5] if len(line) > 5 else ""
            reason = judge(damaged(images[volume], words) if words else images[volume], order, line)
            result.judged += 1
            if line[0] == "sound":
                result.sound.add((volume, line[2]))
            if reason:
                result.wrong.append(f"{volume}, {order}, {words or 'sound'}: {reason}")
    if run.returncode != 0 or "cases" not in result.counts:
        result.wrong.append(f"part {part} of {parts} ended with {run.returncode}")
    if result.sound != set(orders):
        result.wrong.append(f"part {part} of {parts} copied {len(result.sound)} of {len(orders)} sound streams")
    return result


def run(program, cases, parts, out=sys.stdout):
    """Runs the cases in so many processes; gives the sum."""
    total = Result()
    with tempfile.TemporaryDirectory(prefix="damage") as folder:
        subprocess.run([program, "write", folder], check=True)
        with concurrent.futures.ProcessPoolExecutor(parts) as pool:
            running = [pool.submit(run_part, program, folder, cases, part, parts) for part in range(parts)]
            for each in running:
                result = each.result()
                total.counts.update(result.counts)
                total.wrong += result.wrong
                total.judged += result.judged
    counts = total.counts
    print(f"{counts['cases']} cases; copies: {counts['complete']} complete with the same bytes, {counts['other']} complete "
          f"with other bytes, {counts['large']} of more bytes than are compared, {counts['failed']} failed, "
          f"{counts['doubt']} in doubt; {total.judged} judged by the second reader, {len(total.wrong)} wrong", file=out)
    for words in total.wrong[:SHOWN]:
        print("WRONG: " + words[:400], file=out)
    return total


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--program", required=True, help="exact_damage, of the same build")
    parser.add_argument("--cases", type=int, default=20000)
    parser.add_argument("--parts", type=int, default=os.cpu_count())
    arguments = parser.parse_args()
    return 1 if run(arguments.program, arguments.cases, arguments.parts).wrong else 0


if __name__ == "__main__":
    sys.exit(main())
