#!/usr/bin/env python3
"""Measures quarry beside the tools that people use today.

Each case runs its commands in turn, several times over, and compares the medians of their wall times in that
one run. A ratio of 2.00 says that the other tool needs twice the time of quarry. Everything lies on a memory
file system and has been read before, so the disk plays no part. Only the cold cases read an image on a disk, put out
of memory before each run. Needs root (ntfs-3g mounts, gated options).

Usage: compare.py --quarry PROGRAM --writer PROGRAM [--work DIR] [--runs N] [--small] [--results] [CASE...]
"""

import argparse
import pathlib
import shlex
import subprocess

import growth
import measure
import results
import volumes as v
from volumes import GIB, MIB


class Cases:
    """One method for each case; `scale` divides every size."""

    def __init__(self, options):
        self.quarry = str(pathlib.Path(options.quarry).resolve())
        self.volumes = v.Volumes(options.work, options.writer)
        self.bench = measure.Bench(options.work, options.runs)
        self.scale = 16 if options.small else 1
        self.disk = pathlib.Path(options.disk)

    def plain_copy(self, image, path):
        plain = self.volumes.directory / "plain"
        subprocess.run(f"{self.quarry} -image {image} -src {path} -dst {plain} -quiet >/dev/null", shell=True, check=True)
        return plain

    def copy_commands(self, image, inode, path, plain=None):
        commands = {
            "quarry": f"{self.quarry} -image {image} -src {path} -dst copy -quiet",
            "quarry -exact": f"{self.quarry} -exact -image {image} -src {path} -dst copy -quiet",
            "icat": f"icat {image} {inode} > copy",
            "ntfscat": f"ntfscat {image} {path} > copy",
        }
        if plain is not None:
            commands["dd bs=64K"] = f"dd if={plain} of=copy bs=64K status=none"
            commands["cp"] = f"cp --reflink=never --sparse=never {plain} copy"
        return commands

    def contiguous(self):
        size = 2 * GIB // self.scale
        for cluster, dd in ((512, 0.8), (4096, 0.95), (65536, 0.95)):
            name = f"contiguous{cluster}"
            image, facts = self.volumes.get(name, size + size // 8 + 64 * MIB, cluster, v.fill_contiguous(size))
            plain = self.plain_copy(image, "/big.bin")
            self.bench.compare(f"{size // MIB} MiB, clusters of {cluster}",
                               self.copy_commands(image, facts["big"], "/big.bin", plain),
                               {"dd bs=64K": dd, "ntfscat": 1.0, "icat": 1.5}, most_memory=32)
            self.volumes.drop(name)
            plain.unlink()

    def small(self):
        """Start, open, read, exit: many times over, so that the shell's own start does not count."""
        image, facts = self.volumes.get("small", 64 * MIB, 4096, v.fill_contiguous(16 * MIB))
        entry = facts["small"]

        def often(command):
            return f"for ((i = 0; i < 100; i++)); do {command}; done"
        quarry = f"{self.quarry} -image {image} -mft {entry} -dst copy -quiet"
        self.bench.compare("1 KiB by entry, 100 times", {
            "quarry": often(quarry),
            "quarry -exact": often(f"{self.quarry} -exact -image {image} -mft {entry} -dst copy -overwrite -quiet"),
            "ntfscat": often(f"ntfscat -i {entry} {image} > copy"),
            "icat": often(f"icat {image} {entry} > copy"),
        }, {"ntfscat": 1.0}, most_memory=32)
        # A tenth of a start may go into the report. Its cost is measured on a volume with one security descriptor, since
        # what many of them cost is a case of its own.
        image, entry, _ = self.volumes.written("security", 1)
        quarry = f"{self.quarry} -image {image} -mft {entry} -dst copy -quiet"
        self.bench.compare("with a report, 100 times", {
            "quarry -meta": often(quarry + " -meta"),
            "quarry": often(quarry),
        }, {"quarry": 1 / 1.1}, most_memory=32)

    def fragments(self):
        size, count = 512 * MIB // self.scale, 20000 // self.scale
        image, facts = self.volumes.get("fragments", size * 2 + 256 * MIB, 4096, v.fill_fragments(size, count))
        plain = self.plain_copy(image, "/frag.bin")
        self.bench.compare(f"{size // MIB} MiB in {count} fragments",
                           self.copy_commands(image, facts["frag"], "/frag.bin", plain),
                           {"ntfscat": 1.0, "icat": 1.5}, most_memory=32)

    def runs(self):
        count = 1_000_000 // self.scale
        image, entry = self.volumes.written("runs", count)
        # The others refuse so many runs or stop in the middle: they are compared on a twentieth.
        copy = f"-image {image} -src /runs.bin -dst copy -quiet"
        self.bench.compare(f"{count} runs of one cluster of 512", {
            "quarry": f"{self.quarry} {copy}", "quarry -exact": f"{self.quarry} -exact {copy}"})
        image, entry = self.volumes.written("runs", count // 20)
        self.bench.compare(f"{count // 20} runs of one cluster of 512",
                           self.copy_commands(image, entry, "/runs.bin"), {"ntfscat": 1.0, "icat": 1.5}, most_memory=32)

    def compressed(self):
        size = 256 * MIB // self.scale
        image, facts = self.volumes.get("compressed", size + 128 * MIB, 4096, v.fill_compressed(size), "compression")
        self.bench.compare(f"{size // MIB} MiB compressed",
                           self.copy_commands(image, facts["text"], "/packed/text.log"),
                           {"icat": 2.5, "ntfscat": 8}, most_memory=32)

    def md5(self):
        size = 512 * MIB // self.scale
        image, facts = self.volumes.get("md5", size + 256 * MIB, 4096, v.fill_contiguous(size))
        inode = facts["big"]
        copy = f"{self.quarry} -image {image} -src /big.bin -dst copy -quiet"
        self.bench.compare(f"{size // MIB} MiB with its MD5", {
            "quarry -md5": copy + " -md5",
            "quarry -exact": f"{self.quarry} -exact -image {image} -src /big.bin -dst copy -quiet -md5",
            "copy, md5sum": f"{copy} && md5sum copy",
            "icat|tee|md5sum": f"icat {image} {inode} | tee copy | md5sum",
            "icat|md5sum": f"icat {image} {inode} | md5sum",
        }, {"copy, md5sum": 1 / 1.05, "icat|tee|md5sum": 1.3}, most_memory=32)

    def directory(self):
        count = 100_000 // self.scale
        image, facts = self.volumes.get("directory", 1 * GIB, 4096, v.fill_directory(count))
        path = f"/many/file{count - 1:06d}.txt"
        self.bench.compare(f"one path among {count}", {
            "quarry": f"{self.quarry} -image {image} -src {path} -dst copy -quiet",
            "quarry -exact": f"{self.quarry} -exact -image {image} -src {path} -dst copy -quiet",
            "dd of records": f"dd if={image} of=copy bs=1024 count={count} status=none",
            "ntfscat": f"ntfscat {image} {path} > copy",
        }, {"dd of records": 1 / 6})
        self.bench.compare(f"{count} files listed", {
            "quarry": f"{self.quarry} -exact -image {image} -list / -recurse > copy",
            "fls": f"fls -r -p {image} > copy",
        }, {"fls": 1.0}, most_memory=32)
        paths = self.volumes.directory / "paths"
        wanted = range(0, count, max(1, count // 2000))
        paths.write_text("".join(f"/many/file{n:06d}.txt\n" for n in wanted), encoding="utf-8")
        self.bench.compare(f"{len(wanted)} paths in one run", {
            "quarry": f"{self.quarry} -image {image} -pipe -dst ./ -quiet < {paths}",
            "quarry -exact": f"{self.quarry} -exact -image {image} -pipe -dst ./ -quiet < {paths}",
            "ntfscat": f"while read -r p; do ntfscat {image} $p > copy; done < {paths}",
        }, {"ntfscat": 20})

    def exact(self):
        """The exact mode beside the default and the others: a plain copy, compressed bytes, one name among many."""
        size = 512 * MIB // self.scale
        image, _ = self.volumes.get("md5", size + 256 * MIB, 4096, v.fill_contiguous(size))
        self.bench.compare(f"{size // MIB} MiB with -exact", self.exact_commands(image, "/big.bin"),
                           {"quarry": 0.95}, most_memory=32)
        size = 256 * MIB // self.scale
        image, _ = self.volumes.get("compressed", size + 128 * MIB, 4096, v.fill_compressed(size), "compression")
        self.bench.compare(f"{size // MIB} MiB compressed with -exact", self.exact_commands(image, "/packed/text.log"),
                           {"quarry": 1.0, "ntfscat": 8}, most_memory=32)
        count = 100_000 // self.scale
        image, _ = self.volumes.get("directory", 1 * GIB, 4096, v.fill_directory(count))
        commands = self.exact_commands(image, f"/many/file{count - 1:06d}.txt")
        self.bench.compare(f"one path among {count} with -exact", commands, {"ntfscat": 1.0}, most_memory=32)

    def exact_digests(self):
        """A digest runs beside the copy: both take no longer than the slower of the two."""
        size = 512 * MIB // self.scale
        image, facts = self.volumes.get("md5", size + 256 * MIB, 4096, v.fill_contiguous(size))
        plain = self.plain_copy(image, "/big.bin")
        copy = f"{self.quarry} -exact -image {image} -src /big.bin -dst copy -quiet"
        self.bench.compare(f"{size // MIB} MiB with its MD5, -exact", {
            "quarry -exact": copy + " -md5",
            "icat|tee|md5sum": f"icat {image} {facts['big']} | tee copy | md5sum",
            "md5sum": f"md5sum {plain}",
            "no digest": copy,
        }, {"icat|tee|md5sum": 1.3}, most_memory=32)
        self.bench.compare(f"{size // MIB} MiB with its SHA-256, -exact", {
            "quarry -exact": copy + " -sha256",
            "slower of both": f"{copy} & sha256sum {plain}; wait",
            "copy, sha256sum": f"{copy} && sha256sum copy",
            "sha256sum": f"sha256sum {plain}",
            "no digest": copy,
        }, {"slower of both": 1 / 1.05}, most_memory=32)
        plain.unlink()

    def workers(self):
        """Files that the system compressed: chunks are decoded by as many workers as -threads says."""
        size = 256 // self.scale
        for codec, least in (("xpress", 300), ("lzx", 150)):
            image, entry = self.volumes.written(codec, size)
            copy = f"{self.quarry} -exact -image {image} -mft {entry} -dst copy -quiet"
            medians = self.bench.compare(f"{size} MiB of {codec}", {
                "-threads 2": copy + " -threads 2",
                "-threads 1": copy + " -threads 1",
            }, {"-threads 1": 1.8}, most_memory=32)
            print(f"{codec}: {size * MIB / medians['-threads 1'] / 1e6:.0f} MB/s on one core, at least {least}", flush=True)

    def names(self):
        """A listing takes the same memory for any number of names."""
        for count in (100_000 // self.scale, 1_000_000 // self.scale):
            image, _ = self.volumes.written("names", count)
            self.bench.compare(f"{count} names listed", {
                "quarry -exact": f"{self.quarry} -exact -image {image} -list / -recurse > copy"}, most_memory=10)

    def exact_commands(self, image, path):
        copy = f"-image {image} -src {path} -dst copy -quiet"
        return {"quarry -exact": f"{self.quarry} -exact {copy}", "quarry": f"{self.quarry} {copy}",
                "ntfscat": f"ntfscat {image} {path} > copy"}

    def on_disk(self):
        """Volumes on a disk file system; nothing, with a word, where there is none."""
        self.disk.mkdir(parents=True, exist_ok=True)
        kind = subprocess.run(["stat", "-f", "-c", "%T", str(self.disk)], check=True, capture_output=True,
                              text=True).stdout.strip()
        if kind in ("tmpfs", "ramfs", "overlayfs"):
            print(f"skipped: {self.disk} is {kind}, which is no disk; name a directory on one with --disk")
            return None
        return v.Volumes(self.disk.resolve(), self.volumes.writer)

    def cold(self, image, commands):
        """Each command with the image put out of memory first; the first once more without announcements."""
        silent = measure.without_announcements(self.disk)
        own = next(iter(commands))
        every = {own: commands[own], "silent": f"LD_PRELOAD={silent} {commands[own]}", **commands}
        return {tool: measure.Command(command, lambda: measure.evict(image)) for tool, command in every.items()}

    def cold_fragments(self):
        """A file in fragments of one cluster on a disk, none of it in memory."""
        volumes, count = self.on_disk(), 20000 // self.scale
        if volumes is None:
            return
        image, entry = volumes.written("fragments", count)
        commands = {"quarry -exact": f"{self.quarry} -exact -image {image} -mft {entry} -dst copy -quiet",
                    "icat": f"icat {image} {entry} > copy", "ntfscat": f"ntfscat -i {entry} {image} > copy"}
        self.bench.compare(f"cold: {count} fragments", self.cold(image, commands),
                           {"silent": 3.0, "icat": 3.0, "ntfscat": 3.0}, most_memory=32)

    def cold_list(self):
        """One in twenty names of a large directory, in one run. The copies go to memory: on a disk two syncs for each would be most of the time."""
        volumes, count = self.on_disk(), 2000 // self.scale
        if volumes is None:
            return
        image, first = volumes.written("scattered", count)
        paths, entries = self.volumes.directory / "cold-paths", self.volumes.directory / "cold-entries"
        # In an order that has nothing to do with that on the disk.
        order = [number * 7919 % count for number in range(count)]
        paths.write_text("".join(f"/many/f{20 * number:06d}\n" for number in order), encoding="utf-8")
        entries.write_text("".join(f"{first + 20 * number}\n" for number in order), encoding="utf-8")
        commands = {"quarry -exact": f"{self.quarry} -exact -image {image} -pipe -dst ./ -quiet < {paths}",
                    "icat": f"while read -r n; do icat {image} $n > copy; done < {entries}",
                    "ntfscat": f"while read -r p; do ntfscat {image} $p > copy; done < {paths}"}
        self.bench.compare(f"cold: {count} paths in one run", self.cold(image, commands),
                           {"silent": 3.0, "icat": 3.0, "ntfscat": 3.0}, most_memory=32)

    def vmdk(self):
        size = 512 * MIB // self.scale
        image, _ = self.volumes.get("md5", size + 256 * MIB, 4096, v.fill_contiguous(size))
        disk = self.volumes.converted(image)
        chain = self.volumes.chain(image, 12)
        listed = shlex.quote("|".join(map(str, chain)))
        self.bench.compare(f"{size // MIB} MiB through virtual disks", {
            "quarry -vmdk": f"{self.quarry} -vmdk {disk} -src /big.bin -dst copy -quiet",
            "quarry -exact": f"{self.quarry} -exact -vmdk {disk} -src /big.bin -dst copy -quiet",
            "raw image": f"{self.quarry} -image {image} -src /big.bin -dst copy -quiet",
        }, {"raw image": 1 / 1.25})
        self.bench.compare(f"{size // MIB} MiB through a chain of 12", {
            "quarry -vmdk": f"{self.quarry} -vmdk {listed} -src /big.bin -dst copy -quiet",
            "quarry -exact": f"{self.quarry} -exact -vmdk {listed} -src /big.bin -dst copy -quiet",
            "raw image": f"{self.quarry} -image {image} -src /big.bin -dst copy -quiet",
        }, {"raw image": 1 / 1.25})

    def vmdk_open(self):
        """A virtual disk of 2 TiB on which little was written: its tables are most of it."""
        size = 2048 * GIB // self.scale
        disk, entry, tables = self.volumes.huge_disk(size)
        self.bench.compare(f"opening {size // GIB} GiB of few grains", {
            "quarry -vmdk": f"{self.quarry} -vmdk {disk} -mft {entry} -dst copy -quiet",
            "dd of the tables": f"dd if={disk} of=/dev/null bs=64K count={tables // 65536} status=none",
        }, {"dd of the tables": 1 / 3}, most_memory=4 * (size // 65536) / MIB + 32)

    def security(self):
        count = 100_000 // self.scale
        image, entry, size = self.volumes.written("security", count)
        self.bench.compare(f"a report with {count} descriptors", {
            "quarry -meta": f"{self.quarry} -image {image} -mft {entry} -dst copy -meta -quiet",
            "dd of $SDS": f"dd if={image} of=copy bs=64K count={size // 65536} status=none",
        }, {"dd of $SDS": 1 / 30}, most_memory=150)


CASES = ("contiguous", "small", "fragments", "runs", "compressed", "md5", "directory", "exact", "exact_digests",
         "workers", "names", "cold_fragments", "cold_list", "vmdk", "vmdk_open", "security")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--quarry", required=True)
    parser.add_argument("--writer", required=True, help="write_bench_volume")
    parser.add_argument("--work", default="/dev/shm/quarry-bench")
    parser.add_argument("--disk", default="build/cold", help="where the images of the cold cases are; on a disk")
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("--small", action="store_true", help="a sixteenth of every size, for trying the script")
    parser.add_argument("--results", action="store_true", help="write bench/RESULTS.md: the last figures of each case")
    parser.add_argument("--plots", action="store_true", help="measure how the cost grows and draw bench/plots/*.svg")
    parser.add_argument("cases", nargs="*", metavar="CASE", help=", ".join(CASES))
    options = parser.parse_args()
    cases = Cases(options)
    missed = []
    for case in options.cases or ([] if options.plots else CASES):
        cases.bench.rows.clear()
        getattr(cases, case)()
        missed += [row for row in cases.bench.rows if not row.met]
        results.keep(case, cases.bench.rows, options)
    if options.results:
        results.write(CASES, options)
    if options.plots:
        growth.draw(cases)
    for row in missed:
        print(f"missed: {measure.text_of(row)}")
    return 1 if missed else 0


if __name__ == "__main__":
    raise SystemExit(main())
