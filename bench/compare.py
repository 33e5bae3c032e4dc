#!/usr/bin/env python3
"""Measures quarry beside the tools that people use today, and prints a table of ratios.

Each case runs its commands in turn, several times over, and compares the medians of their wall times in that
one run. A ratio of 2.00 says that the other tool needs twice the time of quarry. Everything lies on a memory
file system and has been read before, so the disk plays no part. Needs root (ntfs-3g mounts, gated options).

Usage: compare.py --quarry PROGRAM [--work DIR] [--runs N] [--small] [CASE...]
"""

import argparse
import pathlib
import statistics
import subprocess
import sys
import time

import volumes as v
from volumes import GIB, MIB


class Bench:
    def __init__(self, options):
        self.quarry = str(pathlib.Path(options.quarry).resolve())
        self.volumes = v.Volumes(options.work)
        self.out = pathlib.Path(options.work) / "out"
        self.runs = options.runs
        self.scale = 16 if options.small else 1
        self.rows = []

    def run_once(self, command):
        """Wall seconds and peak memory in KiB of one shell command, its output below self.out."""
        subprocess.run(["rm", "-rf", str(self.out)], check=True)
        self.out.mkdir()
        note = pathlib.Path(self.volumes.directory) / "memory"
        begin = time.perf_counter()
        status = subprocess.run(["/usr/bin/time", "-q", "-f", "%M", "-o", str(note), "bash", "-c", "exec " + command],
                                cwd=self.out, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False)
        seconds = time.perf_counter() - begin
        return seconds, int(note.read_text(encoding="utf-8").split()[-1]), status.returncode

    def compare(self, case, commands, loop=1):
        """Runs the commands in alternation; the first one is quarry's."""
        times = {name: [] for name in commands}
        memory = {name: 0 for name in commands}
        for command in commands.values():  # warm
            if self.run_once(command)[2] != 0:
                print(f"{case}: fails: {command}", file=sys.stderr)
        for _ in range(self.runs):
            for name, command in commands.items():
                seconds, peak = 0.0, 0
                for _ in range(loop):
                    once, peak_once, _ = self.run_once(command)
                    seconds, peak = seconds + once, max(peak, peak_once)
                times[name].append(seconds / loop)
                memory[name] = max(memory[name], peak)
        mine = statistics.median(times["quarry"])
        for name in commands:
            median = statistics.median(times[name])
            self.rows.append((case, name, median, median / mine, memory[name] / 1024))
            print(f"{case:34} {name:12} {median * 1000:10.1f} ms {median / mine:8.2f} x {memory[name] / 1024:8.1f} MiB",
                  flush=True)

    def copy_commands(self, image, inode, path, plain):
        commands = {
            "quarry": f"{self.quarry} -image {image} -src {path} -dst copy -quiet",
            "icat": f"icat {image} {inode} > copy",
            "ntfscat": f"ntfscat {image} {path} > copy",
        }
        if plain is not None:
            commands["dd bs=64K"] = f"dd if={plain} of=copy bs=64K status=none"
            commands["cp"] = f"cp --reflink=never --sparse=never {plain} copy"
        return commands

    def plain_copy(self, image, path):
        plain = pathlib.Path(self.volumes.directory) / "plain"
        subprocess.run(f"{self.quarry} -image {image} -src {path} -dst {plain} -quiet >/dev/null", shell=True, check=True)
        return plain

    def contiguous(self):
        size = 2 * GIB // self.scale
        for cluster in (512, 4096, 65536):
            name = f"contiguous{cluster}"
            image, facts = self.volumes.get(name, size + size // 8 + 64 * MIB, cluster, v.fill_contiguous(size))
            plain = self.plain_copy(image, "/big.bin")
            self.compare(f"{size // MIB} MiB, clusters of {cluster}",
                         self.copy_commands(image, facts["big"], "/big.bin", plain))
            self.volumes.drop(name)
            plain.unlink()

    def small(self):
        image, facts = self.volumes.get("small", 64 * MIB, 4096, v.fill_contiguous(16 * MIB))
        self.compare("1 KiB by entry", {
            "quarry": f"{self.quarry} -image {image} -mft {facts['small']} -dst copy -quiet",
            "ntfscat": f"ntfscat -i {facts['small']} {image} > copy",
            "icat": f"icat {image} {facts['small']} > copy",
        }, loop=20)

    def fragments(self):
        size, count = 512 * MIB // self.scale, 20000 // self.scale
        image, facts = self.volumes.get("fragments", size * 2 + 256 * MIB, 4096, v.fill_fragments(size, count))
        plain = self.plain_copy(image, "/frag.bin")
        self.compare(f"{size // MIB} MiB in {count} fragments",
                     self.copy_commands(image, facts["frag"], "/frag.bin", plain))

    def compressed(self):
        size = 256 * MIB // self.scale
        image, facts = self.volumes.get("compressed", size + 128 * MIB, 4096, v.fill_compressed(size), "compression")
        self.compare(f"{size // MIB} MiB compressed",
                     self.copy_commands(image, facts["text"], "/packed/text.log", None))

    def md5(self):
        size = 512 * MIB // self.scale
        image, facts = self.volumes.get("md5", size + 256 * MIB, 4096, v.fill_contiguous(size))
        inode = facts["big"]
        plain = self.plain_copy(image, "/big.bin")
        copy = f"{self.quarry} -image {image} -src /big.bin -dst copy -quiet"
        self.compare(f"{size // MIB} MiB with its MD5", {
            "quarry": copy + " -md5",
            "copy+md5sum": f"bash -c '{copy} && md5sum copy'",
            "md5sum": f"md5sum {plain}",
            "icat|tee|md5": f"bash -c 'icat {image} {inode} | tee copy | md5sum'",
        })

    def directory(self):
        count = 100000 // self.scale
        image, facts = self.volumes.get("directory", 1 * GIB, 4096, v.fill_directory(count))
        path = f"/many/file{count - 1:06d}.txt"
        self.compare(f"one path among {count}", {
            "quarry": f"{self.quarry} -image {image} -src {path} -dst copy -quiet",
            "dd of records": f"dd if={image} of=copy bs=1024 count={count} status=none",
            "ntfscat": f"ntfscat {image} {path} > copy",
        })
        paths = pathlib.Path(self.volumes.directory) / "paths"
        wanted = range(0, count, max(1, count // 2000))
        paths.write_text("".join(f"/many/file{n:06d}.txt\n" for n in wanted), encoding="utf-8")
        self.compare(f"{len(wanted)} paths in one run", {
            "quarry": f"{self.quarry} -image {image} -pipe -dst ./ -quiet < {paths}",
            "ntfscat": f"bash -c 'while read p; do ntfscat {image} $p > copy; done < {paths}'",
        })

    def vmdk(self):
        size = 512 * MIB // self.scale
        image, facts = self.volumes.get("md5", size + 256 * MIB, 4096, v.fill_contiguous(size))
        disk = pathlib.Path(self.volumes.directory) / "md5.vmdk"
        if not disk.exists():
            subprocess.run(["qemu-img", "convert", "-f", "raw", "-O", "vmdk", "-o", "subformat=monolithicSparse",
                            str(image), str(disk)], check=True)
        self.compare(f"{size // MIB} MiB through VMDK", {
            "quarry": f"{self.quarry} -image {image} -src /big.bin -dst copy -quiet",
            "quarry -vmdk": f"{self.quarry} -vmdk {disk} -src /big.bin -dst copy -quiet",
        })


CASES = ("contiguous", "small", "fragments", "compressed", "md5", "directory", "vmdk")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--quarry", required=True)
    parser.add_argument("--work", default="/dev/shm/quarry-bench")
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("--small", action="store_true", help="a sixteenth of every size, for trying the script")
    parser.add_argument("cases", nargs="*", metavar="CASE", help=", ".join(CASES))
    options = parser.parse_args()
    bench = Bench(options)
    for case in options.cases or CASES:
        getattr(bench, case)()


if __name__ == "__main__":
    main()
