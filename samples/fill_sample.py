#!/usr/bin/env python3
"""Fills a mounted NTFS volume with the files of the sample disk and writes the manifest of what was put in.

Usage: fill_sample.py MOUNT_POINT MANIFEST
The volume is mounted by ntfs-3g with streams_interface=windows and compression. The digests are those of the bytes
handed to the file system; the entry numbers are the inode numbers that ntfs-3g reports, which are MFT entries.
"""

import hashlib
import os
import pathlib
import struct
import sys
import zlib

# One time for everything, so that names made from it stay the same: 2024-05-06 07:08:09 UTC.
MODIFIED = 1714979289

FILE_ATTRIBUTE_COMPRESSED = 0x800
IO_REPARSE_TAG_MOUNT_POINT = 0xA0000003

README = """This disk is a sample for quarry.

It holds one NTFS volume with a little of everything that a copy may meet: short and long files, named
streams, holes, fragments, hard links, a junction, a compressed file, a deleted file, a deep path and names in several scripts.
"""

LETTER_PARAGRAPH = """A quarry is worked from the top down. First the soil comes off, then the weathered rock, and only below that
lies the stone one came for. Whoever takes a block out notes where it lay, how large it was and what it
looked like, for once it has left its bed nobody can tell any more. Line {0:03d}.
"""

LOG_LINE = "2024-05-06T07:{0:02d}:{1:02d}Z bench {2} block {3:05d} lifted, weighed and marked\n"


def pseudo_random(size, seed):
    """Bytes that do not repeat, the same on every machine."""
    blocks = (hashlib.sha256(f"{seed}:{i}".encode()).digest() for i in range((size + 31) // 32))
    return b"".join(blocks)[:size]


def picture(width=144, height=96):
    """A PNG of a quarry: sky, terraces of grained stone, a pool."""
    grain = pseudo_random(width * height, "stone")
    rows = bytearray()
    for y in range(height):
        rows.append(0)
        for x in range(width):
            speck = grain[y * width + x] % 12
            terrace = (y + x // 6) // 10
            if y < height // 3 - x // 12:
                pixel = (130 + y, 170 + y, 230)
            elif y > height - 14 and x > width // 2:
                pixel = (40, 110 + (x + y) % 16, 150)
            else:
                pixel = (208 - 13 * terrace - speck, 186 - 12 * terrace - speck, 144 - 9 * terrace - speck)
            rows.extend(max(0, min(255, part)) for part in pixel)

    def chunk(kind, body):
        return struct.pack(">I", len(body)) + kind + body + struct.pack(">I", zlib.crc32(kind + body))

    header = struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(bytes(rows), 9)) +
            chunk(b"IEND", b""))


def junction(target):
    """The reparse point of a directory junction to a path of this volume."""
    substitute = ("\\??\\C:" + target).encode("utf-16-le")
    shown = ("C:" + target).encode("utf-16-le")
    body = struct.pack("<HHHH", 0, len(substitute), len(substitute) + 2, len(shown))
    body += substitute + b"\0\0" + shown + b"\0\0"
    return struct.pack("<IHH", IO_REPARSE_TAG_MOUNT_POINT, len(body), 0) + body


class Sample:
    def __init__(self, mount):
        self.mount = pathlib.Path(mount)
        self.rows = []

    def path(self, name):
        return self.mount / name.lstrip("/")

    def note(self, name, content, note, entry=None):
        if entry is None:
            entry = self.path(name.partition(":")[0]).stat().st_ino
        self.rows.append((name, entry, len(content), hashlib.sha256(content).hexdigest(), note))

    def put(self, name, content, note):
        path = self.path(name)
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content)
        self.note(name, content, note)

    def put_sparse(self, name, size, pieces, note):
        """`pieces` maps an offset to the bytes there; nothing is stored in between."""
        content = bytearray(size)
        with open(self.path(name), "wb") as out:
            for offset, piece in sorted(pieces.items()):
                out.seek(offset)
                out.write(piece)
                content[offset:offset + len(piece)] = piece
            out.truncate(size)
        self.note(name, bytes(content), note)

    def put_in_turns(self, names, pieces, note):
        """Appends to the files in turns, so that each is stored in many fragments."""
        contents = {name: [] for name in names}
        for index in range(pieces):
            for name in names:
                piece = pseudo_random(4096, f"{name}{index}")
                contents[name].append(piece)
                with open(self.path(name), "ab") as out:
                    out.write(piece)
                    out.flush()
                    os.fsync(out.fileno())
        for name in names:
            self.note(name, b"".join(contents[name]), note)

    def write_manifest(self, manifest):
        lines = ["path\tentry\tsize\tsha256\tnote"]
        lines += ["\t".join(str(field) for field in row) for row in sorted(self.rows)]
        pathlib.Path(manifest).write_text("\n".join(lines) + "\n", encoding="utf-8")


def fill(sample):
    sample.put("/readme.txt", README.encode(), "a short text, resident")
    sample.put("/readme.txt:notes", b"A named stream of a text file.\n", "named stream, resident")
    letter = "".join(LETTER_PARAGRAPH.format(i) for i in range(40)).encode()
    sample.put("/Documents/letter.txt", letter, "a text of several clusters")
    sample.put("/Documents/letter.txt:Zone.Identifier", b"[ZoneTransfer]\r\nZoneId=3\r\n", "named stream, resident")
    sample.put("/Documents/letter.txt:draft", letter[::-1], "named stream of several clusters")
    sample.put("/Documents/empty.txt", b"", "no bytes at all")
    sample.put("/Pictures/terraces.png", picture(), "a picture")

    sample.put_sparse("/sparse.bin", 1048576, {0: pseudo_random(5000, "head"), 524288: pseudo_random(9000, "middle")},
                      "holes between and after two islands")
    sample.put_in_turns(["/fragments-a.bin", "/fragments-b.bin"], 12, "stored in fragments")

    sample.path("/archive").mkdir()
    os.link(sample.path("/Documents/letter.txt"), sample.path("/archive/second name.txt"))
    sample.note("/archive/second name.txt", letter, "hard link to /Documents/letter.txt")

    sample.path("/packed").mkdir()
    os.setxattr(sample.path("/packed"), "system.ntfs_attrib",
                struct.pack("<I", FILE_ATTRIBUTE_COMPRESSED))
    log = "".join(LOG_LINE.format(i // 60 % 60, i % 60, i % 7, i) for i in range(1500)).encode()
    sample.put("/packed/bench.log", log, "compressed by the file system")

    sample.put("/a/very/deep/path/down/to/the/last/terrace/stone.txt", b"Found at the bottom.\n", "a deep path")
    sample.put("/Ünïcödé/Καλημέρα κόσμε.txt", "Καλημέρα\n".encode(), "Latin and Greek names")
    sample.put("/Ünïcödé/Добрый день.txt", "Добрый день\n".encode(), "a Cyrillic name")
    sample.put("/Ünïcödé/石切り場.txt", "石切り場\n".encode(), "a Japanese name")
    sample.put("/Ünïcödé/pickaxe ⛏️ mountain 🏔️.txt", "⛏️🏔️\n".encode(), "a name with emoji, surrogates on disk")

    # Reached through the junction, it is the same file as /Documents/letter.txt.
    sample.path("/Shortcut").mkdir()
    os.setxattr(sample.path("/Shortcut"), "system.ntfs_reparse_data", junction("\\Documents"))
    sample.note("/Shortcut/letter.txt", letter, "through a junction",
                sample.path("/Documents/letter.txt").stat().st_ino)

    gone = ("Deleted, but not gone.\n" * 300).encode()
    sample.put("/deleted.txt", gone, "deleted; only its entry number leads to it")


def set_times(mount):
    for root, directories, files in os.walk(mount, topdown=False):
        for name in directories + files:
            os.utime(os.path.join(root, name), (MODIFIED, MODIFIED), follow_symlinks=False)


def main():
    mount, manifest = sys.argv[1:]
    sample = Sample(mount)
    fill(sample)
    set_times(mount)
    sample.path("/deleted.txt").unlink()
    sample.write_manifest(manifest)


if __name__ == "__main__":
    main()
