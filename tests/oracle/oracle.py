#!/usr/bin/env python3
"""Holds `quarry -exact` against every other reader of NTFS that is at hand, and against a second reader of its own.

Usage: oracle.py --quarry PROGRAM [--only READER]... [--largest BYTES] [--verbose] FOLDER-or-IMAGE...

For each NTFS volume of each image, bare or in a partition: every stream of every entry in use by `quarry -exact`,
ntfscat, libfsntfs, a read-only mount by ntfs-3g, the default mode, and the reader in plain_ntfs.py; and every name of
every entry, as it is stored, in upper and in lower case. A difference is sorted into the table of reasons.py. Printed at
the end: how much was compared with whom, how often each reason was the case, each difference without a reason.

Status: 0 if every difference has a reason, 1 if one has none, 2 if there was nothing to compare or a tool is missing.
"""

import argparse
import collections
import hashlib
import os
import shutil
import subprocess
import sys
import time

import facts as of_volume
import readers
import reasons
from codecs_of_ntfs import Bad
from readers import Answer

LARGEST = 1 << 30
SHOWN = 20  # differences without a reason that are shown in full
READERS = ("second reader", "ntfscat", "libfsntfs", "ntfs-3g mount", "quarry")
TOOLS = ("ntfscat", "ntfs-3g", "umount")


Options = collections.namedtuple("Options", "largest only")


class Tally:
    def __init__(self):
        self.agreed, self.refused = collections.Counter(), collections.Counter()
        self.explained = collections.Counter()
        self.unexplained = []
        self.volumes = self.streams = self.names = self.spellings = self.too_large = 0

    def fail(self, where, words):
        self.unexplained.append(f"{where}: {words}")

    def report(self, out):
        print(f"{self.volumes} volumes, {self.streams} streams, {self.names} names in {self.spellings} spellings", file=out)
        if self.too_large:
            print(f"not compared: {self.too_large} streams that are larger than the limit", file=out)
        for reader in sorted(self.agreed.keys() | self.refused.keys()):
            print(f"{reader}: {self.agreed[reader]} agree, {self.refused[reader]} refused by both", file=out)
        sentences = {reason.key: reason.sentence for reason in (*reasons.STREAM_REASONS, *reasons.NAME_REASONS)}
        for (reader, key), count in sorted(self.explained.items()):
            print(f"{count:6} {reader}: {sentences[key]}", file=out)
        for words in self.unexplained[:SHOWN]:
            print("NO REASON: " + words, file=out)
        if self.unexplained:
            print(f"{len(self.unexplained)} differences have no reason", file=out)


class Plain:
    """The second reader, with the face of the others."""

    name = "second reader"

    def __init__(self, facts):
        self.facts = facts

    def answer(self, stream):
        sha, size = hashlib.sha256(), 0
        self.facts.volume.doubt = False
        try:
            for part in self.facts.files[stream.entry].parts(stream.name):
                sha.update(part)
                size += len(part)
        except Bad as reason:
            return readers.refused(str(reason))
        return Answer("doubt" if self.facts.volume.doubt else "complete", sha.hexdigest(), size, None, "")

    def answers(self, streams):
        return {stream: self.answer(stream) for stream in streams}

    def content(self, stream):
        return self.facts.files[stream.entry].content(stream.name)


def compare_streams(given, facts, exact, others, tally, largest):
    streams = [stream for stream in facts.streams if facts.size(stream) <= largest]
    tally.streams += len(streams)
    tally.too_large += len(facts.streams) - len(streams)
    ours = exact.answers(streams)
    for reader in others:
        theirs = reader.answers(streams)
        for stream in streams:
            compare(given, reasons.Case(facts, stream, reader, exact, ours[stream], theirs[stream]), tally)


def compare(given, case, tally):
    name = case.reader.name
    if case.exact.state == case.other.state == "refused":
        tally.refused[name] += 1
    elif case.exact.sha256 == case.other.sha256:
        tally.agreed[name] += 1
    else:
        for reason in reasons.STREAM_REASONS:
            if name in reason.readers and reason.when == case.when and reason.holds(case):
                tally.explained[name, reason.key] += 1
                return
        tally.fail(given.title, f"{name}: entry {case.stream.order} {case.stream.file_path}: "
                   f"exact {tuple(case.exact)}, {name} {tuple(case.other)}")


def compare_names(given, facts, exact, mount, tally):
    names = list(facts.names())
    tally.names += len(names)
    for spelling in (lambda steps: steps, facts.upper, facts.lower):
        spelt = [(entry, steps, spelling(steps)) for entry, steps, _ in names]
        tally.spellings += len(spelt)
        found = exact.entries_of([of_volume.canonical(wanted) for _, _, wanted in spelt])
        for (entry, steps, wanted), answer in zip(spelt, found):
            if answer != entry:
                explain_name(given, NameCase(facts, names, entry, steps, wanted, answer), tally)
    long_names = {(entry, of_volume.canonical(steps)) for entry, steps, is_dos in names if not is_dos}
    for entry, path in sorted(exact.listed() ^ long_names):
        tally.fail(given.title, f"-list has entry {entry} {path} and the volume has not, or the other way round")
    if mount is None or mount.names() is None:
        return
    theirs = mount.names()
    paths = {of_volume.host_path(steps): entry for entry, steps, is_dos in names if not is_dos}
    for path in sorted(theirs - paths.keys()):
        tally.fail(given.title, f"the mount lists {path}, which no $FILE_NAME has")
    for path in sorted(paths.keys() - theirs):
        if paths[path] == 0:  # a directory of the host cannot show it
            tally.explained["ntfs-3g mount", "mft-by-name"] += 1
        else:
            tally.fail(given.title, f"the mount does not list {path}")


class NameCase:
    """A spelling of a name that does not lead to the entry that has the name."""

    def __init__(self, facts, names, entry, steps, wanted, answer):
        self.facts, self.names, self.entry, self.steps, self.wanted, self.answer = facts, names, entry, steps, wanted, answer

    def spelt_so(self):
        """Entries whose name is spelt as it was wanted."""
        return [entry for entry, steps, _ in self.names if steps == self.wanted]

    def has_twins(self):
        """Whether other names on the way differ from these only in case."""
        own = [self.facts.folded(self.steps[:count]) for count in range(1, len(self.steps) + 1)]
        return any(sum(self.facts.folded(steps) == wanted for _, steps, _ in self.names) > 1 for wanted in own)

    def is_case_sensitive(self):
        """Whether one of the directories on the way is."""
        above = [entry for entry, steps, _ in self.names if steps == self.steps[:len(steps)]]
        return any(self.facts.files[entry].is_case_sensitive() for entry in above)


def explain_name(given, case, tally):
    for reason in reasons.NAME_REASONS:
        if "names" in reason.readers and reason.holds(case):
            tally.explained["names", reason.key] += 1
            return
    tally.fail(given.title, f"{of_volume.canonical(case.wanted)} leads to {case.answer}, not to entry {case.entry}")


def compare_volume(program, given, scratch, tally, options):
    tally.volumes += 1
    facts = of_volume.Facts(given.plain)
    exact = readers.Exact(program, given, scratch)
    with readers.Mount(given, scratch) as mount:
        others = [reader for reader in (Plain(facts), readers.Ntfscat(given), readers.Libfsntfs(given, scratch), mount,
                                        readers.Default(program, given, scratch)) if reader.name in options.only]
        compare_streams(given, facts, exact, others, tally, options.largest)
        compare_names(given, facts, exact, mount if mount in others else None, tally)
    facts.close()


def volumes_of(program, image, scratch):
    """The volumes of an image; those of a disk are taken out for the readers that know no partitions."""
    found = readers.volumes_in(program, image)
    if found is None:
        yield of_volume.Given(image, [], image, image)
        return
    for number, offset in found:
        alone = os.path.join(scratch, "volume.img")
        of_volume.take_out(image, offset, volume_size(image, offset), alone)
        yield of_volume.Given(image, ["-ntfsvol", str(number)], alone, f"{image}, volume {number}")
        os.unlink(alone)


def volume_size(image, offset):
    with open(image, "rb") as file:
        file.seek(offset)
        boot = file.read(512)
    # And the sector after it, which holds the boot sector once more.
    return (int.from_bytes(boot[40:48], "little") + 1) * int.from_bytes(boot[11:13], "little")


def images_of(arguments):
    for argument in arguments:
        if not os.path.isdir(argument):
            yield argument
            continue
        for folder, _, files in sorted(os.walk(argument)):
            for name in sorted(files):
                yield os.path.join(folder, name)


def missing_tools():
    found = [tool for tool in TOOLS if not shutil.which(tool, path=readers.SYSTEM_PATH)]
    if subprocess.run([readers.PYTHON, "-c", "import pyfsntfs"], capture_output=True, check=False).returncode != 0:
        found.append("python3-libfsntfs")
    if os.geteuid() != 0 or not os.path.exists("/dev/fuse"):
        found.append("root and /dev/fuse, for a mount")
    return found


def run(program, images, out=sys.stdout, largest=LARGEST, verbose=False, only=READERS):
    """Compares all volumes of these images with these readers; gives the tally."""
    tally, options = Tally(), Options(largest, only)
    for image in images:
        with readers.scratch_folder() as scratch:
            for number, given in enumerate(volumes_of(program, image, scratch)):
                folder = os.path.join(scratch, str(number))
                os.mkdir(folder)
                begin = time.monotonic()
                try:
                    compare_volume(program, given, folder, tally, options)
                except (Bad, RuntimeError) as reason:
                    tally.fail(given.title, str(reason))
                if verbose:
                    print(f"{given.title}: {time.monotonic() - begin:.1f} s", file=sys.stderr)
                shutil.rmtree(folder)
    tally.report(out)
    return tally


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--quarry", required=True, help="the program")
    parser.add_argument("--largest", type=int, default=LARGEST, help="bytes of a stream; larger ones are not compared")
    parser.add_argument("--only", action="append", choices=READERS, help="compare with this reader; may be repeated")
    parser.add_argument("--verbose", action="store_true", help="print each volume and the time that it took")
    parser.add_argument("images", nargs="+", help="images, and folders in which every file is one")
    arguments = parser.parse_args()
    missing = missing_tools()
    if missing:
        print("missing: " + ", ".join(missing), file=sys.stderr)
        return 2
    tally = run(arguments.quarry, list(images_of(arguments.images)), largest=arguments.largest,
                verbose=arguments.verbose, only=arguments.only or READERS)
    if tally.volumes == 0:
        print("no NTFS volume in these images", file=sys.stderr)
        return 2
    return 1 if tally.unexplained else 0


if __name__ == "__main__":
    sys.exit(main())
