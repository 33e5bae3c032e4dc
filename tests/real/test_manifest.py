"""Manifests of many runs: every line is what docs/manifest.schema.json describes, and says what other tools say.

The volume is made by mkntfs and filled through ntfs-3g.
"""

import datetime
import hashlib
import json
import os
import pathlib
import re
import shutil
import struct
import subprocess
import typing

import pytest

from test_links import set_reparse
from volumes import FILE_ATTRIBUTE_COMPRESSED, MIB, TIME_LIMIT, Volume, need, need_mounting, need_tools, pattern, run_tool

jsonschema = pytest.importorskip("jsonschema") if not os.environ.get("CI") else __import__("jsonschema")

SCHEMA = json.loads((pathlib.Path(__file__).parents[2] / "docs" / "manifest.schema.json").read_text(encoding="utf-8"))
WOF = 0x80000017
TEXT = b"a line of text that compresses well\n" * 4000

# Names as the driver takes them.
NAMES = ("plain.txt", "größe.txt", "中文名称", "🏔️⛏️", "quote\"d", b"back\\slash", b"control\x01\x1f", b"delete\x7f",
         b"lone \xed\xa0\x80 surrogate", b"low \xed\xbf\xbf", b"c1 \xc2\x9b", "right \u202e left", "line\u2028feed",
         "tab\tand\nline", "x" * 255)


class Made(typing.NamedTuple):
    volume: Volume
    written: dict  # name as bytes: content
    entries: dict  # name as bytes: number of the entry
    times: dict  # name as bytes: time of modification, in 100 ns since 1970
    deleted: int


@pytest.fixture(scope="module")
def made(tmp_path_factory):
    need_mounting()
    folder = tmp_path_factory.mktemp("manifest")
    image = folder / "volume.img"
    with open(image, "wb") as out:
        out.truncate(64 * MIB)
    run_tool("mkntfs", "-q", "-F", "-Q", "-p", 0, "-L", "Label ü", image)
    volume = Volume(image, folder / "mount")
    filled = Made(volume, {}, {}, {}, 0)

    def put(root, name, content):
        path = os.fsencode(root) + b"/" + os.fsencode(name)
        with open(path, "wb") as file:
            file.write(content)
        status = os.stat(path)
        filled.written[os.fsencode(name)] = content
        filled.entries[os.fsencode(name)] = status.st_ino
        filled.times[os.fsencode(name)] = status.st_mtime_ns // 100

    with volume.mounted("compression") as root:
        for index, name in enumerate(NAMES):
            put(root, name, pattern(100 + 3000 * index, index))
        (root / "packed").mkdir()
        attributes = struct.unpack("<I", os.getxattr(root / "packed", "system.ntfs_attrib"))[0]
        os.setxattr(root / "packed", "system.ntfs_attrib", struct.pack("<I", attributes | FILE_ATTRIBUTE_COMPRESSED))
        put(root, "packed/text", TEXT)
        put(root, "wof", TEXT[:4096])
        with open(root / "wof:WofCompressedData", "wb") as file:
            file.write(TEXT[:4096])  # one chunk, as long as what it stands for
        set_reparse(root / "wof", struct.pack("<IHH4I", WOF, 16, 0, 1, 2, 1, 0))
        with open(root / "plain.txt:Note:1", "wb") as file:
            file.write(b"note")
        put(root, "gone", pattern(20000, "gone"))
        os.unlink(root / "gone")
        put(root, "last", pattern(9 * MIB, "last"))
    yield filled._replace(deleted=filled.entries[b"gone"])
    shutil.rmtree(folder)


class Exact:
    def __init__(self, folder):
        self.program = os.environ["QUARRY_PROGRAM"]
        self.folder = folder
        self.lines = []
        (folder / "out").mkdir()

    def __call__(self, *words, standard_input=b"", status=None, manifest="m.jsonl"):
        """Runs with a manifest; gives the lines that the run has added, each checked against the schema."""
        before = self.read(manifest)
        done = subprocess.run([self.program, "-exact", *[os.fsencode(word) for word in words], "-manifest", manifest],
                              cwd=self.folder, capture_output=True, input=standard_input, timeout=TIME_LIMIT, check=False)
        assert status is None or done.returncode == status, (done.returncode, done.stderr)
        after = self.read(manifest)
        assert after.startswith(before)
        assert after.endswith(b"\n") or not after
        added = [json.loads(line) for line in after[len(before):].decode("utf-8").split("\n")[:-1]]
        for line in added:
            jsonschema.validate(line, SCHEMA, jsonschema.Draft202012Validator)
        self.lines += added
        return added

    def read(self, name):
        path = self.folder / name
        return path.read_bytes() if path.exists() else b""

    def copied(self, line):
        return (self.folder / line["copy"]["path"]).read_bytes()


@pytest.fixture
def exact(scratch):
    return Exact(scratch)


def ticks(text):
    """Of a time in the manifest, in 100 ns since 1970."""
    found = re.fullmatch(r"(.*)\.(\d{7})Z", text)
    seconds = datetime.datetime.fromisoformat(found[1]).replace(tzinfo=datetime.timezone.utc).timestamp()
    return int(seconds) * 10 ** 7 + int(found[2])


def test_the_schema_is_one_and_refuses_what_is_no_line():
    jsonschema.Draft202012Validator.check_schema(SCHEMA)
    validator = jsonschema.Draft202012Validator(SCHEMA)
    for wrong in ({}, [], {"schema": "quarry-manifest/1"}):
        assert not validator.is_valid(wrong)


def test_every_name_is_given_back_and_leads_to_the_same_bytes(made, exact):
    by_number = [f"{made.entries[os.fsencode(name)]}" for name in NAMES]
    lines = exact("-image", made.volume.image, "-pipe", "-dst", "out/", standard_input="\n".join(by_number).encode())
    assert len(lines) == len(NAMES)
    for index, (name, line) in enumerate(zip(NAMES, lines)):
        content = made.written[os.fsencode(name)]
        assert line["result"] == "complete", line["error"]
        assert line["object"]["entry"] == made.entries[os.fsencode(name)]
        assert line["copy"]["sha256"] == hashlib.sha256(content).hexdigest()
        assert line["copy"]["size"] == len(content)
        assert exact.copied(line) == content
        assert line["object"]["path"] == "/" + line["object"]["names"][0]["name"]
        again = exact("-image", made.volume.image, "-src", line["object"]["path"], "-dst", f"copy{index}", status=0)
        assert again[0]["object"]["path"] == line["object"]["path"]
        assert again[0]["copy"]["sha256"] == line["copy"]["sha256"]
    assert len({line["object"]["path"] for line in lines}) == len(NAMES)


def test_times_are_those_that_the_driver_shows(made, exact):
    for name in ("größe.txt", "quote\"d", "last"):
        line, = exact("-image", made.volume.image, "-src", "/" + name, "-dst", "out/", status=0)
        assert ticks(line["times"]["standard"]["modified"]) == made.times[os.fsencode(name)]


def test_what_was_read_and_how_it_is_stored_is_said(made, exact):
    line, = exact("-image", made.volume.image, "-src", "/plain.txt", "-dst", "a", status=0)
    assert line["object"]["resident"] is True
    assert line["volume"]["label"] == "Label ü"
    assert line["source"]["files"] == [{"path": str(made.volume.image), "size": 64 * MIB, "acquired_md5": None,
                                        "acquired_sha1": None, "sha256_told": None}]
    assert line["volume"]["cluster_size"] == made.volume.geometry()[1]
    line, = exact("-image", made.volume.image, "-src", "/packed/text", "-dst", "b", status=0)
    assert line["object"]["compression"] == {"kind": "lznt1", "unit": 65536}
    assert line["copy"]["sha256"] == hashlib.sha256(TEXT).hexdigest()
    line, = exact("-image", made.volume.image, "-src", "/packed/text", "-raw", "-dst", "c", status=0)
    assert line["object"]["raw"] is True and line["copy"]["size"] == line["object"]["allocated"]
    line, = exact("-image", made.volume.image, "-src", "/wof", "-dst", "d", status=0)
    assert line["object"]["compression"] == {"kind": "wof", "format": "xpress4k"}
    assert line["object"]["reparse"] == "0x80000017 (WOF)"
    assert exact.copied(line) == TEXT[:4096]
    line, = exact("-image", made.volume.image, "-src", "/plain.txt:Note\\:1", "-dst", "e", "-md5", status=0)
    assert line["object"]["stream"] == "Note\\:1"
    assert line["copy"]["md5"] == hashlib.md5(b"note").hexdigest()
    line, = exact("-image", made.volume.image, "-src", "/::$INDEX_ROOT", "-dst", "f")
    line, = exact("-image", made.volume.image, "-cluster", "0", "2", "-dst", "g", status=0)
    assert (line["object"]["lcn"], line["object"]["clusters"], line["object"]["type"]) == (0, 2, None)
    with open(made.volume.image, "rb") as image:
        assert line["copy"]["sha256"] == hashlib.sha256(image.read(line["copy"]["size"])).hexdigest()


def test_a_copy_in_doubt_names_the_doubt(made, exact):
    line, = exact("-image", made.volume.image, "-mft", str(made.deleted), "-dst", "a", status=4)
    assert line["result"] == "in doubt"
    assert line["object"]["in_use"] is False
    assert line["object"]["reused_clusters"] is not None
    assert "deleted" in [warning["code"] for warning in line["warnings"]]


def test_what_could_not_be_read_is_said_to_the_byte(made, exact):
    entry = made.entries[b"last"]
    lcn = int(re.search(rb"Type: \$DATA.*\n(\d+)", run_tool("istat", "-f", "ntfs", made.volume.image, entry))[1])
    cut = exact.folder / "cut.img"
    shutil.copyfile(made.volume.image, cut)
    first = lcn * made.volume.geometry()[1] + 5 * MIB
    os.truncate(cut, first)
    line, = exact("-image", cut, "-src", "/last", "-dst", "a", status=1)
    assert line["error"]["code"] in ("source-end", "source-read")
    assert line["object"]["size"] == 9 * MIB and line["copy"] is None
    line, = exact("-image", cut, "-src", "/last", "-zero_unreadable", "-dst", "b", status=4)
    content = exact.copied(line)
    written = made.written[b"last"]
    assert line["unread"]
    for span in line["unread"]:
        assert content[span["offset"]:span["offset"] + span["length"]] == bytes(span["length"])
        written = written[:span["offset"]] + bytes(span["length"]) + written[span["offset"] + span["length"]:]
    assert content == written
    assert line["copy"]["sha256"] == hashlib.sha256(content).hexdigest()


def test_a_failure_has_a_line_whatever_failed(made, exact):
    line, = exact("-image", "nothing.img", "-src", "/a", "-dst", "a", status=5)
    assert line["error"]["code"] == "source-open"
    (exact.folder / "empty.img").write_bytes(bytes(MIB))
    line, = exact("-image", "empty.img", "-src", "/a", "-dst", "a", status=5)
    assert line["error"]["code"] == "no-volume" and line["source"]["files"][0]["size"] == MIB
    line, = exact("-image", made.volume.image, "-src", "/packed", "-dst", "a", status=1)
    assert line["error"]["code"] == "directory" and line["object"]["path"] == "/packed"
    line, = exact("-image", made.volume.image, "-cluster", "99999999", "-dst", "a", status=2)
    assert line["error"]["code"] == "outside" and line["object"]["lcn"] == 99999999
    lines = exact("-image", made.volume.image, "-pipe", "-dst", "out/", standard_input=b"/\xff\n/plain.txt\n", status=3)
    assert [each["result"] for each in lines] == ["failed", "complete"]
    assert lines[0]["object"]["asked"] == "/\ufffd"


def test_a_path_of_the_host_that_is_no_text_is_kept_to_the_byte(made, exact):
    odd = os.fsencode(exact.folder) + b"/d\xff\xe4.img"
    shutil.copyfile(made.volume.image, odd)
    line, = exact("-image", b"d\xff\xe4.img", "-src", "/plain.txt", "-dst", b"\xc3\x28", status=0)
    file, = line["source"]["files"]
    assert file["path"] == "d\ufffd\ufffd.img" and bytes.fromhex(file["path_bytes"]) == b"d\xff\xe4.img"
    assert bytes.fromhex(line["copy"]["path_bytes"]) == b"\xc3\x28"
    assert (exact.folder / os.fsdecode(b"\xc3\x28")).read_bytes() == made.written[b"plain.txt"]


def test_digests_of_an_acquisition_are_noted(made, exact):
    need_tools("ewfacquire")
    run_tool("ewfacquire", "-u", "-q", "-d", "sha1", "-c", "fast", "-S", "4194304", "-t", exact.folder / "disk", made.volume.image)
    segments = sorted(exact.folder.glob("disk.E*"))
    assert len(segments) > 1
    line, = exact("-image", "disk.E01", "-src", "/last", "-dst", "a", "-source_sha256", "ab" * 32, status=0)
    content = made.volume.image.read_bytes()
    assert line["source"]["kind"] == "ewf"
    assert [(file["path"], file["size"]) for file in line["source"]["files"]] == [
        (segment.name, segment.stat().st_size) for segment in segments]
    first, *others = line["source"]["files"]
    assert first["acquired_md5"] == hashlib.md5(content).hexdigest()
    assert first["acquired_sha1"] == hashlib.sha1(content).hexdigest()
    assert first["sha256_told"] == "ab" * 32
    assert {file["acquired_md5"] for file in others} == {file["sha256_told"] for file in others} == {None}
    assert line["copy"]["sha256"] == hashlib.sha256(made.written[b"last"]).hexdigest()


def test_a_full_disk_ends_the_run_and_leaves_whole_lines(made, exact):
    need(shutil.which("unshare"), "unshare is not installed")
    script = """
        mkdir small && mount -t tmpfs -o size=4k,mode=777 tmpfs small || exit 99
        printf '/plain.txt\\n/last\\n24\\n25\\n26\\n27\\n' |
            "$0" -exact -image "$1" -pipe -dst out/ -manifest small/m.jsonl
        status=$?
        cp small/m.jsonl kept.jsonl
        exit $status
    """
    done = subprocess.run(["unshare", "-m", "sh", "-c", script, exact.program, str(made.volume.image)], cwd=exact.folder,
                          capture_output=True, timeout=TIME_LIMIT, check=False)
    need(done.returncode != 99, "no file system can be mounted here")
    assert done.returncode == 1, done.stderr
    assert b": No space left on device\n" in done.stderr
    kept = exact.read("kept.jsonl")
    assert kept.endswith(b"\n")
    for line in kept.splitlines():
        jsonschema.validate(json.loads(line), SCHEMA, jsonschema.Draft202012Validator)


def test_a_run_that_was_cut_off_goes_on_where_it_ended(made, exact):
    names = [name for name in NAMES if isinstance(name, str) and name.isprintable()]
    asked = "".join(f"/{name}\n" for name in names).encode()
    source = ("-image", made.volume.image, "-pipe", "-dst", "out/")
    exact(*source, standard_input=b"\n".join(asked.split(b"\n")[:3]), status=0)
    before = exact.read("m.jsonl")
    lines = exact(*source, "-resume", standard_input=asked, status=0)
    assert len(lines) == len(names) - 3
    for name in names:
        assert (exact.folder / "out" / name).read_bytes() == made.written[os.fsencode(name)]
    # All are there: nothing is copied, and nothing is added to the manifest.
    assert exact(*source, "-resume", standard_input=asked, status=0) == []
    # One that is gone, and one of another size, are not kept; a file that is in the way still is in the way.
    (exact.folder / "out" / names[0]).unlink()
    os.truncate(exact.folder / "out" / names[1], 5)
    lines = exact(*source, "-resume", standard_input=asked, status=3)
    assert [(line["object"]["asked"], line["result"]) for line in lines] == [
        ("/" + names[0], "complete"), ("/" + names[1], "failed")]
    assert lines[1]["error"]["code"] == "exists"
    lines = exact(*source, "-resume", "-overwrite", standard_input=asked, status=0)
    assert [(line["object"]["asked"], line["result"]) for line in lines] == [("/" + names[1], "complete")]
    assert exact.read("m.jsonl").startswith(before)


def test_only_the_same_object_of_the_same_source_at_the_same_place_is_kept(made, exact):
    one = ("-image", made.volume.image, "-src", "/last", "-dst", "a")
    exact(*one, status=0)
    assert exact(*one, "-resume", status=0) == []
    assert exact("-image", made.volume.image, "-mft", str(made.entries[b"last"]), "-dst", "a", "-resume", status=0) == []
    line, = exact("-image", made.volume.image, "-src", "/plain.txt", "-dst", "a", "-resume", status=1)
    assert line["error"]["code"] == "exists"
    # The clusters hold no more than the stream, so the same bytes are at "a".
    line, = exact("-image", made.volume.image, "-src", "/last", "-raw", "-dst", "a", "-resume", status=0)
    assert (line["result"], line["object"]["raw"]) == ("complete", True)
    line, = exact("-image", made.volume.image, "-src", "/last", "-dst", "b", "-resume", status=0)
    assert line["result"] == "complete"
    shutil.copyfile(made.volume.image, exact.folder / "other.img")
    # The same object of another source has its line if the bytes are the same.
    line, = exact("-image", "other.img", "-src", "/last", "-dst", "a", "-resume", status=0)
    assert (line["result"], line["source"]["files"][0]["path"]) == ("complete", "other.img")
    assert "there-already" in [warning["code"] for warning in line["warnings"]]
    # What is in doubt is not kept: it is read again, and has a line again.
    exact("-image", made.volume.image, "-mft", str(made.deleted), "-dst", "c", status=4)
    for more in ((), ("-overwrite",)):
        line, = exact("-image", made.volume.image, "-mft", str(made.deleted), "-dst", "c", "-resume", *more, status=4)
        assert line["result"] == "in doubt"


def test_the_last_line_of_a_path_says_what_it_holds(made, exact):
    first = ("-image", made.volume.image, "-cluster", "0", "-dst", "a")
    second = ("-image", made.volume.image, "-cluster", "1", "-dst", "a")
    exact(*first, status=0)
    exact(*second, "-overwrite", status=0)
    line, = exact(*first, "-resume", status=1)
    assert line["error"]["code"] == "exists"
    assert exact(*second, "-resume", status=0) == []
    # A copy in doubt took the place of the complete one.
    exact("-image", made.volume.image, "-mft", str(made.deleted), "-dst", "a", "-overwrite", status=4)
    line, = exact(*second, "-resume", status=1)
    assert line["error"]["code"] == "exists"


def test_relative_paths_are_those_of_the_directory_of_the_run(made, exact):
    shutil.copyfile(made.volume.image, exact.folder / "v.img")
    exact("-image", "v.img", "-src", "/last", "-dst", "a", status=0)
    assert exact("-image", "./v.img", "-src", "/last", "-dst", str(exact.folder / "a"), "-resume", status=0) == []
    elsewhere = exact.folder / "elsewhere"
    elsewhere.mkdir()
    shutil.copyfile(made.volume.image, elsewhere / "v.img")
    (elsewhere / "a").write_bytes(bytes(len((exact.folder / "a").read_bytes())))
    done = subprocess.run([exact.program, "-exact", "-image", "v.img", "-src", "/last", "-dst", "a", "-manifest", "../m.jsonl",
                           "-resume"], cwd=elsewhere, capture_output=True, timeout=TIME_LIMIT, check=False)
    assert done.returncode == 1 and b"exists" in done.stderr, done.stderr


@pytest.mark.parametrize("broken", [b"no json\n", b"[1]\n", b"{\n", b"\n", b"\xff\xfe\n", b"[" * 100000 + b"\n"])
def test_a_damaged_manifest_proves_nothing(made, exact, broken):
    one = ("-image", made.volume.image, "-src", "/last", "-dst", "a")
    exact(*one, status=0)
    with open(exact.folder / "m.jsonl", "ab") as file:
        file.write(b'{"schema":"quarry-manifest/2","result":"complete"}\n{}\n' + broken)
    before = exact.read("m.jsonl")
    done = subprocess.run([exact.program, "-exact", *map(str, one), "-manifest", "m.jsonl", "-resume"], cwd=exact.folder,
                          capture_output=True, timeout=TIME_LIMIT, check=False)
    assert done.returncode == 2
    assert done.stderr == b"err: manifest m.jsonl: line 4 is no JSON object\n"
    assert exact.read("m.jsonl") == before


def test_a_line_without_end_takes_no_memory_without_end(made, exact):
    with open(exact.folder / "m.jsonl", "wb") as file:
        file.write(b'{"schema":"quarry-manifest/1","x":"' + b"x" * (17 * MIB) + b'"}\n')
    done = subprocess.run([exact.program, "-exact", "-image", made.volume.image, "-src", "/last", "-dst", "a", "-manifest",
                           "m.jsonl", "-resume"], cwd=exact.folder, capture_output=True, timeout=TIME_LIMIT, check=False)
    assert (done.returncode, done.stderr) == (2, b"err: manifest m.jsonl: line 1 is too long\n")
