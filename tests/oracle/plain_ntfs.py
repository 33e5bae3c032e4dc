"""A second reader of NTFS: slow and plain, written to be compared with and not to be used.

It reads a volume by its own structures, restores what NTFS keeps elsewhere (sector ends, lists of attributes, runs), and
raises Bad where a rule is broken. It shares nothing with the program under test, and it looks for no name by an order: a
directory is read whole. All names are UTF-16 in bytes, as they are on the disk.
"""

import collections
import struct

from codecs_of_ntfs import Bad, lznt1_unit, lzx, require, xpress

STANDARD_INFORMATION, ATTRIBUTE_LIST, FILE_NAME = 0x10, 0x20, 0x30
DATA, INDEX_ROOT, INDEX_ALLOCATION, REPARSE_POINT = 0x80, 0x90, 0xA0, 0xC0
COMPRESSED, ENCRYPTED, SPARSE = 1, 0x4000, 0x8000
ROOT, UPCASE, DOS_NAME = 5, 10, 2
TAG_WOF = 0x80000017
WOF_CHUNKS = {0: (4096, xpress), 1: (32768, lzx), 2: (8192, xpress), 3: (16384, xpress)}
WOF_STREAM = "WofCompressedData".encode("utf-16-le")
I30 = "$I30".encode("utf-16-le")
PART = 1 << 20  # bytes of a stream that are given at a time, at most

Run = collections.namedtuple("Run", "vcn lcn clusters")  # lcn is None for a hole
FileName = collections.namedtuple("FileName", "parent parent_sequence name space")


def number(data, at, width, signed=False):
    require(0 <= at and at + width <= len(data), "a number after the end of its structure")
    return int.from_bytes(data[at:at + width], "little", signed=signed)


def shown(name):
    """A name in the canonical form of a path."""
    out = ""
    for letter in name.decode("utf-16-le", errors="surrogatepass"):
        if letter in "\\:":
            out += "\\" + letter
        elif ord(letter) < 0x20 or 0x7F <= ord(letter) <= 0x9F or 0xD800 <= ord(letter) <= 0xDFFF or letter == "/":
            out += f"\\u{ord(letter):04X}"
        else:
            out += letter
    return out


def reference(data, at):
    return number(data, at, 6), number(data, at + 6, 2)


def with_sector_ends(block):
    """A record or index block with the words under its update sequence numbers put back."""
    offset, count = number(block, 4, 2), number(block, 6, 2)
    require(offset % 2 == 0 and count == len(block) // 512 + 1 and offset + 2 * count <= 510, "update sequence array")
    out = bytearray(block)
    for index in range(1, count):
        end = 512 * index - 2
        require(block[end:end + 2] == block[offset:offset + 2], f"torn: sector {index - 1}")
        out[end:end + 2] = block[offset + 2 * index:offset + 2 * index + 2]
    return bytes(out)


class Attribute:
    def __init__(self, data, home):
        self.data = data
        self.home = home  # entry and sequence of the record that holds it
        self.kind = number(data, 0, 4)
        self.resident = data[8] == 0
        require(data[8] in (0, 1), "form of an attribute")
        length, offset = data[9], number(data, 10, 2)
        require(length == 0 or offset + 2 * length <= len(data), "name of an attribute")
        self.name = data[offset:offset + 2 * length] if length else b""
        self.flags = number(data, 12, 2)
        self.id = number(data, 14, 2)
        self.vcn = 0
        if self.resident:
            size, at = number(data, 16, 4), number(data, 20, 2)
            require(at + size <= len(data), "value of an attribute")
            self.value = data[at:at + size]
        else:
            require(len(data) >= 64, "header of an attribute in clusters")
            self.vcn, self.last_vcn = number(data, 16, 8), number(data, 24, 8)
            self.pairs = number(data, 32, 2)
            require(64 <= self.pairs <= len(data), "mapping pairs")
            self.unit = data[34]
            self.allocated, self.size, self.valid = (number(data, at, 8, signed=True) for at in (40, 48, 56))

    def runs(self, clusters):
        """The runs of this piece, each verified."""
        found, at, vcn, lcn = [], self.pairs, self.vcn, 0
        while number(self.data, at, 1):
            low, high = self.data[at] & 15, self.data[at] >> 4
            require(1 <= low <= 8 and high <= 8, "widths of a mapping pair")
            count = number(self.data, at + 1, low, signed=True)
            require(count >= 0, "length of a run")
            if high:
                lcn += number(self.data, at + 1 + low, high, signed=True)
                require(count > 0 and lcn >= 0 and lcn + count <= clusters, "a run outside of the volume")
            elif at + 1 + low > len(self.data):
                raise Bad("a mapping pair is cut")
            if count:
                found.append(Run(vcn, lcn if high else None, count))
            vcn += count
            at += 1 + low + high
        require(self.vcn == self.last_vcn == 0 or vcn == (self.last_vcn + 1) % (1 << 64), "a piece ends elsewhere")
        return found, vcn


class Record:
    def __init__(self, block, entry):
        data = with_sector_ends(block)
        require(data[:4] == b"FILE", "signature of a record")
        self.entry = entry
        self.sequence = number(data, 16, 2)
        self.flags = number(data, 22, 2)
        self.used, allocated = number(data, 24, 4), number(data, 28, 4)
        self.base = reference(data, 32)
        require(allocated == len(data) and self.used <= allocated and self.used % 8 == 0, "sizes of a record")
        at = number(data, 20, 2)
        require(at >= 42 and at % 8 == 0, "first attribute")
        self.attributes = []
        while True:
            require(at + 4 <= self.used, "the attributes do not end")
            if data[at:at + 4] == b"\xff\xff\xff\xff":
                break
            length = number(data, at + 4, 4)
            require(length >= 24 and length % 8 == 0 and at + length <= self.used, "length of an attribute")
            self.attributes.append(Attribute(data[at:at + length], (entry, self.sequence)))
            at += length

    @property
    def in_use(self):
        return bool(self.flags & 1)

    @property
    def is_directory(self):
        return bool(self.flags & 2)


class Stream:
    """One stream: a value, or runs with the three sizes of its first piece."""

    def __init__(self, volume, pieces):
        self.volume, self.kind, self.name = volume, pieces[0].kind, pieces[0].name
        self.pieces = len(pieces)
        self.resident = any(piece.resident for piece in pieces)
        self.runs, self.unit = [], 0
        first = min(pieces, key=lambda piece: piece.vcn)
        if self.resident:
            require(len(pieces) == 1, "a value and other pieces")
            self.value = first.value
            self.size = self.valid = self.allocated = len(first.value)
            self.flags = first.flags
            self.compressed = False
            return
        end = 0
        for piece in sorted(pieces, key=lambda piece: piece.vcn):
            require(piece.vcn == end, "a piece begins elsewhere")
            runs, end = piece.runs(volume.clusters)
            self.runs += runs
        self.flags, self.size, self.valid, self.allocated = first.flags, first.size, first.valid, first.allocated
        require(self.flags & ~(0xFF | ENCRYPTED | SPARSE) == 0 and self.flags & 0xFF in (0, COMPRESSED), "flags")
        self.compressed = bool(self.flags & COMPRESSED)
        self.unit = volume.cluster << first.unit
        require(0 <= self.valid <= self.size <= self.allocated == end * volume.cluster, "the three sizes")

    def raw(self, begin, size):
        """Bytes of the runs, holes as zeros; parts of PART bytes at most."""
        cluster = self.volume.cluster
        for run in self.runs:
            low = max(begin, run.vcn * cluster)
            high = min(begin + size, (run.vcn + run.clusters) * cluster)
            while low < high:
                count = min(PART, high - low)
                if run.lcn is None:
                    yield bytes(count)
                else:
                    yield self.volume.source.read(run.lcn * cluster + low - run.vcn * cluster, count)
                low += count

    def parts(self):
        """What a program reads from the stream, in parts."""
        if self.resident:
            yield self.value
            return
        require(not self.flags & ENCRYPTED or self.size == 0, "encrypted")
        if self.compressed:
            yield from self.units()
        else:
            yield from self.raw(0, self.valid)
        for at in range(self.valid, self.size, PART):
            yield bytes(min(PART, self.size - at))

    def units(self):
        cluster, whole = self.volume.cluster, self.unit
        require(whole > cluster and 4096 <= whole <= 2 << 20, "the size of a unit")
        for begin in range(0, self.valid, whole):
            wanted = min(whole, self.valid - begin)
            first, end = begin // cluster, (begin + whole) // cluster
            parts = [(max(run.vcn, first), min(run.vcn + run.clusters, end), run.lcn) for run in self.runs
                     if run.vcn < end and run.vcn + run.clusters > first]
            require(parts and parts[-1][1] == end, "the runs end inside of a unit")
            stored = [part for part in parts if part[2] is not None]
            require(parts[:len(stored)] == stored, "a stored cluster follows a hole")
            if not stored:
                yield bytes(wanted)
            elif len(stored) == len(parts):
                yield b"".join(self.raw(begin, wanted))
            else:
                count = (stored[-1][1] - first) * cluster
                content, short = lznt1_unit(b"".join(self.raw(begin, count)), wanted)
                self.volume.doubt = self.volume.doubt or short
                yield content

    def content(self):
        return b"".join(self.parts())


class Source:
    """Bytes of a file or in memory, from an offset on."""

    def __init__(self, data, offset=0):
        self.data, self.offset = data, offset

    def read(self, at, size):
        at += self.offset
        if isinstance(self.data, (bytes, bytearray)):
            found = bytes(self.data[at:at + size])
        else:
            self.data.seek(at)
            found = self.data.read(size)
        require(at >= 0 and len(found) == size, "the source ends")
        return found

    def length(self):
        if isinstance(self.data, (bytes, bytearray)):
            return len(self.data) - self.offset
        return self.data.seek(0, 2) - self.offset


class Volume:
    def __init__(self, source):
        self.source = source
        self.doubt = False
        self.open_boot()
        first = self.first_record()
        # The table by its own first record; the rest of it by records in what is known so far.
        self.table = None
        kept = [a for a in first.attributes if a.kind == DATA and not a.name]
        require(kept and not kept[0].resident, "$MFT has no runs")
        self.open_table(first, kept)

    def open_boot(self):
        try:
            self.boot = self.source.read(0, 512)
            self.check_boot()
            return
        except Bad as reason:
            places = [self.source.length() - size for size in (512, 4096)]
            for at in places:
                try:
                    self.boot = self.source.read(at, 512)
                    self.check_boot()
                    self.first_record()
                    return
                except Bad:
                    continue
            raise reason

    def check_boot(self):
        boot = self.boot
        require(boot[3:11] == b"NTFS    ", "the boot sector's name")
        self.sector, sectors = number(boot, 11, 2), boot[13]
        require(self.sector in (256, 512, 1024, 2048, 4096), "bytes per sector")
        if sectors >= 0xF4:
            sectors = 1 << 256 - sectors
        require(sectors & sectors - 1 == 0 and 0 < sectors <= 4096, "sectors per cluster")
        self.cluster = self.sector * sectors
        require(self.cluster <= 2 << 20, "the size of a cluster")
        self.record_size, self.block_size = self.sized(boot[64]), self.sized(boot[68])
        total = number(boot, 40, 8)
        self.clusters = total // sectors
        self.mft_lcn, self.mirror_lcn = number(boot, 48, 8), number(boot, 56, 8)
        require(total and self.mft_lcn < self.clusters and self.mirror_lcn < self.clusters, "places of $MFT")

    def sized(self, value):
        size = value * self.cluster if value < 128 else 1 << 256 - value
        require(512 <= size <= 65536 and size & size - 1 == 0, "size of a record or block")
        return size

    def first_record(self):
        for lcn in (self.mft_lcn, self.mirror_lcn):
            try:
                return Record(self.source.read(lcn * self.cluster, self.record_size), 0)
            except Bad as reason:
                found = reason
        raise found

    def open_table(self, first, kept):
        runs, end = kept[0].runs(self.clusters)
        require(kept[0].vcn == 0 and runs and runs[0].lcn == self.mft_lcn, "$MFT begins elsewhere")
        self.table = (runs, kept[0].size)
        if any(a.kind == ATTRIBUTE_LIST for a in first.attributes):
            items = sorted((item for item in self.list_items(first) if item[0] == DATA and not item[1]),
                           key=lambda item: item[2])
            require(items and items[0][2] == 0, "the list has no beginning of $MFT")
            for item in items[1:]:
                require(item[2] == end, "a piece of $MFT begins elsewhere")
                piece = self.listed(item, first)
                runs, end = piece.runs(self.clusters)
                self.table = (self.table[0] + runs, self.table[1])
        require(end * self.cluster == kept[0].allocated, "the end of $MFT")

    def record_bytes(self, entry):
        runs, size = self.table
        require(entry < size // self.record_size, "an entry after the end of $MFT")
        begin, left, out = entry * self.record_size, self.record_size, b""
        while left:
            run = next((r for r in runs if r.vcn * self.cluster <= begin < (r.vcn + r.clusters) * self.cluster), None)
            require(run is not None and run.lcn is not None, "a record outside of the runs of $MFT")
            inside = begin - run.vcn * self.cluster
            count = min(left, run.clusters * self.cluster - inside)
            out += self.source.read(run.lcn * self.cluster + inside, count)
            begin, left = begin + count, left - count
        return out

    def entries(self):
        return self.table[1] // self.record_size

    def record(self, entry):
        try:
            return Record(self.record_bytes(entry), entry)
        except Bad:
            if entry > 3:
                raise
            return Record(self.source.read(self.mirror_lcn * self.cluster + entry * self.record_size, self.record_size),
                          entry)

    def list_items(self, base):
        """Type, name, lowest VCN, reference and id of each line of the list of attributes."""
        found = [a for a in base.attributes if a.kind == ATTRIBUTE_LIST]
        require(len(found) == 1, "several lists of attributes")
        data, at, items = Stream(self, found).content(), 0, []
        require(len(data) <= 256 << 10, "a list of more than 256 KiB")
        while at < len(data):
            kind, length, name_length, name_at = (number(data, at + o, w) for o, w in ((0, 4), (4, 2), (6, 1), (7, 1)))
            require(length >= 26 and length % 8 == 0 and at + length <= len(data), "an entry of a list")
            require(name_length == 0 or name_at + 2 * name_length <= length, "a name in a list")
            name = data[at + name_at:at + name_at + 2 * name_length] if name_length else b""
            items.append((kind, name, number(data, at + 8, 8), reference(data, at + 16), number(data, at + 24, 2)))
            at += length
        require(len(set(items)) == len(items), "a list names an attribute twice")
        return items

    def listed(self, item, base, records=None):
        kind, name, vcn, (entry, sequence), ident = item
        records = {} if records is None else records
        if entry not in records:
            records[entry] = base if entry == base.entry else self.record(entry)
        held = records[entry]
        loose = () if base.in_use else (held.sequence - 1,)
        require(sequence in (0, held.sequence, *loose), "a sequence number in a list")
        if entry != base.entry:
            require(held.in_use or not base.in_use, "an extension that is not in use")
            require(held.base[0] == base.entry, "an extension of another record")
            require(held.base[1] in (0, base.sequence) or not base.in_use, "an extension of an earlier file")
        found = [a for a in held.attributes if (a.kind, a.name, a.vcn, a.id) == (kind, name, vcn, ident)]
        require(len(found) == 1, "a list names no attribute, or two")
        return found[0]

    def attributes(self, entry):
        """The record and all attributes of a file."""
        base = self.record(entry)
        require(base.base == (0, 0), "an extension record")
        if not any(a.kind == ATTRIBUTE_LIST for a in base.attributes):
            return base, base.attributes
        records = {}
        return base, [self.listed(item, base, records) for item in self.list_items(base)]

    def file(self, entry):
        base, attributes = self.attributes(entry)
        return File(self, base, attributes)

    def upcase(self):
        table = self.file(UPCASE).stream(DATA, b"").content()
        require(len(table) == 131072, "$UpCase")
        return table

    def in_use(self):
        """Entries in use that are no extensions. A record that cannot be read is passed over."""
        for entry in range(self.entries()):
            try:
                found = self.record(entry)
            except Bad:
                continue
            if found.in_use and found.base == (0, 0):
                yield entry


class File:
    def __init__(self, volume, base, attributes):
        self.volume, self.base, self.attributes = volume, base, attributes

    def stream_names(self, kind=DATA):
        names = []
        for attribute in self.attributes:
            if attribute.kind == kind and attribute.name not in names:
                names.append(attribute.name)
        return names

    def stream(self, kind, name):
        pieces = [a for a in self.attributes if (a.kind, a.name) == (kind, name)]
        require(pieces, "no such stream")
        return Stream(self.volume, pieces)

    def names(self):
        found = []
        for attribute in self.attributes:
            if attribute.kind == FILE_NAME:
                value = attribute.value
                length = number(value, 64, 1)
                require(66 + 2 * length <= len(value), "a file name")
                found.append(FileName(*reference(value, 0), value[66:66 + 2 * length], number(value, 65, 1)))
        return found

    def reparse(self):
        """The reparse value; none for a file without it."""
        pieces = [a for a in self.attributes if a.kind == REPARSE_POINT]
        return Stream(self.volume, pieces).content() if pieces else None

    def tag(self):
        value = self.reparse()
        return number(value, 0, 4) if value is not None else None

    def is_case_sensitive(self):
        """Whether a directory tells names apart that differ in case."""
        for attribute in self.attributes:
            if attribute.kind == STANDARD_INFORMATION and len(attribute.value) >= 44:
                return number(attribute.value, 36, 4) == 0 and number(attribute.value, 40, 4) & 1 == 1
        return False

    def content(self, name=b""):
        """What a copy of a $DATA stream holds, decoded where the system compressed the file."""
        return b"".join(self.parts(name))

    def parts(self, name=b""):
        tag = self.tag() if not name else None
        if tag is None:
            return self.stream(DATA, name).parts()
        require(tag == TAG_WOF, "the data is elsewhere")
        return self.decoded()

    def decoded(self):
        value = self.reparse()
        version, provider, file_version, form = (number(value, at, 4) for at in (8, 12, 16, 20))
        require((version, provider, file_version) == (1, 2, 1) and form in WOF_CHUNKS, "form of system compression")
        require(number(value, 4, 2) <= len(value) - 8, "length of a reparse value")
        chunk, decode = WOF_CHUNKS[form]
        size = self.stream(DATA, b"").size
        stored = self.stream(DATA, WOF_STREAM)
        if size == 0:
            return
        packed = stored.content()
        count, width = -(-size // chunk), 4 if size < 1 << 32 else 8
        table = width * (count - 1)
        require(table <= len(packed), "the table of chunks")
        ends = [number(packed, at, width) for at in range(0, table, width)] + [len(packed) - table]
        begin = 0
        for index, end in enumerate(ends):
            plain = min(chunk, size - index * chunk)
            require(begin < end <= begin + plain and table + end <= len(packed), "the length of a chunk")
            part = packed[table + begin:table + end]
            yield part if len(part) == plain else decode(part, plain)
            begin = end

    def index(self):
        """Names in the directory's index with the references that they lead to, in order of the blocks."""
        root = self.stream(INDEX_ROOT, I30).content()
        require(number(root, 0, 4) == FILE_NAME, "an index of other things")
        size = number(root, 8, 4)
        require(512 <= size <= 65536 and size & size - 1 == 0, "size of index blocks")
        found, children = node_entries(root, 16)
        if children:
            stored = self.stream(INDEX_ALLOCATION, I30).content()
            step = self.volume.cluster if self.volume.cluster <= size else 512
            seen = set()
            while children:
                vcn = children.pop()
                require(vcn not in seen, "a block met twice")
                seen.add(vcn)
                block = stored[vcn * step:vcn * step + size]
                require(len(block) == size and block[:4] == b"INDX", "an index block")
                block = with_sector_ends(block)
                require(number(block, 16, 8) == vcn, "VCN of an index block")
                more, below = node_entries(block, 24)
                found += more
                children += below
        return found


def node_entries(data, at):
    first, used, allocated = (number(data, at + offset, 4) for offset in (0, 4, 8))
    require(16 <= first < used <= allocated and at + used <= len(data), "header of an index node")
    has_children, here = number(data, at + 12, 4) & 1, at + first
    found, children = [], []
    while True:
        require(here + 16 <= at + used, "an index node does not end")
        length, key, flags = (number(data, here + offset, 2) for offset in (8, 10, 12))
        require(length >= 16 and length % 8 == 0 and here + length <= at + used, "length of an index entry")
        if flags & 1:
            require(has_children and length >= 24, "a child of a leaf")
            children.append(number(data, here + length - 8, 8))
        if flags & 2:
            return found, children
        require(key >= 66 and 16 + key <= length, "key of an index entry")
        name_length = data[here + 16 + 64]
        require(66 + 2 * name_length <= key, "a name in an index entry")
        found.append((data[here + 82:here + 82 + 2 * name_length], reference(data, here)))
        here += length
