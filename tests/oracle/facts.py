"""A volume as the second reader sees it: its streams and names, which the other readers are asked for."""

import dataclasses
import os

import plain_ntfs
from codecs_of_ntfs import Bad
from plain_ntfs import DATA, DOS_NAME, ROOT, shown

HOLE_BLOCK = 1 << 20


@dataclasses.dataclass(frozen=True)
class Stream:
    entry: int
    number: int  # of the stream in its file
    name: bytes  # UTF-16
    file_path: bytes = None  # of one of its names, as a mount has it; None where no path leads to it
    system: bool = False

    @property
    def shown(self):
        return shown(self.name)

    @property
    def text(self):
        return self.name.decode("utf-16-le", errors="surrogatepass")

    @property
    def bytes(self):
        return self.text.encode("utf-8", errors="surrogatepass")

    @property
    def order(self):
        """A line for -pipe."""
        return f"{self.entry}:{self.shown}" if self.name else str(self.entry)


@dataclasses.dataclass
class Given:
    """A volume and how programs get at it."""

    given: str  # the image as the user has it
    arguments: list  # that choose the volume in it
    plain: str  # an image of the volume alone
    title: str


def take_out(image, offset, size, target):
    """Copies a volume out of an image of a disk, holes as holes."""
    with open(image, "rb") as source, open(target, "wb") as out:
        source.seek(offset)
        left = size
        while left:
            part = source.read(min(left, HOLE_BLOCK))
            if not part:
                break
            if part.strip(b"\0"):
                out.write(part)
            else:
                out.seek(len(part), os.SEEK_CUR)
            left -= len(part)
        out.truncate()


class Facts:
    """Streams, names and paths of a volume. What the second reader cannot read is in `broken`."""

    def __init__(self, path):
        self.file = open(path, "rb")
        self.volume = plain_ntfs.Volume(plain_ntfs.Source(self.file))
        self.files, self.broken = {}, {}
        self.upcase = self.volume.upcase()
        for entry in self.volume.in_use():
            try:
                self.files[entry] = self.volume.file(entry)
                self.files[entry].found_names = self.files[entry].names()
            except Bad as reason:
                self.files.pop(entry, None)
                self.broken[entry] = str(reason)
        self.paths = {}
        self.streams = [stream for entry in self.files for stream in self.streams_of(entry)]
        self.by_key = {(stream.entry, stream.name): stream for stream in self.streams}

    def close(self):
        self.file.close()

    def steps(self, entry, seen=()):
        """Names from the root down to an entry, by its first long name, or None."""
        if entry == ROOT:
            return ()
        if entry not in self.paths:
            found = None
            file = self.files.get(entry)
            for name in file.found_names if file and entry not in seen else ():
                above = self.above(name, (*seen, entry)) if name.space != DOS_NAME else None
                if above is not None:
                    found = (*above, name.name)
                    break
            self.paths[entry] = found
        return self.paths[entry]

    def above(self, name, seen=()):
        parent = self.files.get(name.parent)
        if not parent or not parent.base.is_directory or name.parent_sequence not in (0, parent.base.sequence):
            return None
        return self.steps(name.parent, seen)

    def streams_of(self, entry):
        steps = self.steps(entry)
        path = None if steps is None else host_path(steps)
        names = self.files[entry].stream_names()
        if b"" not in names:
            names = [b"", *names]  # so that it is seen how each says that there is none
        return [Stream(entry, number, name, path, entry < 24) for number, name in enumerate(names)]

    def names(self):
        """(entry, names from the root down, whether it is a DOS name) of every name that a path leads to."""
        for entry, file in self.files.items():
            for name in file.found_names:
                above = self.above(name)
                if above is not None and entry != ROOT:
                    yield entry, (*above, name.name), name.space == DOS_NAME

    def stream(self, stream):
        """The stored stream as the second reader has it; None if there is none."""
        try:
            return self.files[stream.entry].stream(DATA, stream.name)
        except Bad:
            return None

    def size(self, stream):
        stored = self.stream(stream)
        return stored.size if stored else 0

    def folded(self, steps):
        return tuple(b"".join(self.upcase[2 * u:2 * u + 2] for u in units(name)) for name in steps)

    def upper(self, steps):
        return self.folded(steps)

    def lower(self, steps):
        """The other case of every letter that $UpCase knows."""
        def lowered(unit):
            small = chr(unit).lower()
            if len(small) != 1 or ord(small) > 0xFFFF:
                return unit
            same = self.upcase[2 * ord(small):2 * ord(small) + 2] == self.upcase[2 * unit:2 * unit + 2]
            return ord(small) if same else unit
        return tuple(b"".join(lowered(u).to_bytes(2, "little") for u in units(name)) for name in steps)


def units(name):
    return [name[at] | name[at + 1] << 8 for at in range(0, len(name), 2)]


def host_path(steps):
    return b"".join(b"/" + name.decode("utf-16-le", errors="surrogatepass").encode("utf-8", errors="surrogatepass")
                    for name in steps)


def canonical(steps):
    return "".join("/" + shown(name) for name in steps)

