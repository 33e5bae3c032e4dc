"""EWF images as ewfacquire makes them: `-exact` reads what is on the disk, or says what it cannot read."""

import hashlib
import os
import shutil
import struct
import subprocess
import zlib

import pytest

from test_exact_streams import Exact
from volumes import MIB, need, need_tools, pattern, run_tool

CLUSTER = 4096
CHUNK = 64 * 512  # ewfacquire's own choice
START = 1 * MIB  # of the volume on the disk

FORMATS = ("ewf", "smart", "ftk", "encase1", "encase4", "encase5", "encase6", "encase7", "linen5", "linen7", "ewfx")
COMPRESSIONS = ("deflate:none", "deflate:best", "deflate:empty-block")


@pytest.fixture
def contents():
    return {"/noise.bin": pattern(300000, "noise"), "/zeros.bin": bytes(200000), "/text.txt": b"a short text\n",
            "/lines.txt": b"".join(b"line %d\n" % number for number in range(30000))}


@pytest.fixture
def disk(make_volume, contents, scratch):
    """A raw disk whose one partition is a volume with these files."""
    need_tools("ewfacquire", "sfdisk")
    volume = make_volume(cluster=CLUSTER, size=6 * MIB)
    for path, content in contents.items():
        volume.put_unmounted(path[1:], content, scratch)
    raw = scratch / "disk.img"
    raw.write_bytes(bytes(START) + volume.image.read_bytes() + bytes(MIB))
    run_tool("sfdisk", "--quiet", raw, input=b"label: dos\nstart=2048, size=12288, type=7\n")
    return raw


@pytest.fixture
def exact(scratch):
    return Exact(scratch)


def acquire(raw, target, form="encase6", compression="deflate:none", segment="1GiB", *more):
    run_tool("ewfacquire", "-u", "-c", compression, "-f", form, "-S", segment, "-t", target, "-C", "1", "-D", "x", "-E", "1",
             "-e", "x", "-N", "x", "-m", "fixed", "-M", "physical", *more, raw)
    segments = sorted(target.parent.glob(target.name + ".[eEsS]*"))
    assert segments
    return segments


@pytest.mark.parametrize("compression", COMPRESSIONS)
@pytest.mark.parametrize("form", FORMATS)
def test_each_format_gives_the_bytes_of_the_disk(disk, contents, exact, scratch, form, compression):
    segments = acquire(disk, scratch / "image", form, compression, "2MiB")
    for path, content in contents.items():
        assert exact.whole(segments[0], "-src", path) == content
    volume = disk.read_bytes()[START:START + 1000 * CLUSTER]
    assert exact.whole(segments[0], "-cluster", 0, 1000) == volume


def test_many_segments_are_one_disk(disk, contents, exact, scratch):
    segments = acquire(disk, scratch / "image", segment="1MiB")
    assert len(segments) == 9
    assert exact.whole(segments[0], "-src", "/noise.bin") == contents["/noise.bin"]
    assert exact.whole(segments[0], "-cluster", 0, 1535) == disk.read_bytes()[START:START + 1535 * CLUSTER]


def test_no_word_goes_into_a_segment_that_a_shell_opened_for_output(disk, scratch):
    segments = acquire(disk, scratch / "image", segment="1MiB")
    before = segments[1].read_bytes()
    with open(segments[1], "ab") as output:
        done = subprocess.run([os.environ["QUARRY_PROGRAM"], "-exact", "-image", segments[0], "-src", "/text.txt", "-dst", scratch / "copy"],
                              stdin=subprocess.DEVNULL, stdout=output, stderr=subprocess.PIPE, timeout=120, check=False)
    assert (done.returncode, done.stderr) == (2, b"err: standard output is the source\n")
    assert segments[1].read_bytes() == before


def test_a_missing_segment_is_told_when_the_image_is_opened(disk, exact, scratch):
    segments = acquire(disk, scratch / "image", segment="1MiB")
    for missing in segments[1:]:
        missing.rename(scratch / "aside")
        result = exact.run(segments[0], "-src", "/text.txt")
        assert result.status == 5
        assert result.lines[-1] == f"err: source {segments[0]}: cannot be opened: a segment file is missing or damaged"
        (scratch / "aside").rename(missing)
    assert exact.run(segments[0], "-src", "/text.txt").status == 0


def place_of(disk, segments, where):
    """A segment, and the place in it of what is stored of the chunk at this byte of the disk."""
    wanted = disk.read_bytes()[where:where + 64]
    found = [(segment, segment.read_bytes().find(wanted)) for segment in segments]
    found = [(segment, at) for segment, at in found if at >= 0]
    assert len(found) == 1
    return found[0]


def test_a_damaged_chunk_is_never_taken_for_bytes_of_the_disk(disk, contents, exact, scratch):
    segments = acquire(disk, scratch / "image", segment="2MiB")
    noise = disk.read_bytes().find(contents["/noise.bin"])
    assert noise > 0
    damaged = noise + 100000
    segment, at = place_of(disk, segments, damaged)
    with open(segment, "r+b") as file:
        file.seek(at)
        file.write(bytes(64))
    chunk = damaged // CHUNK * CHUNK
    result = exact.run(segments[0], "-src", "/noise.bin")
    assert result.status == 1
    assert f"cannot be read: Input/output error, at stream byte {hex_of(chunk - noise)}" in result.lines[-1]
    assert result.lines[-1].endswith(f"(source byte {hex_of(chunk)})")
    # What lies beside it is whole.
    assert exact.whole(segments[0], "-src", "/text.txt") == contents["/text.txt"]
    # The rest of the file can be had, with zeros for the whole chunk, and in doubt.
    result = exact.run(segments[0], "-src", "/noise.bin", "-zero_unreadable")
    assert result.status == 4
    content = contents["/noise.bin"]
    begin = chunk - noise
    assert result.content == content[:begin] + bytes(CHUNK) + content[begin + CHUNK:]
    assert any(line.endswith(f": {CHUNK} bytes at {hex_of(begin)} are zeros") for line in result.lines), result.lines


def compressed_chunk(segment, number):
    """The place in a segment, of the only table in it, at which this chunk is stored; its end is the next one's place."""
    content = segment.read_bytes()
    table = next(at for kind, at, _ in sections(content) if kind == "table") + 76
    count, base = struct.unpack_from("<I4xQ", content, table)
    places = struct.unpack_from(f"<{count}I", content, table + 24)
    assert places[number] >> 31 == 1, "the chunk is stored as it is"
    return base + (places[number] & 0x7FFFFFFF), base + (places[number + 1] & 0x7FFFFFFF)


def test_a_damaged_chunk_of_a_compressed_image_is_never_taken_for_bytes_of_the_disk(disk, contents, exact, scratch):
    segment = acquire(disk, scratch / "image", compression="deflate:best")[0]
    content = contents["/lines.txt"]
    lines = disk.read_bytes().find(content)
    assert lines > 0
    chunk = (lines + 100000) // CHUNK * CHUNK
    at, end = compressed_chunk(segment, chunk // CHUNK)
    stored = bytearray(segment.read_bytes())
    assert zlib.decompress(stored[at:end]) == disk.read_bytes()[chunk:chunk + CHUNK]
    assert exact.whole(segment, "-src", "/lines.txt") == content
    begin = chunk - lines
    for place in (at, (at + end) // 2, end - 1):
        damaged = bytearray(stored)
        damaged[place] ^= 0x55
        segment.write_bytes(damaged)
        result = exact.run(segment, "-src", "/lines.txt")
        assert result.status == 1
        assert f"cannot be read: Input/output error, at stream byte {hex_of(begin)}" in result.lines[-1]
        assert result.lines[-1].endswith(f"(source byte {hex_of(chunk)})")
        assert exact.whole(segment, "-src", "/text.txt") == contents["/text.txt"]
        result = exact.run(segment, "-src", "/lines.txt", "-zero_unreadable")
        assert result.status == 4
        assert result.content == content[:begin] + bytes(CHUNK) + content[begin + CHUNK:]


def sections(content):
    """Kind and place of each section: a header of 76 bytes, in which the next one's place and the size are, then its data."""
    at = 13
    while True:
        following, size = struct.unpack_from("<QQ", content, at + 16)
        yield content[at:at + 16].rstrip(b"\0").decode(), at, size
        if following <= at:
            return
        at = following


def claim_chunks(segment, chunks, sectors, sector_size):
    """The sections that tell the shape of the disk say that it has so many chunks of so many sectors."""
    content = bytearray(segment.read_bytes())
    for kind, at, _ in list(sections(content)):
        if kind in ("volume", "data"):
            struct.pack_into("<III", content, at + 76 + 4, chunks, sectors, sector_size)
            struct.pack_into("<Q", content, at + 76 + 16, chunks * sectors)
            struct.pack_into("<I", content, at + 76 + 1048, zlib.adler32(content[at + 76:at + 76 + 1048]))
    segment.write_bytes(content)


def test_a_size_that_the_files_have_no_room_for_is_not_verified(disk, scratch):
    segments = acquire(disk, scratch / "image")
    # 2 PiB.
    claim_chunks(segments[0], 1 << 20, 1 << 22, 512)
    assert verify(segments[0]) == (
        1, f"err: source {segments[0]}: says that it holds 2251799813685248 bytes, which its files have no room for\n")


def section_header(kind, following, size):
    header = kind.encode().ljust(16, b"\0") + struct.pack("<QQ", following, size) + bytes(40)
    return header + struct.pack("<I", zlib.adler32(header))


def add_acquisition_error(segment, first, count):
    """Puts a section before that of the digest which says that these sectors could not be read."""
    content = segment.read_bytes()
    head = struct.pack("<I", 1) + bytes(512)
    entry = struct.pack("<II", first, count)
    data = head + struct.pack("<I", zlib.adler32(head)) + entry + struct.pack("<I", zlib.adler32(entry))
    known = list(sections(content))
    place = next(at for kind, at, _ in known if kind in ("digest", "hash"))
    size = 76 + len(data)
    made = content[:place] + section_header("error2", place + size, size) + data
    for kind, at, length in known:
        if at >= place:
            moved = at + size
            made += section_header(kind, moved if kind == "done" else moved + length, length)
            made += content[at + 76:at + length] if length else b""
    segment.write_bytes(made)


def test_what_could_not_be_acquired_is_never_taken_for_bytes_of_the_disk(disk, contents, exact, scratch):
    segments = acquire(disk, scratch / "image", segment="2MiB")
    noise = disk.read_bytes().find(contents["/noise.bin"])
    assert noise > 0 and noise % 512 == 0
    add_acquisition_error(segments[-1], noise // 512 + 20, 3)
    place = 20 * 512
    result = exact.run(segments[0], "-src", "/noise.bin")
    assert result.status == 1
    assert result.lines[-1].endswith(f"at stream byte {hex_of(place)} (source byte {hex_of(noise + place)})"), result.lines
    assert exact.whole(segments[0], "-src", "/text.txt") == contents["/text.txt"]
    result = exact.run(segments[0], "-src", "/noise.bin", "-zero_unreadable")
    assert result.status == 4
    content = contents["/noise.bin"]
    assert result.content == content[:place] + bytes(1536) + content[place + 1536:]
    # The digest was computed of what the image holds there.
    md5 = digest_of(disk, "md5")
    assert verify(segments[0]) == (0, (
        f"warning: source {segments[0]}: 1536 bytes could not be read when it was acquired; "
        "what the image holds in their place is compared\n"
        f"ok: source {segments[0]} is what was acquired ({disk.stat().st_size} bytes, md5 {md5})\n"))


def test_a_segment_that_is_a_fifo_is_refused_at_once(disk, scratch):
    segments = acquire(disk, scratch / "image", segment="2MiB")
    segments[1].unlink()
    os.mkfifo(segments[1])
    done = subprocess.run([os.environ["QUARRY_PROGRAM"], "-exact", "-image", segments[0], "-volumes"], capture_output=True,
                          timeout=60, check=False)
    assert done.returncode == 5
    assert done.stderr.decode().startswith(f"err: source {segments[1]}: cannot be opened: Illegal seek; ")


def hex_of(number):
    return f"0x{number:X}"


def verify(image):
    done = subprocess.run([os.environ["QUARRY_PROGRAM"], "-exact", "-image", image, "-verify_source"], capture_output=True,
                          check=False)
    return done.returncode, done.stderr.decode()


def digest_of(disk, kind):
    return hashlib.new(kind, disk.read_bytes()).hexdigest()


def test_a_source_that_is_what_was_acquired_is_verified(disk, scratch):
    size = disk.stat().st_size
    md5, sha1 = digest_of(disk, "md5"), digest_of(disk, "sha1")
    only_md5 = acquire(disk, scratch / "one", segment="2MiB")[0]
    assert verify(only_md5) == (0, f"ok: source {only_md5} is what was acquired ({size} bytes, md5 {md5})\n")
    both = acquire(disk, scratch / "two", "encase6", "deflate:best", "2MiB", "-d", "sha1")[0]
    assert verify(both) == (0, f"ok: source {both} is what was acquired ({size} bytes, md5 {md5}, sha1 {sha1})\n")


def test_a_source_with_another_digest_is_told(disk, scratch):
    image = acquire(disk, scratch / "image", "encase5")[0]
    md5 = bytes.fromhex(digest_of(disk, "md5"))
    content = bytearray(image.read_bytes())
    assert content.count(md5) == 1
    at = content.index(md5)
    content[at] ^= 1
    # The digest, 16 bytes more, and the checksum of both.
    content[at + 32:at + 36] = struct.pack("<I", zlib.adler32(content[at:at + 32]))
    stored = bytes(content[at:at + 16]).hex()
    image.write_bytes(content)
    assert verify(image) == (1, f"err: source {image}: md5 is {md5.hex()}, of what was acquired it was {stored}\n")


def test_a_source_with_a_damaged_chunk_is_not_verified(disk, contents, scratch):
    image = acquire(disk, scratch / "image")[0]
    noise = disk.read_bytes().find(contents["/noise.bin"])
    _, at = place_of(disk, [image], noise + 100000)
    with open(image, "r+b") as file:
        file.seek(at)
        file.write(bytes(64))
    status, words = verify(image)
    assert status == 1
    assert "bytes cannot be read: Input/output error" in words


def test_a_source_without_a_digest_cannot_be_verified(disk):
    assert verify(disk) == (2, f"err: source {disk}: holds no digest of what was acquired; sha256sum computes one\n")


def test_sectors_of_4096_bytes_are_those_of_the_container(make_volume, exact, scratch):
    need_tools("ewfacquire", "sgdisk")
    volume = make_volume(cluster=CLUSTER, size=6 * MIB, sector=4096)
    volume.put_unmounted("text.txt", b"on large sectors\n", scratch)
    segments = acquire(volume.image, scratch / "image", "encase6", "deflate:none", "1GiB", "-P", "4096")
    assert exact.whole(segments[0], "-src", "/text.txt") == b"on large sectors\n"


def test_the_destination_may_not_be_a_segment(disk, scratch):
    segments = acquire(disk, scratch / "image", segment="2MiB")
    before = [segment.read_bytes() for segment in segments]
    for target in segments:
        done = subprocess.run([os.environ["QUARRY_PROGRAM"], "-exact", "-image", segments[0], "-src", "/text.txt", "-overwrite",
                               "-dst", target], capture_output=True, check=False)
        assert done.returncode == 2, done.stderr
        log = subprocess.run([os.environ["QUARRY_PROGRAM"], "-exact", "-image", segments[0], "-src", "/text.txt", "-dst",
                              scratch / "copy", "-diags", target], capture_output=True, check=False)
        assert log.returncode == 2, log.stderr
    assert [segment.read_bytes() for segment in segments] == before


def test_a_name_that_is_none_of_a_first_segment_is_refused(disk, exact, scratch):
    segments = acquire(disk, scratch / "image")
    shutil.copy(segments[0], scratch / "evidence")
    result = exact.run(scratch / "evidence", "-src", "/text.txt")
    assert result.status == 5
    assert result.lines == [f"err: source {scratch}/evidence: is not called like the first segment of an EWF image, as "
                            "disk.E01 is"]


def test_without_the_library_such_an_image_is_refused_and_others_are_read(disk, exact, scratch):
    need(os.geteuid() == 0, "hiding a library needs root")
    libraries = [line.split()[-1] for line in run_tool("ldconfig", "-p").decode().splitlines() if "libewf.so.2 " in line]
    need(libraries, "libewf2 is not installed")
    segments = acquire(disk, scratch / "image")
    hide = "".join(f"mount --bind /dev/null {library}; " for library in libraries)
    command = [os.environ["QUARRY_PROGRAM"], "-exact", "-image", segments[0], "-src", "/text.txt", "-dst", scratch / "copy"]
    done = subprocess.run(["unshare", "-m", "sh", "-c", hide + 'exec "$@"', "sh", *command], capture_output=True, check=False)
    assert done.returncode == 5
    assert done.stderr.decode() == f"err: source {segments[0]}: EWF images need the library libewf2\n"
    command[3] = disk
    done = subprocess.run(["unshare", "-m", "sh", "-c", hide + 'exec "$@"', "sh", *command], capture_output=True, check=False)
    assert done.returncode == 0, done.stderr


def test_the_default_mode_reads_the_bytes_of_the_container(disk, scratch):
    segments = acquire(disk, scratch / "image")
    done = subprocess.run([os.environ["QUARRY_PROGRAM"], "-image", segments[0], "-offset", "0x100000", "-src", "/text.txt", "-dst",
                           scratch / "copy"], capture_output=True, check=False)
    assert done.returncode == 255
    assert not (scratch / "copy").exists()


def test_no_other_run_loads_the_library(disk, scratch):
    need_tools("strace")
    trace = scratch / "trace"
    segments = acquire(disk, scratch / "image")
    for image, expected in ((disk, False), (segments[0], True)):
        target = scratch / "copy"
        subprocess.run(["strace", "-o", trace, "-e", "trace=openat", os.environ["QUARRY_PROGRAM"], "-exact", "-image", image, "-src",
                        "/text.txt", "-dst", target], capture_output=True, check=True, env=dict(os.environ, ASAN_OPTIONS="detect_leaks=0"))
        assert ("libewf" in trace.read_text()) is expected
        target.unlink()
