"""Every way in which another reader may differ from `quarry -exact`, in one place: who, when, and why.

A reason holds only where its predicate does, and a predicate looks at the volume and at the bytes. A difference that no
reason explains fails the oracle.
"""

import collections
import errno
import os
import struct

import readers
from plain_ntfs import DATA, ENCRYPTED, STANDARD_INFORMATION, TAG_WOF, WOF_STREAM

# Who has bytes.
BOTH, ONLY_EXACT, ONLY_OTHER = "both have bytes, and they differ", "only -exact has bytes", "only the other has bytes"

Reason = collections.namedtuple("Reason", "key readers when sentence holds")


class Case:
    """One stream of which a reader says something else than `quarry -exact`."""

    def __init__(self, facts, stream, reader, exact_reader, exact, other):
        self.facts, self.stream, self.exact, self.other = facts, stream, exact, other
        self.reader, self.exact_reader = reader, exact_reader
        self.file = facts.files[stream.entry]
        self.stored = facts.stream(stream)  # as the second reader has it; None if there is none
        self.volume = facts.volume
        self.kept = {}

    @property
    def when(self):
        if self.exact.state == "refused":
            return ONLY_OTHER
        return ONLY_EXACT if self.other.state == "refused" else BOTH

    def bytes_of(self, reader):
        if reader not in self.kept:
            self.kept[reader] = reader.content(self.stream)
        return self.kept[reader]

    @property
    def ours(self):
        return self.bytes_of(self.exact_reader)

    @property
    def theirs(self):
        return self.bytes_of(self.reader)

    def tag(self):
        return None if self.stream.name else self.file.tag()

    def raw(self, size):
        """The first bytes of the stream's clusters, whatever is valid or encoded."""
        return self.stored.value[:size] if self.stored.resident else b"".join(self.stored.raw(0, size))

    def holes_of_units(self):
        """Where the units begin that are holes as a whole."""
        if not self.stored.compressed:
            return []
        cluster, unit = self.volume.cluster, self.stored.unit
        stored = [(run.vcn * cluster, (run.vcn + run.clusters) * cluster) for run in self.stored.runs
                  if run.lcn is not None]
        return [at for at in range(0, self.stored.size, unit)
                if not any(begin < at + unit and at < end for begin, end in stored)]

    def modified(self):
        for attribute in self.file.attributes:
            if attribute.kind == STANDARD_INFORMATION:
                return struct.unpack_from("<Q", attribute.value, 8)[0]
        return None


def restored(block):
    """A record with the words under its update sequence number put back; other blocks as they are."""
    if block[:4] != b"FILE":
        return block
    out = bytearray(block)
    at, count = struct.unpack_from("<HH", block, 4)
    for index in range(1, count):
        out[512 * index - 2:512 * index] = block[at + 2 * index:at + 2 * index + 2]
    return bytes(out)


def sector_ends_of_the_table(case):
    size = case.volume.record_size
    blocks = [case.ours[at:at + size] for at in range(0, len(case.ours), size)]
    return case.stream.entry in (0, 1) and b"".join(map(restored, blocks)) == case.theirs


def after_the_valid_length(case):
    valid = case.stored.valid
    return (not case.stored.resident and not case.stored.compressed and valid < case.stored.size
            and len(case.theirs) == len(case.ours) and case.theirs[:valid] == case.ours[:valid]
            and case.theirs == case.raw(case.stored.size))


def has_unrestored_sector_ends(case):
    """On large sectors: a record of the file uses bytes at the end of one of its 512 bytes."""
    entries = {a.home[0] for a in case.file.attributes} | {case.stream.entry}
    return case.volume.sector > 512 and any(case.volume.record(entry).used > 510 for entry in entries)


def named_in_pieces(case):
    return bool(case.stream.name) and case.stored.pieces > 1 and len(case.theirs) < len(case.ours) \
        and case.theirs in case.ours


def has_repeated_id(case):
    ours = [(a.id, a.home) for a in case.file.attributes if (a.kind, a.name) == (DATA, case.stream.name)]
    others = [(a.id, a.home) for a in case.file.attributes if a.kind == DATA and a.name != case.stream.name]
    return bool(case.stream.name) and case.other.code == "no-file" and any(
        number == other and home != other_home for number, home in ours for other, other_home in others)


def form_of_wof(case):
    """0, 2 and 3 are XPRESS, 1 is LZX; none for a file that the system did not compress."""
    return struct.unpack_from("<I", case.file.reparse(), 20)[0] if case.tag() == TAG_WOF else None


def differs_at_calls(case):
    """Every byte that differs is in the four after a byte E8."""
    if form_of_wof(case) != 1 or len(case.ours) != len(case.theirs):
        return False
    where = [at for at, (a, b) in enumerate(zip(case.ours, case.theirs)) if a != b]
    return all(0xE8 in case.ours[max(0, at - 4):at] for at in where)


EVERYONE = ("ntfscat", "libfsntfs", "ntfs-3g mount", "quarry")

STREAM_REASONS = [
    Reason("sector-ends", ("ntfscat",), BOTH,
           "gives $MFT and its mirror with restored sector ends, which are not what the clusters hold",
           sector_ends_of_the_table),
    Reason("wof-zeros", ("ntfscat",), BOTH,
           "gives the unnamed stream of a file that the system compressed as it is stored, which is zeros",
           lambda case: case.tag() == TAG_WOF and case.theirs == b"".join(case.stored.parts())),
    Reason("unknown-tag", ("ntfs-3g mount",), ONLY_EXACT,
           "shows a file with a reparse point that it does not know as a link that leads nowhere",
           lambda case: case.tag() is not None and case.other.words == os.strerror(errno.ELOOP)),
    Reason("interix-link", ("ntfs-3g mount",), ONLY_EXACT,
           "shows a file that holds a link of Interix as that link",
           lambda case: case.ours.startswith(b"IntxLNK\1") and case.other.words == os.strerror(errno.ELOOP)),
    Reason("wof-one-byte", ("libfsntfs",), ONLY_EXACT,
           "fails at a file of one byte that the system compressed",
           lambda case: form_of_wof(case) is not None and case.exact.size == 1),
    Reason("wof-lzx-fails", ("libfsntfs",), ONLY_EXACT,
           "fails at some chunks of LZX, with the code lengths of a block",
           lambda case: form_of_wof(case) == 1 and "lzx" in case.other.words),
    Reason("wof-lzx-differs", ("libfsntfs",), BOTH,
           "gives other bytes at some calls of x86 in chunks of LZX", differs_at_calls),
    Reason("wof-stored", ("quarry",), BOTH,
           "gives the compressed bytes of a file that the system compressed",
           lambda case: case.tag() == TAG_WOF and case.theirs == case.file.content(WOF_STREAM)),
    Reason("wof-in-record", ("quarry",), BOTH,
           "gives zeros for a file that the system compressed if the compressed bytes are in its record",
           lambda case: case.tag() == TAG_WOF and case.file.stream(DATA, WOF_STREAM).resident
           and case.theirs == bytes(case.exact.size)),
    Reason("encrypted", ("ntfscat", "libfsntfs", "quarry"), ONLY_OTHER,
           "gives an encrypted stream as it is stored",
           lambda case: case.exact.code == "encrypted" and bool(case.stored.flags & ENCRYPTED)
           and case.theirs == case.raw(case.stored.size)),
    Reason("elsewhere", EVERYONE, ONLY_OTHER,
           "gives what is left in the unnamed stream of a file whose data is elsewhere or a link",
           lambda case: case.exact.code in ("tag", "link", "wof") and case.tag() is not None
           and case.theirs == b"".join(case.stored.parts())),
    Reason("first-stream", ("ntfscat",), ONLY_OTHER,
           "gives a named stream where there is no unnamed one",
           lambda case: case.exact.code in ("no-stream", "directory") and case.stored is None
           and case.theirs == case.file.content(case.file.stream_names()[0])),
    Reason("no-stream", ("ntfs-3g mount", "libfsntfs"), ONLY_OTHER,
           "gives an empty file where there is no unnamed stream",
           lambda case: case.exact.code == "no-stream" and case.stored is None and case.theirs == b""),
    Reason("no-path", ("ntfs-3g mount", "quarry"), ONLY_EXACT,
           "reaches an entry, or a named stream, only by a path, and none leads there",
           lambda case: case.stream.file_path is None and case.other.words == readers.NO_PATH),
    Reason("stream-beside-a-tag", ("ntfs-3g mount",), ONLY_EXACT,
           "refuses the named streams of a file with a reparse point that it does not know",
           lambda case: bool(case.stream.name) and case.file.tag() is not None),
    Reason("repeated-id", ("quarry",), ONLY_EXACT,
           "does not find a named stream whose attribute has the number of another one in another record",
           has_repeated_id),
    Reason("valid-length", ("quarry",), BOTH,
           "gives what the clusters hold after the valid length", after_the_valid_length),
    Reason("hole-ends-it", ("quarry",), BOTH,
           "ends at the first hole of a whole unit of a compressed stream",
           lambda case: len(case.theirs) in case.holes_of_units() and case.ours.startswith(case.theirs)),
    Reason("hole-fails-it", ("quarry",), ONLY_EXACT,
           "fails where a compressed stream begins with a hole of a whole unit",
           lambda case: 0 in case.holes_of_units()),
    Reason("empty", ("quarry",), ONLY_EXACT,
           "counts an empty stream as a failure", lambda case: case.exact.size == 0),
    Reason("named-in-pieces", ("quarry",), BOTH,
           "gives the last piece of a named stream that is in pieces", named_in_pieces),
    *(Reason("sector-ends-in-records", ("quarry",), when,
             "restores one sector end of a record alone on large sectors: values, runs and lists at the others are wrong",
             has_unrestored_sector_ends) for when in (BOTH, ONLY_EXACT)),
    Reason("without-time", ("quarry",), ONLY_EXACT,
           "makes no file of an entry without a modification time, and that is a success",
           lambda case: case.other.code == "no-file" and case.modified() == 0),
]

NAME_REASONS = [
    Reason("mft-by-name", ("ntfs-3g mount",), None, "a directory of the host cannot show entry 0, $MFT",
           lambda case: case.entry == 0),
    Reason("twin", ("names",), None,
           "of several names that differ only in case, the one that is spelt to the letter is found",
           lambda case: case.answer in case.spelt_so()),
    Reason("twins", ("names",), None,
           "several names differ only in case, and the spelling is that of none of them: refused",
           lambda case: case.answer == "ambiguous" and case.has_twins()),
    Reason("case-sensitive", ("names",), None, "the directory is case-sensitive, and the spelling is another one",
           lambda case: case.answer == "name" and case.steps != case.wanted and case.is_case_sensitive()),
]
