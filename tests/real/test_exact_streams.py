"""Every stream of volumes of all sector and cluster sizes: `-exact` gives what was written, or fails for a known reason.

Two other readers are asked too: ntfscat, which reads as the driver does, and libfsntfs.
"""

import concurrent.futures
import contextlib
import hashlib
import itertools
import json
import os
import re
import shutil
import struct
import subprocess
import typing

import pytest

from test_links import MOUNT_POINT, SYMBOLIC_LINK, reparse_data, set_reparse, with_sector_ends
from test_fragments import leave_only_gaps
from volumes import FILE_ATTRIBUTE_COMPRESSED, MIB, TIME_LIMIT, Volume, need, need_mounting, need_tools, pattern, run_tool

# Bytes per sector and per cluster, and whether the directory of many names is large.
SHAPES = ((512, 512, False), (512, 1024, False), (512, 4096, True), (1024, 2048, False), (2048, 65536, False),
          (4096, 4096, False), (512, 2 * MIB, False), (4096, 131072, False))

# Names as the driver takes them and in the canonical form of a path.
NAMES = (
    ("plain.txt", "plain.txt"),
    ("with blanks and  two.txt", "with blanks and  two.txt"),
    ("größe.txt", "größe.txt"),
    ("ελληνικά", "ελληνικά"),
    ("кириллица", "кириллица"),
    ("עברית", "עברית"),
    ("中文名称", "中文名称"),
    ("e\u0301 decomposed", "e\u0301 decomposed"),
    ("🏔️⛏️", "🏔️⛏️"),
    ("-src", "-src"),
    ("100%", "100%"),
    ("dots...", "dots..."),
    ("x" * 255, "x" * 255),
    ("ü" * 255, "ü" * 255),
    (b"back\\slash", "back\\\\slash"),
    (b"control\x01", "control\\u0001"),
    (b"lone \xed\xa0\x80 surrogate", "lone \\uD800 surrogate"),
)

# What the exact mode may answer in place of a copy, by a short name.
REASONS = {
    "directory": r"is a directory; name a stream, or list its files with -list",
    "no-stream": r'no stream ".*"; there are: .*',
    "link": r"leads to .*; say -letter .* if that is this volume",
    "ambiguous": r"several names differ only in case: .*",
    "name": r"no such name",
    "above": r"leads to .*, which is above the root",
    "tag": r"reparse tag 0x[0-9A-F]{8}.*: the data is not in this stream",
}

# Paths whose entry has no unnamed stream.
WITHOUT_UNNAMED_STREAM = ("/$Secure", "/$Extend/$ObjId", "/$Extend/$Quota", "/$Extend/$Reparse")

DEDUPLICATED = 0x80000013

TEXT = b"".join(b"line %06d of a text that compresses well\n" % i for i in range(6000))


class Result(typing.NamedTuple):
    status: int
    lines: list
    content: typing.Optional[bytes]

    @property
    def reason(self):
        """The name of the one reason that the error line gives."""
        errors = [line for line in self.lines if line.startswith("err: ")]
        assert len(errors) == 1, self.lines
        found = [name for name, words in REASONS.items() if re.search(": " + words + "$", errors[0])]
        assert len(found) == 1, errors
        return found[0]


class Exact:
    """Runs the program in its exact mode; words, status and destination must agree."""

    def __init__(self, scratch):
        self.program = os.environ.get("QUARRY_PROGRAM")
        assert self.program and os.access(self.program, os.X_OK), "QUARRY_PROGRAM does not name the program"
        self.scratch = scratch
        self.numbers = itertools.count()

    def run(self, image, *arguments):
        folder = self.scratch / f"exact{next(self.numbers)}"
        folder.mkdir()
        target = folder / "copy"
        command = [self.program, "-exact", "-image", image, *map(str, arguments), "-dst", target]
        done = subprocess.run(command, capture_output=True, stdin=subprocess.DEVNULL, timeout=TIME_LIMIT, check=False)
        lines = done.stderr.decode().splitlines()
        left = os.listdir(folder)
        content = target.read_bytes() if left == ["copy"] else None
        shutil.rmtree(folder)
        results = [line for line in lines if line.startswith(("ok: ", "doubt: ", "err: "))]
        assert len(results) == 1, (arguments, lines)
        if done.returncode in (0, 4):
            word = "ok" if done.returncode == 0 else "doubt"
            assert left == ["copy"], (arguments, left)
            assert results[0].startswith(word + ": ") and f"({len(content)} byte" in results[0], (results, len(content))
        else:
            assert done.returncode in (1, 2, 5) and results[0].startswith("err: "), (arguments, done.returncode, lines)
            assert left == [], (arguments, left)
        return Result(done.returncode, lines, content)

    def whole(self, image, *arguments):
        """The bytes of a copy that must be complete, without a warning."""
        result = self.run(image, *arguments)
        assert result.status == 0, (arguments, result.lines)
        assert not [line for line in result.lines if line.startswith("warning: ")], result.lines
        return result.content


class Node(typing.NamedTuple):
    """What the driver lists: an entry and the names of its named streams."""

    path: str
    entry: int
    directory: bool
    streams: tuple


class Filled(typing.NamedTuple):
    volume: Volume
    written: dict  # (canonical path, stream): bytes
    reparse: set  # paths of links
    many: dict  # names in /many and their content
    deleted: dict  # entry: content
    nodes: list


def all_of(work, items):
    """Runs the work on every item, as many at a time as there are processors; gives the results in order."""
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        return list(pool.map(work, items))


def sampled(items):
    """All of them; where every run of the program takes ten times as long, each fifth: the other builds run all."""
    return list(items)[::5 if os.environ.get("QUARRY_INSTRUMENTED") else 1]


def list_nodes(root):
    nodes = [Node("/$MFT", 0, False, ())]  # which it does not list
    for folder, folders, files in os.walk(os.fsencode(root)):
        for name in folders + files:
            path = os.path.join(folder, name)
            try:
                shown = path[len(os.fsencode(root)):].decode()
                names = os.getxattr(path, "ntfs.streams.list").split(b"\0")
            except (UnicodeDecodeError, OSError):  # a name that takes an escape; a link, which lists no streams
                continue
            streams = tuple(n.decode() for n in names if n)
            nodes.append(Node(shown, os.lstat(path).st_ino, name in folders, streams))
    return nodes


def write_sizes_and_streams(root, cluster, put):
    each = 3 if cluster <= 65536 else 10  # streams in clusters of their own, which the driver fills with zeros
    for size in sorted({0, 1, 500, 700, 5000, cluster - 1, cluster, cluster + 1, 3 * min(cluster, 65536) + 17, 300000}):
        put(f"size{size}", pattern(size, size))
    for stream in ("", "a", "Zone.Identifier", "потік", "🏔️"):
        put("streams", pattern(3000 + len(stream), stream), stream)
    put("many streams", b"the unnamed stream")
    for index in range(50):
        put("many streams", pattern(300 if index % each else 5000, index), f"stream {index:02d}")
    (root / "with a stream").mkdir()
    put("with a stream", pattern(6000, "directory"), "of a directory")


def write_sparse_files(root, sector, cluster, put):
    islands = 4 if cluster > 4096 else 1000 if sector == 4096 else 300  # more than a record of that size takes
    content = bytearray(islands * 2 * cluster)
    with open(root / "islands", "wb", buffering=0) as file:
        for index in range(islands):
            piece = pattern(cluster, index)
            file.seek(index * 2 * cluster)
            file.write(piece)
            content[index * 2 * cluster:index * 2 * cluster + cluster] = piece
        file.truncate(len(content))
    put("islands", bytes(content), write=False)
    with open(root / "all hole", "wb") as file:
        file.truncate(5 * cluster + 3)
    put("all hole", bytes(5 * cluster + 3), write=False)
    with open(root / "grown", "wb") as file:
        file.write(pattern(cluster + 100, "grown"))
        file.truncate(3 * cluster + 7)
    put("grown", pattern(cluster + 100, "grown") + bytes(2 * cluster - 93), write=False)


def write_compressed_files(root, cluster, put):
    (root / "packed").mkdir()
    os.setxattr(root / "packed", "system.ntfs_attrib", struct.pack("<I", FILE_ATTRIBUTE_COMPRESSED))
    unit = 16 * cluster
    noise = pattern(200000, "noise")
    for name, content in {
            "text": TEXT, "noise": noise, "zeros": bytes(150000), "one unit": TEXT[:unit],
            "one unit and a byte": TEXT[:unit] + b"!", "resident": b"tiny",
            "mixed": b"".join((pattern(5000, i) if i % 3 else bytes(7000)) + b"words " * 900 for i in range(25)),
            "zeros between": TEXT[:unit] + bytes(unit) + TEXT[:unit] + noise[:unit]}.items():
        put("packed/" + name, content)
    with open(root / "packed" / "holes", "wb") as file:
        file.seek(unit)
        file.write(TEXT[:unit // 2])
        file.seek(4 * unit)
        file.write(noise[:unit])
        file.truncate(7 * unit + 1)
    holes = bytes(unit) + TEXT[:unit // 2] + bytes(3 * unit - unit // 2) + noise[:unit]
    put("packed/holes", holes + bytes(7 * unit + 1 - len(holes)), write=False)


def write_links(root, put, reparse):
    put("target", b"the link's target")
    for name in ("hard link", "folder with links/another hard link"):
        (root / name).parent.mkdir(exist_ok=True)
        os.link(root / "target", root / name)
        put(name, b"the link's target", write=False)
    (root / "real" / "place").mkdir(parents=True)
    put("real/place/file", b"through the junction")
    (root / "junction").mkdir()
    (root / "relative").mkdir()
    set_reparse(root / "junction", reparse_data(MOUNT_POINT, "\\??\\C:\\real", "C:\\real"))
    set_reparse(root / "relative", reparse_data(SYMBOLIC_LINK, "real\\place", "real\\place", flags=1))
    (root / "link to a file").write_bytes(b"")
    set_reparse(root / "link to a file", reparse_data(SYMBOLIC_LINK, "target", "target", flags=1))
    (root / "above the root").write_bytes(b"")
    set_reparse(root / "above the root", reparse_data(SYMBOLIC_LINK, "..\\target", "target", flags=1))
    (root / "elsewhere").write_bytes(b"what is left of it")
    with open(f"{root}/elsewhere:note", "wb") as file:
        file.write(b"a note beside it")
    set_reparse(root / "elsewhere", struct.pack("<IHH", DEDUPLICATED, 8, 0) + bytes(8))
    reparse.update(("/junction", "/relative", "/link to a file", "/above the root", "/elsewhere"))


def fill_volume(folder, sector, cluster, large):
    """A volume with hard cases of all kinds, in a folder of the caller."""
    need_mounting()
    need_tools("ntfscat", "ntfsfallocate")
    image = folder / "volume.img"
    with open(image, "wb") as out:
        out.truncate(512 * MIB if cluster > 65536 else 48 * MIB)
    run_tool("mkntfs", "-q", "-F", "-Q", "-c", cluster, "-s", sector, "-p", 0, "-H", 255, "-S", 63, image)
    volume = Volume(image, folder / "mount")
    written, reparse, many, deleted = {}, set(), {}, {}
    with volume.mounted("compression") as root:
        def put(path, content, stream="", write=True):
            written["/" + path, stream] = content
            if write:
                with open(f"{root}/{path}" + (":" + stream if stream else ""), "wb") as file:
                    file.write(content)

        write_sizes_and_streams(root, cluster, put)
        write_sparse_files(root, sector, cluster, put)
        if cluster <= 4096:  # larger ones cannot be compressed
            write_compressed_files(root, cluster, put)
        write_links(root, put, reparse)
        for name in ("Twin", "twin", "TWIN"):
            put(name, name.encode())
        deep = "/".join(f"level {i:02d}" for i in range(40))
        (root / deep).mkdir(parents=True)
        put(deep + "/bottom", b"at the bottom")
        (root / "many").mkdir()
        for index in range(1200 if large else 100):
            name = f"File {index * 7919 % 10007:05d} of many"
            many[name] = b"content %d" % index
            (root / "many" / name).write_bytes(many[name])
        (root / "names").mkdir()
        for name, canonical in NAMES:
            content = pattern(200, canonical)
            written["/names/" + canonical, ""] = content
            with open(os.path.join(os.fsencode(root / "names"), os.fsencode(name)), "wb") as file:
                file.write(content)
        for name, size in (("small and gone", 100), ("large and gone", 70000)):
            (root / name).write_bytes(pattern(size, name))
            deleted[(root / name).stat().st_ino] = pattern(size, name)
        put("allocated ahead", pattern(5000, "ahead"))
    with volume.mounted() as root:
        for name in ("small and gone", "large and gone"):
            (root / name).unlink()
    run_tool("ntfsfallocate", "-l", 3 * cluster + 20000, image, "/allocated ahead")
    written["/allocated ahead", ""] += bytes(3 * cluster + 15000)
    with volume.mounted("ro", "show_sys_files") as root:
        nodes = list_nodes(root)
    return Filled(volume, written, reparse, many, deleted, nodes)


@pytest.fixture(scope="module", params=SHAPES, ids=lambda shape: f"sectors of {shape[0]}, clusters of {shape[1]}")
def filled(request, tmp_path_factory):
    folder = tmp_path_factory.mktemp("exact")
    yield fill_volume(folder, *request.param)
    shutil.rmtree(folder)


@pytest.fixture
def exact(scratch):
    return Exact(scratch)


def test_the_volumes_hold_the_hard_cases(filled):
    """Lists of attributes, compressed streams, and a stream whose valid length is below its size."""
    _, cluster, _ = filled.volume.geometry()
    if cluster > 65536:
        return  # which istat cannot read
    entries = {node.path: node.entry for node in filled.nodes}

    def lines(path, kind):
        return [line for line in filled.volume.attribute_lines(entries[path]) if kind in line]

    assert lines("/many streams", "$ATTRIBUTE_LIST")
    ahead, = re.findall(r"size: (\d+)  init_size: (\d+)", lines("/allocated ahead", "$DATA")[0])
    assert (int(ahead[0]), int(ahead[1])) == (3 * cluster + 20000, 5000)
    if cluster <= 4096:
        assert lines("/islands", "$ATTRIBUTE_LIST")
        for name in ("text", "mixed", "holes"):
            assert "Compressed" in lines("/packed/" + name, "$DATA")[0]


def test_every_stream_that_was_written_is_found_by_its_path_and_whole(filled, exact):
    def check(item):
        (path, stream), content = item
        shown = path + (":" + stream if stream else "")
        assert exact.whole(filled.volume.image, "-src", shown) == content, shown

    all_of(check, filled.written.items())
    assert len(filled.written) > 90


def with_all_sector_ends(stored, size):
    """Records with the words under their update sequence numbers put back, as ntfscat gives $MFT and its mirror."""
    blocks = (stored[at:at + size] for at in range(0, len(stored), size))
    return b"".join(with_sector_ends(block) if block[:4] == b"FILE" else block for block in blocks)


def record_size(volume):
    with open(volume.image, "rb") as image:
        boot = image.read(512)
    size = struct.unpack_from("<b", boot, 64)[0]
    return 1 << -size if size < 0 else size * volume.geometry()[1]


def ntfscat(image, entry, stream):
    return run_tool("ntfscat", "-f", "-i", entry, *(("-n", stream) if stream else ()), image)


def allowed_reason(node, stream):
    """Why a stream may not be copied; none for nearly all."""
    if stream:
        return None
    if node.directory:
        return "directory"
    return "no-stream" if node.path in WITHOUT_UNNAMED_STREAM else None


def test_every_stream_of_every_entry_is_what_ntfscat_reads(filled, exact):
    """System files too, of which some have no unnamed stream."""
    image = filled.volume.image
    streams = [(node, stream) for node in filled.nodes for stream in ("", *node.streams)
               if not node.path.startswith("/many/") and node.path not in filled.reparse and stream != "$Bad"]
    assert {"/$MFT", "/$Bitmap", "/$Secure", "/islands", "/with a stream"} - {node.path for node, _ in streams} == set()

    def check(item):
        node, stream = item
        result = exact.run(image, "-mft", node.entry, *(("-src", ":" + stream) if stream else ()))
        reason = allowed_reason(node, stream)
        if reason:
            assert (result.status, result.reason) == (1, reason), (node, result.lines)
            return 0
        assert result.status == 0, (node, stream, result.lines)
        content = with_all_sector_ends(result.content, record_size(filled.volume)) if node.entry in (0, 1) else result.content
        assert content == ntfscat(image, node.entry, stream), (node, stream)
        return 1

    assert len(streams) > 90
    chosen = sampled(streams)
    assert sum(all_of(check, chosen)) > len(chosen) // 2


READ_ALL = """
import hashlib, json, sys
import pyfsntfs
volume = pyfsntfs.volume()
volume.open(sys.argv[1])
found = []
def digest(stream):
    size, sha = stream.get_size(), hashlib.sha256()
    stream.seek(0)
    while size:
        part = stream.read(min(size, 1 << 20))
        if not part:
            return "ends early"
        sha.update(part)
        size -= len(part)
    return sha.hexdigest()
for entry in map(int, sys.argv[2:]):
    file = volume.get_file_entry(entry)
    if file.has_default_data_stream():
        found.append((entry, "", digest(file)))
    for index in range(file.number_of_alternate_data_streams):
        stream = file.get_alternate_data_stream(index)
        found.append((entry, stream.name, digest(stream)))
print(json.dumps(found))
"""


def test_every_stream_is_what_libfsntfs_reads(filled, exact):
    python = "/usr/bin/python3"  # the one that Debian's package serves
    installed = subprocess.run([python, "-c", "import pyfsntfs"], capture_output=True, check=False).returncode == 0
    need(installed, "python3-libfsntfs is not installed")
    entries = sorted({node.entry for node in filled.nodes if node.path not in filled.reparse
                      and node.path != "/$BadClus" and not node.path.startswith("/many/")})
    streams = json.loads(run_tool(python, "-c", READ_ALL, filled.volume.image, *entries))

    def check(item):
        entry, stream, digest = item
        content = exact.whole(filled.volume.image, "-mft", entry, *(("-src", ":" + stream) if stream else ()))
        assert hashlib.sha256(content).hexdigest() == digest, (entry, stream, digest)

    all_of(check, sampled(streams))
    assert len(streams) > 90


def test_the_list_of_bad_clusters_is_a_hole_as_large_as_the_volume(filled, scratch, exact):
    target = scratch / "bad"
    command = [exact.program, "-exact", "-image", filled.volume.image, "-src", "/$BadClus:$Bad", "-sparse", "-dst", target]
    done = subprocess.run(command, capture_output=True, stdin=subprocess.DEVNULL, timeout=TIME_LIMIT, check=False)
    assert done.returncode == 0, done.stderr
    with open(filled.volume.image, "rb") as image:
        boot = image.read(512)
    _, cluster, _ = filled.volume.geometry()
    sectors, = struct.unpack_from("<Q", boot, 40)
    sector, = struct.unpack_from("<H", boot, 11)
    assert target.stat().st_size == sectors * sector // cluster * cluster
    assert target.stat().st_blocks == 0


def test_each_of_many_names_is_found_in_either_case_and_no_other(filled, exact):
    image = filled.volume.image

    def check(item):
        (name, content), spelt = item
        assert exact.whole(image, "-src", "/many/" + spelt(name)) == content, name

    all_of(check, sampled(zip(filled.many.items(), itertools.cycle((str, str.upper, str.lower)))))

    def refuse(name):
        result = exact.run(image, "-src", "/many/" + name)
        assert (result.status, result.reason) == (1, "name"), name

    present = sampled(sorted(filled.many)[::50])
    all_of(refuse, [near for name in present for near in (name + "x", name[:-1], name.replace("of", "0f"))])


def test_of_twins_only_the_exact_spelling_is_taken(filled, exact):
    image = filled.volume.image
    result = exact.run(image, "-src", "/tWIN")
    assert (result.status, result.reason) == (1, "ambiguous")
    assert result.lines[-1].endswith("differ only in case: TWIN, Twin, twin")
    for name in ("Twin", "twin", "TWIN"):
        assert exact.whole(image, "-src", "/" + name) == name.encode()


def test_links_lead_on_or_say_where_they_lead(filled, exact):
    image = filled.volume.image
    assert exact.whole(image, "-src", "/relative/file") == b"through the junction"
    assert exact.whole(image, "-src", "/link to a file") == b"the link's target"
    result = exact.run(image, "-src", "/junction/place/file")
    assert (result.status, result.reason) == (1, "link")
    assert exact.whole(image, "-letter", "c", "-src", "/junction/place/file") == b"through the junction"
    assert exact.whole(image, "-raw", "-src", "/link to a file") == b""
    result = exact.run(image, "-src", "/above the root")
    assert (result.status, result.reason) == (1, "above")
    assert result.lines[-1].startswith('err: path "/above the root": ')


def test_of_a_file_whose_data_is_elsewhere_the_other_streams_are_copied(filled, exact):
    image = filled.volume.image
    result = exact.run(image, "-src", "/elsewhere")
    assert (result.status, result.reason) == (1, "tag")
    assert exact.whole(image, "-src", "/elsewhere:note") == b"a note beside it"
    assert exact.whole(image, "-raw", "-src", "/elsewhere") == b"what is left of it"


def test_deleted_entries_come_with_a_warning_and_are_in_doubt_when_their_clusters_could_be_used(filled, exact):
    assert len(filled.deleted) == 2
    for entry, content in filled.deleted.items():
        result = exact.run(filled.volume.image, "-mft", entry)
        assert result.content == content
        assert any(line.startswith(f"warning: record {entry}: deleted") for line in result.lines), result.lines
        assert result.status == (4 if len(content) > 1000 else 0)
    for name in ("small and gone", "large and gone"):
        result = exact.run(filled.volume.image, "-src", "/" + name)
        assert (result.status, result.reason) == (1, "name")


def test_raw_gives_whole_clusters_and_does_not_decode(filled, exact):
    _, cluster, _ = filled.volume.geometry()
    size = max(5000, cluster + 1)
    raw = exact.whole(filled.volume.image, "-raw", "-src", f"/size{size}")
    assert len(raw) == -(-size // cluster) * cluster
    assert raw[:size] == pattern(size, size)
    islands = exact.whole(filled.volume.image, "-raw", "-src", "/islands")
    assert islands[:len(filled.written["/islands", ""])] == filled.written["/islands", ""]
    if cluster <= 4096:
        packed = exact.whole(filled.volume.image, "-raw", "-src", "/packed/text")
        # An LZNT1 chunk of 4096 bytes that are compressed: the size field's top bits are 1011.
        assert packed[1] >> 4 == 0b1011 and len(packed) % (16 * cluster) == 0


def test_clusters_are_the_image_bytes(filled, exact):
    _, cluster, mft = filled.volume.geometry()
    with open(filled.volume.image, "rb") as image:
        image.seek(mft * cluster)
        expected = image.read(2 * cluster)
    assert exact.whole(filled.volume.image, "-cluster", mft, 2) == expected
    assert exact.whole(filled.volume.image, "-cluster", hex(mft)) == expected[:cluster]
    clusters = os.stat(filled.volume.image).st_size // cluster
    assert exact.run(filled.volume.image, "-cluster", clusters).status == 2


def test_what_stands_at_the_destination_is_replaced_only_when_told(filled, exact, scratch):
    image = filled.volume.image
    target = scratch / "taken"

    def run(*arguments, dst=target):
        command = [exact.program, "-exact", "-image", image, *arguments, "-dst", dst]
        return subprocess.run(command, capture_output=True, stdin=subprocess.DEVNULL, timeout=TIME_LIMIT, check=False)

    target.write_bytes(b"earlier")
    done = run("-src", "/size5000")
    assert (done.returncode, done.stderr.decode().splitlines()[-1]) == (2, f"err: destination {target}: exists; say -overwrite")
    assert target.read_bytes() == b"earlier"
    assert run("-src", "/none", "-overwrite").returncode == 1
    assert target.read_bytes() == b"earlier"
    assert run("-src", "/size5000", "-overwrite").returncode == 0
    assert target.read_bytes() == filled.written["/size5000", ""]
    (scratch / "link").symlink_to(target)
    assert run("-src", "/size1", "-overwrite", dst=scratch / "link").returncode == 2
    assert target.read_bytes() == filled.written["/size5000", ""]
    assert run("-src", "/size1", dst=scratch / "no folder" / "copy").returncode == 2
    assert sorted(os.listdir(scratch)) == ["link", "taken"]


def test_a_record_that_dd_wrote_over_fails_and_only_its_own_streams(make_volume, exact):
    volume = make_volume()
    with volume.mounted() as root:
        for name in ("hit", "beside"):
            (root / name).write_bytes(pattern(20000, name))
        entry = (root / "hit").stat().st_ino
    _, cluster, mft = volume.geometry()
    at = mft * cluster + entry * record_size(volume)
    for damage, words in ((at + 510, f"record {entry}: torn: sector 0 ends in 0xFFFF, the update sequence number is 0x"),
                          (at, f'record {entry}: begins with "')):
        run_tool("dd", f"of={volume.image}", "bs=1", f"seek={damage}", "conv=notrunc", "status=none", input=b"\xff\xff")
        for arguments in (("-src", "/hit"), ("-mft", entry)):
            result = exact.run(volume.image, *arguments)
            assert result.status == 1 and result.lines[-1].startswith("err: " + words), result.lines
            assert result.lines[-1].endswith(f"(source byte 0x{damage:X})"), result.lines
        assert exact.whole(volume.image, "-src", "/beside") == pattern(20000, "beside")


def test_a_source_that_is_none_is_status_5(exact, scratch):
    assert exact.run(scratch / "missing", "-src", "/a").status == 5
    (scratch / "zeros").write_bytes(bytes(MIB))
    assert exact.run(scratch / "zeros", "-src", "/a").status == 5


def test_a_file_in_many_fragments(make_volume, exact):
    volume = make_volume(size=16 * MIB)
    content = pattern(700 * 4096 - 5)
    with volume.mounted() as root:
        leave_only_gaps(root, 500, 4096)
        with open(f"{root}/file:stream", "wb") as stream:
            stream.write(content[:400 * 4096])
        with contextlib.suppress(OSError):  # the volume is full
            (root / "file").write_bytes(content[400 * 4096:])
        entry = (root / "file").stat().st_ino
    pieces = [item for item in volume.attribute_list(entry) if item.name == "stream"]
    assert len(pieces) == 2
    assert exact.whole(volume.image, "-src", "/file:stream") == content[:400 * 4096]
    assert exact.whole(volume.image, "-mft", entry) == ntfscat(volume.image, entry, "")
