"""Volumes for the benchmarks: made once with mkntfs and ntfs-3g, kept for later runs."""

import os
import pathlib
import random
import shutil
import struct
import subprocess
import time

KIB, MIB, GIB = 1 << 10, 1 << 20, 1 << 30


class Mount:
    """A volume mounted read-write through ntfs-3g for as long as the block runs."""

    def __init__(self, image, options=""):
        self.image, self.options = image, options
        self.point = pathlib.Path(str(image) + ".mnt")

    def __enter__(self):
        self.point.mkdir(exist_ok=True)
        options = ",".join(filter(None, ["no_detach", self.options]))
        self.process = subprocess.Popen(["ntfs-3g", str(self.image), str(self.point), "-o", options])
        while not os.path.ismount(self.point):
            if self.process.poll() is not None:
                raise RuntimeError(f"cannot mount {self.image}")
            time.sleep(0.01)
        return self.point

    def __exit__(self, *_):
        subprocess.run(["umount", str(self.point)], check=True)
        # The file system's process writes its last bytes after umount has returned.
        self.process.wait()
        self.point.rmdir()


def random_block(size, seed):
    return random.Random(seed).randbytes(size)


def text_block(size, seed):
    """Words in lines, which LZNT1 packs about two to one."""
    rng = random.Random(seed)
    words = ["%s%s" % (a, b) for a in "stone grain layer shaft wall ledge".split() for b in "abcdefgh"]
    out = bytearray()
    while len(out) < size:
        line = "%08d %s %04x\n" % (rng.randrange(10**8), " ".join(rng.choices(words, k=7)), rng.randrange(65536))
        out += line.encode()
    return bytes(out[:size])


def write_repeated(path, block, size):
    with open(path, "wb") as file:
        left = size
        while left > 0:
            file.write(block[:left])
            left -= min(left, len(block))


def new_image(path, size, cluster):
    with open(path, "wb") as file:
        file.truncate(size)
    subprocess.run(["mkntfs", "-F", "-Q", "-q", "-c", str(cluster), "-s", "512", "-L", "bench", str(path)],
                   check=True, capture_output=True)


def inode_of(mounted_path):
    return os.stat(mounted_path).st_ino


class Volumes:
    """Makes and remembers volumes below one directory."""

    def __init__(self, directory, writer=None):
        self.directory = pathlib.Path(directory)
        self.directory.mkdir(parents=True, exist_ok=True)
        self.writer = writer

    def get(self, name, size, cluster, fill, options=""):
        """The image and what `fill(mount_point)` answered when it was made."""
        image, facts = self.directory / f"{name}.img", self.directory / f"{name}.facts"
        if not facts.exists():
            new_image(image, size, cluster)
            with Mount(image, options) as point:
                answer = fill(point)
            facts.write_text(repr(answer), encoding="utf-8")
        return image, eval(facts.read_text(encoding="utf-8"), {"__builtins__": {}})  # our own repr

    def written(self, kind, count):
        """An image by write_bench_volume and the numbers that it printed."""
        image, facts = self.directory / f"{kind}{count}.img", self.directory / f"{kind}{count}.facts"
        if not facts.exists():
            told = subprocess.run([self.writer, kind, str(image), str(count)], check=True, capture_output=True, text=True)
            facts.write_text(told.stdout, encoding="utf-8")
        return image, *map(int, facts.read_text(encoding="utf-8").split())

    def converted(self, image):
        """The image as one virtual disk."""
        disk = image.with_suffix(".vmdk")
        if not disk.exists():
            subprocess.run(["qemu-img", "convert", "-f", "raw", "-O", "vmdk", "-o", "subformat=monolithicSparse",
                            str(image), str(disk)], check=True)
        return disk

    def chain(self, image, count):
        """The image as a chain of virtual disks, the base first."""
        directory = self.directory / f"chain{count}"
        if not directory.exists():
            directory.mkdir()
            subprocess.run([self.writer, "chain", str(image), str(directory), str(count)], check=True)
        return [directory / f"disk{number}.vmdk" for number in range(count)]

    def huge_disk(self, size):
        """A virtual disk of which little is written: its path, the entry of a small file, bytes of its tables."""
        image, facts = self.get(f"huge{size >> 30}", size, 65536, fill_small)
        disk = self.converted(image)
        with open(disk, "rb") as file:
            # The number of sectors ahead of the first grain is at byte 64 of the header.
            tables = struct.unpack_from("<Q", file.read(512), 64)[0] * 512
        return disk, facts["small"], tables

    def drop(self, name):
        for path in (self.directory / name, *self.directory.glob(f"{name}.*")):
            if path.is_dir():
                shutil.rmtree(path)
            elif path.exists():
                path.unlink()


def fill_small(point):
    (point / "small.txt").write_bytes(random_block(KIB, 2))
    return {"small": inode_of(point / "small.txt")}


def fill_contiguous(size):
    def fill(point):
        write_repeated(point / "big.bin", random_block(4 * MIB, 1), size)
        (point / "small.txt").write_bytes(random_block(KIB, 2))
        return {"big": inode_of(point / "big.bin"), "small": inode_of(point / "small.txt")}
    return fill


def fill_fragments(size, fragments):
    """Two files grow in turns, each step forced to disk, so that each lies in `fragments` pieces."""
    def fill(point):
        step = size // fragments
        block = random_block(step, 3)
        with open(point / "frag.bin", "wb", buffering=0) as one, open(point / "other.bin", "wb", buffering=0) as two:
            for _ in range(fragments):
                one.write(block)
                two.write(block[:4096])
        return {"frag": inode_of(point / "frag.bin")}
    return fill


def fill_compressed(size):
    def fill(point):
        directory = point / "packed"
        directory.mkdir()
        os.setxattr(directory, "system.ntfs_attrib_be", (0x00000800).to_bytes(4, "big"))
        write_repeated(directory / "text.log", text_block(8 * MIB, 4), size)
        return {"text": inode_of(directory / "text.log")}
    return fill


def fill_directory(count):
    def fill(point):
        directory = point / "many"
        directory.mkdir()
        for number in range(count):
            with open(directory / f"file{number:06d}.txt", "wb") as file:
                file.write(b"%06d\n" % number * 64)
        return {"last": inode_of(directory / f"file{count - 1:06d}.txt")}
    return fill
