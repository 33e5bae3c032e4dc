"""Reports beside copies, compared field by field with what istat and ntfsinfo say of the same entries."""

import concurrent.futures
import lzma
import os
import pathlib
import re

import pytest

from test_fragments import leave_only_gaps
from volumes import MIB, Volume, need, need_tools, pattern, run_tool

SAMPLES = pathlib.Path(__file__).resolve().parents[2] / "samples"
SAMPLE_VOLUME = slice(2048 * 512, 18432 * 512)
# Each entry takes three programs; a slow, instrumented one looks at fewer.
ENTRIES = 1000 if os.environ.get("QUARRY_INSTRUMENTED") else 3000

# istat shows a time of zero as this one.
ISTAT_ZERO_TIME = "2076-11-29 08:54:34.000"

WORD_OF_ISTAT_FLAG = {
    "Read Only": "READ_ONLY", "Hidden": "HIDDEN", "System": "SYSTEM", "Directory": "DIRECTORY", "Archive": "ARCHIVE",
    "Sparse": "SPARSE_FILE", "Reparse Point": "REPARSE_PT", "Compressed": "COMPRESSED", "Temporary": "TEMPORARY",
    "Not Content Indexed": "CONTENT_NOT_INDEXED", "Encrypted": "ENCRYPTED", "Offline": "OFFLINE",
}
LABEL_OF_TYPE = {
    "$OBJECT_ID": "Object ID", "$SECURITY_DESCRIPTOR": "Security Descriptor", "$VOLUME_NAME": "Volume Name",
    "$VOLUME_INFORMATION": "Volume Info", "$REPARSE_POINT": "Reparse Point", "$DATA": "Data", "$INDEX_ROOT": "Index Root",
    "$INDEX_ALLOCATION": "Index Allocation", "$BITMAP": "Bitmap", "$LOGGED_UTILITY_STREAM": "Logged Utility Stream",
}
STREAM_LABELS = ("Data", "Index Root", "Index Allocation", "Bitmap", "Logged Utility Stream")
TYPE_WORD = {"allow": "access allowed", "deny": "access denied", "audit": "system audit", "alarm": "system alarm"}
MASK_WORDS = ((31, "GENERIC_READ"), (30, "GENERIC_WRITE"), (29, "GENERIC_EXECUTE"), (28, "GENERIC_ALL"), (16, "DELETE"),
              (17, "READ_CONTROL"), (18, "WRITE_DAC"), (19, "WRITE_OWNER"), (20, "SYNCHRONIZE"))
TABS = r"\t+ (\S+)"
SID_NAMES = {"S-1-1-0": "World", "S-1-3-0": "Owner", "S-1-3-1": "Group", "S-1-5-18": "Local System",
             "S-1-5-11": "Authenticated User", "S-1-5-32-544": "Admins", "S-1-5-32-545": "Users"}


def field(pattern_text, text):
    found = re.search(pattern_text, text, re.MULTILINE)
    return found.group(1) if found else None


def shown_time(value):
    return "" if value.startswith(ISTAT_ZERO_TIME) else value[:len("2026-11-21 12:38:09.748")]


# What a report and istat both tell of an entry, in one form.

def number(text):
    """ "0x00000042 [66]" as a number; both forms must agree."""
    hexadecimal, decimal = re.fullmatch(r"0x([0-9a-f]+) \[(\d+)\]", text).groups()
    assert int(hexadecimal, 16) == int(decimal), text
    return int(decimal)


def times_of_block(block):
    return tuple(field(rf"^  {label}(.*)$", block).strip() for label in ("modified:  ", "accessed:  ", "created:   ", "mft mod:   "))


def stream_of_block(label, block):
    first, _, rest = block.partition("\n")
    words = first.split(" Attrib: ", 1)[1]
    flags = set()
    for words_of_flag, flag in ((", sparse clusters", "Sparse"), (", data compressed", "Compressed"), (", data encrypted", "Encrypted")):
        if words.endswith(words_of_flag):
            words = words[:-len(words_of_flag)]
            flags.add(flag)
    name = "" if words == "(unnamed)" else words
    if "  valid size:  " in rest:
        return label, name, frozenset(flags), number(field(r"^  valid size:  (.*)$", rest)), None, ()
    runs = []
    for first_lcn, last_lcn, sparse in re.findall(r"^    ([0-9a-f]{16}) : ([0-9a-f]{16})( \[sparsed\])?$", rest, re.MULTILINE):
        length = int(last_lcn, 16) - int(first_lcn, 16) + 1
        runs.append((None if sparse else int(first_lcn, 16), length))
    sizes = [number(field(rf"^  {size}(.*)$", rest)) for size in ("file size:  ", "valid data: ")]
    return label, name, frozenset(flags), *sizes, tuple(runs)


def parse_report(text):
    blocks = text.split("\n\nMisc stats:\n", 1)[1].split("\n\n")
    # The descriptor's lists stand behind empty lines of their own.
    items = []
    for block in blocks[1:]:
        if block.startswith("  ") and items:
            items[-1] += "\n\n" + block
        elif block.strip():
            items.append(block.strip("\n"))
    header, *others = items
    said = {
        "entry": number(field(r"^  MFT entry: (.*)$", header)),
        "sequence": number(field(r"^  Seq Num:   (.*)$", header)),
        "directory": field(r"^  Type:      (.*)$", header) == "directory",
        "deleted": "\n  deleted\n" in header,
        "base": field(r"^  references mft entry: 0x(.*)$", header),
        "links": field(r"^  Ref Count: (.*)$", header),
        "information": [], "names": [], "streams": [], "others": [],
    }
    for block in others:
        label = block.split(" Attrib: ", 1)[0]
        if label == "Standard Info":
            words = field(r"^Standard Info Attrib: \((.*)\)$", block)
            said["information"].append((frozenset(words.split(", ")), times_of_block(block),
                                        int(field(r"^  secure id: 0x(.*)$", block), 16)))
        elif label == "Filename":
            name = re.sub(r", \(indexed\)$", "", block.split("\n", 1)[0].split(" Attrib: ", 1)[1])
            said["names"].append((name, number(field(r"^  parnt mft: (.*)$", block)), times_of_block(block)))
        elif label in STREAM_LABELS:
            said["streams"].append(stream_of_block(label, block))
        else:
            said["others"].append(label)
    for several in ("names", "streams", "others"):
        said[several].sort(key=repr)
    return said


def times_of_istat(section):
    return tuple(shown_time(field(rf"^{label}:\t(.*) \(UTC\)$", section))
                 for label in ("File Modified", "Accessed", "Created", "MFT Modified"))


def stream_of_istat(line, run_lines):
    kind, name, residence, size = re.fullmatch(r"Type: (\$\w+) \(\d+-\d+\)   Name: (.*?)   ((?:Non-)?Resident[^:]*?)   size: (.*)", line).groups()
    label = LABEL_OF_TYPE.get(kind)
    flags = frozenset(residence.split(", ")[1:])
    name = "" if name == "N/A" else name
    if residence.startswith("Resident"):
        return label, name, flags, int(size), None, ()
    runs = []
    for address, length in re.findall(r"Starting address: (\w+), length: (\d+)", run_lines):
        runs.append((None if address == "X" else int(address), int(length)))
    real, initialized = re.fullmatch(r"(\d+)  init_size: (\d+)", size).groups()
    return label, name, flags, int(real), int(initialized), tuple(runs)


def parse_istat(text):
    said = {
        "entry": int(field(r"^Entry: (\d+)", text)),
        "sequence": int(field(r"^Entry: \d+\s+Sequence: (\d+)", text)),
        "directory": bool(re.search(r"^(Not )?Allocated Directory", text, re.MULTILINE)),
        "deleted": bool(re.search(r"^Not Allocated", text, re.MULTILINE)),
        "links": field(r"^Links: (\d+)", text),
        "information": [], "names": [], "streams": [], "others": [],
    }
    base = field(r"^Base File Record: (\d+)", text)
    said["base"] = base
    head, _, attributes = text.partition("\nAttributes: \n")
    for section in head.split("\n\n"):
        if section.startswith("$STANDARD_INFORMATION"):
            words = [WORD_OF_ISTAT_FLAG[word] for word in field(r"^Flags: ?(.*)$", section).split(", ") if word]
            said["information"].append((frozenset(words or ["none set"]), times_of_istat(section),
                                        int(field(r"^Security ID: (\d+)", section))))
        elif section.startswith("$FILE_NAME"):
            said["names"].append((field(r"^Name: (.*)$", section), int(field(r"^Parent MFT Entry: (\d+)", section)),
                                  times_of_istat(section)))
    for line, run_lines in re.findall(r"^(Type: .*)\n((?:  Starting address.*\n)*)", attributes, re.MULTILINE):
        kind = line.split()[1]
        label = LABEL_OF_TYPE.get(kind)
        if label in STREAM_LABELS:
            said["streams"].append(stream_of_istat(line, run_lines))
        elif label:
            said["others"].append(label)
    for several in ("names", "streams", "others"):
        said[several].sort(key=repr)
    return said


def istat_of(volume, entry):
    return run_tool("istat", "-r", "-f", "ntfs", "-z", "UTC", volume.image, entry).decode(errors="replace")


def report_of(quarry, volume, *object_arguments):
    """The report of one copy; the copy itself may find no data."""
    target = quarry.scratch / ("report-of-" + "-".join(str(a) for a in object_arguments).replace("/", "_"))
    quarry.run("-image", volume.image, *object_arguments, "-meta", dst=target)
    path = target.with_name(target.name + ".meta.txt")
    text = path.read_text(encoding="utf-8", errors="replace") if path.exists() else None
    for file in (target, path):
        file.unlink(missing_ok=True)
    return text


def number_of_entries(volume):
    need_tools("istat")
    return int(field(r"^Type: \$DATA .* size: (\d+)", istat_of(volume, 0))) // 1024


def for_each_entry(entries, check):
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        return list(pool.map(check, entries))


def without_what_istat_hides(stream, cluster):
    """The flags of a resident stream, clusters behind the last byte of another, and all of one that is a hole."""
    label, name, flags, real, initialized, runs = stream
    if initialized is None:
        flags = frozenset()
    left = -(-real // cluster)
    kept = []
    for lcn, length in runs:
        if left > 0:
            kept.append((lcn, min(length, left)))
        left -= length
    if all(lcn is None for lcn, _ in kept):
        kept = []
    return label, name, flags, real, initialized, tuple(kept)


def compare_with_istat(quarry, volume, entry, *object_arguments):
    """The report of an entry, asked for by its number or as named, against istat; gives what the report says."""
    report = report_of(quarry, volume, *(object_arguments or ("-mft", entry)))
    assert report is not None, f"entry {entry} has no report"
    ours, theirs = parse_report(report), parse_istat(istat_of(volume, entry))
    ours["text"] = report
    _, cluster, _ = volume.geometry()
    for said in (ours, theirs):
        said["streams"] = [without_what_istat_hides(stream, cluster) for stream in said["streams"]]
    for key, value in theirs.items():
        assert ours[key] == value, (entry, key)
    return ours


def lists_of_ntfsinfo(section):
    """Expected lines of one ACL."""
    lines = {}
    for kind, mask, sid in re.findall(r"type:(\w+)\s+flags:\S+\s+access:0x([0-9a-f]+)\s+SID: (\S+)", section):
        words = " | ".join(word for bit, word in MASK_WORDS if int(mask, 16) >> bit & 1)
        key = sid + TYPE_WORD[kind]
        if key in lines:
            lines[key] += " | " + words
        else:
            lines[key] = f"  {TYPE_WORD[kind]:<15} {SID_NAMES.get(sid, 'unk'):<15} {words}"
    return [lines[key] for key in sorted(lines)]


def compare_with_ntfsinfo(volume, entry, report):
    """Owner, group, lists, allocated sizes and name spaces. Gives the number of descriptors compared."""
    told = run_tool("ntfsinfo", "-f", "-v", "-i", entry, volume.image).decode(errors="replace")
    for space, name in re.findall(r"Namespace:\t\t (.*)\n\tFilename:\t\t '(.*)'", told):
        word = ", (indexed)" if space in ("Win32", "Win32 & DOS") else ""
        assert f"\nFilename Attrib: {name}{word}\n" in report, entry
    sections = told.split("Dumping attribute ")
    # The sizes of a directory are told twice; a descriptor's are in no report.
    sizes = {size for section in sections if not section.startswith("$SECURITY_DESCRIPTOR")
             for size in re.findall(r"^\tAllocated size:\t\t (\d+) ", section, re.MULTILINE)}
    assert sizes == set(re.findall(r"^  allocated:  0x[0-9a-f]+ \[(\d+)\]$", report, re.MULTILINE)), entry
    # A descriptor in clusters of its own has no text.
    descriptors = [section for section in sections
                   if section.startswith("$SECURITY_DESCRIPTOR") and "\tResident: \t\t Yes\n" in section]
    for section in descriptors:
        system, discretionary = section.split("\tSystem ACL:", 1)[1].split("\tDiscretionary ACL:", 1)
        expected = ["Security Descriptor Attrib: ", "  Security Identifiers", f"  owner sid [{field('Owner SID:' + TABS, section)}]",
                    f"  group sid [{field('Group SID:' + TABS, section)}]"]
        for heading, entries in (("System", system), ("Discretionary", discretionary)):
            lines = lists_of_ntfsinfo(entries)
            if lines:
                expected += ["", f"  {heading} Access Control List", *lines]
        assert "\n".join(["", *expected, ""]) in report, entry
    return len(descriptors)


def compare_with_both(quarry, volume, entry):
    """The same with what ntfsinfo says of a used entry; it tells of $MFT in pieces."""
    said = compare_with_istat(quarry, volume, entry)
    said["descriptors"] = 0 if entry == 0 or said["deleted"] else compare_with_ntfsinfo(volume, entry, said["text"])
    return said


@pytest.fixture
def sample_volume(tmp_path):
    image = tmp_path / "sample.img"
    image.write_bytes(lzma.decompress((SAMPLES / "disk.img.xz").read_bytes())[SAMPLE_VOLUME])
    return Volume(image, tmp_path / "mount")


def fill_folder(root, index):
    folder = root / f"folder {index}"
    folder.mkdir()
    (folder / "resident").write_bytes(pattern(index * 3, index))
    (folder / "in clusters").write_bytes(pattern(5000 + index * 10, index))
    (folder / "with streams").write_bytes(pattern(100, index))
    for name, size in (("small", 17), ("large", 9000)):
        with open(f"{folder}/with streams:{name}", "wb") as stream:
            stream.write(pattern(size, index))
    with open(folder / "sparse", "wb") as sparse:
        for island in range(3):
            sparse.seek(island * 200000)
            sparse.write(pattern(3000, island))
        sparse.truncate(700000)
    (folder / "linked").write_bytes(b"linked")
    for link in range(index % 4):
        os.link(folder / "linked", folder / f"link {link} with a longer name \u00e9\u4e2d")
    (folder / "restricted").write_bytes(b"mode")
    os.chmod(folder / "restricted", 0o400 + index % 0o400)
    (folder / "dated").write_bytes(b"dated")
    # From 1975 on, a few months apart, with fractions of a second.
    moment = 157766400 * 10**9 + index * 10_000_019 * 10**9 + 123456700
    os.utime(folder / "dated", ns=(moment, moment + 999_999_900))
    (folder / "deleted").write_bytes(pattern(6000, index))
    return folder


def fill_with_entries(volume):
    with volume.mounted() as root:
        index = 0
        while True:
            folder = fill_folder(root, index)
            if (folder / "deleted").stat().st_ino >= ENTRIES:
                break
            index += 1
    with volume.mounted() as root:
        for folder in root.glob("folder *"):
            (folder / "deleted").unlink()


def test_the_report_of_every_entry_of_a_volume_says_what_istat_and_ntfsinfo_say(make_volume, quarry):
    need(os.geteuid() == 0, "-mft is for administrators only")
    need_tools("ntfsinfo")
    volume = make_volume(size=128 * MIB)
    fill_with_entries(volume)
    with volume.mounted() as root:
        for index, folder in enumerate(sorted(root.glob("folder *"))):
            os.chown(folder / "dated", 1000 + index, 2000 + index)
    entries = range(number_of_entries(volume))
    assert len(entries) >= ENTRIES
    reports = for_each_entry(entries, lambda entry: compare_with_both(quarry, volume, entry))
    # What must have come up for the comparison to mean something.
    many = ENTRIES // 15
    assert sum(report["deleted"] for report in reports) > many
    assert sum(report["directory"] for report in reports) > many
    assert {report["links"] for report in reports} >= {"0", "1", "2", "3", "4"}
    streams = [stream for report in reports for stream in report["streams"]]
    assert sum("Sparse" in flags for _, _, flags, _, _, _ in streams) > many
    assert max(len(runs) for *_, runs in streams) >= 5
    assert sum(report["descriptors"] for report in reports) > many


def test_the_report_of_a_file_in_many_fragments_lists_every_run(make_volume, quarry):
    need(os.geteuid() == 0, "-mft is for administrators only")
    volume = make_volume(size=24 * MIB)
    with volume.mounted() as root:
        leave_only_gaps(root, 1500, 4096)
        (root / "pieces").write_bytes(pattern(1200 * 4096 - 5))
        entry = (root / "pieces").stat().st_ino
    report = compare_with_istat(quarry, volume, entry)
    assert max(len(runs) for *_, runs in report["streams"]) > 1000


def test_the_report_of_every_entry_of_the_sample_disk_says_what_istat_and_ntfsinfo_say(sample_volume, quarry):
    need(os.geteuid() == 0, "-mft is for administrators only")
    need_tools("ntfsinfo")
    entries = range(number_of_entries(sample_volume))
    reports = for_each_entry(entries, lambda entry: compare_with_both(quarry, sample_volume, entry))
    assert sum(report["descriptors"] for report in reports) > 20
    words = {word for report in reports for words, _, _ in report["information"] for word in words}
    assert words >= {"HIDDEN", "SYSTEM", "ARCHIVE", "SPARSE_FILE", "COMPRESSED", "REPARSE_PT"}


def test_the_report_of_every_path_of_the_sample_disk_says_what_istat_says(sample_volume, quarry):
    rows = [line.split("\t") for line in (SAMPLES / "MANIFEST.tsv").read_text(encoding="utf-8").splitlines()[1:]]
    checked = 0
    for path, entry, *_, note in rows:
        if "deleted" in note:
            continue
        assert report_of(quarry, sample_volume, "-src", path).splitlines()[0].split("\\")[-1] == path.split("/")[-1]
        compare_with_istat(quarry, sample_volume, entry, "-src", path)
        checked += 1
    assert checked > 15


def test_a_report_of_clusters_tells_each_cluster_and_what_is_not_there(make_volume, quarry):
    need(os.geteuid() == 0, "-cluster is for administrators only")
    volume = make_volume(size=8 * MIB)
    copy = quarry.run("-image", volume.image, "-cluster", 0x7FE, 3)
    report = copy.path.with_name(copy.path.name + ".meta.txt")
    assert not report.exists(), "no report without -meta"
    copy = quarry.run("-image", volume.image, "-cluster", 0x7FE, 3, "-meta")
    assert copy.ok
    report = copy.path.with_name(copy.path.name + ".meta.txt").read_text(encoding="utf-8")
    assert report == (
        f"drive/partition:       {volume.image}\n"
        "volume_offset:         0x000000000000\n"
        "start of partition:    0x000000000000 bytes [0x0 sectors]\n"
        "starting LCN           0x0000000007fe\n"
        "num clusters           0x000000000003 [3]\n"
        "\n"
        "cluster num            0x0000000007fe,   physical addr:  0x00000000007fe000 [ok]\n"
        "cluster num            0x0000000007ff,   physical addr:  0x00000000007ff000 [ok]\n"
        "clusters               0x000000000800 [failed]\n")


def test_a_report_that_cannot_be_written_does_not_stop_the_copy(make_volume, quarry, scratch):
    volume = make_volume(size=8 * MIB)
    content = pattern(20000)
    volume.put_unmounted("file", content, scratch)
    target = scratch / "copy"
    (scratch / "copy.meta.txt").mkdir()
    copy = quarry.run("-image", volume.image, "-src", "/file", "-meta", dst=target)
    assert copy.ok and copy.content == content
    assert list((scratch / "copy.meta.txt").iterdir()) == []


def test_under_md5_the_report_follows_the_name_of_the_copy(make_volume, quarry, scratch):
    volume = make_volume(size=8 * MIB)
    volume.put_unmounted("file", pattern(20000), scratch)
    folder = scratch / "out"
    folder.mkdir()
    assert quarry.run("-image", volume.image, "-src", "/file", "-meta", "-md5", dst=folder / "copy").ok
    names = sorted(path.name for path in folder.iterdir())
    assert len(names) == 2 and names[1] == names[0] + "_meta.txt"
    assert (folder / names[1]).read_text(encoding="utf-8").startswith("\\file\n\nMisc stats:\n")
