"""Files that the system compressed: `-exact` gives what libwim compressed, in all formats and levels.

The driver writes what libwim makes as the stream WofCompressedData and sets the reparse point, as the system does.
libfsntfs, which decodes such files too, is asked as a second reader.
"""

import ctypes
import ctypes.util
import hashlib
import json
import os
import shutil
import struct
import subprocess
import typing

import pytest

from test_exact_streams import Exact, all_of
from test_links import set_reparse
from volumes import MIB, Volume, need, need_mounting, pattern, run_tool

WOF = 0x80000017
PROVIDER_WIM, PROVIDER_FILE = 1, 2


class Format(typing.NamedTuple):
    name: str
    number: int  # in the reparse point
    chunk: int
    codec: int  # libwim's number
    levels: tuple


FORMATS = (Format("xpress4k", 0, 4096, 1, (20, 50, 100)), Format("xpress8k", 2, 8192, 1, (20, 50, 100)),
           Format("xpress16k", 3, 16384, 1, (20, 50, 100)), Format("lzx", 1, 32768, 2, (20, 50, 100)))

TEXT = b"".join(b"line %06d of a text, %s\n" % (i, hashlib.md5(b"%d" % i).hexdigest()[:i % 17].encode()) for i in range(9000))


def program():
    """Code of x86, in which calls were made absolute."""
    with open(os.environ["QUARRY_PROGRAM"], "rb") as file:
        return file.read(700001)


def contents():
    return {"text": TEXT, "program": program(), "zeros": bytes(150000), "noise": pattern(100000, "noise"), "one byte": b"!",
            "32768 bytes": TEXT[:32768], "32769 bytes": TEXT[:32769], "calls": b"\xe8\x10\x20\x30\x00abc" * 9000,
            "mixed": TEXT[:40000] + pattern(40000, "mixed") + bytes(70000) + TEXT[:5]}


@pytest.fixture(scope="session")
def libwim():
    name = ctypes.util.find_library("wim")
    need(name, "libwim-dev is not installed")
    library = ctypes.CDLL(name)
    library.wimlib_create_compressor.argtypes = (ctypes.c_int, ctypes.c_size_t, ctypes.c_uint, ctypes.c_void_p)
    library.wimlib_compress.argtypes = (ctypes.c_char_p, ctypes.c_size_t, ctypes.c_char_p, ctypes.c_size_t, ctypes.c_void_p)
    library.wimlib_compress.restype = ctypes.c_size_t
    library.wimlib_free_compressor.argtypes = (ctypes.c_void_p,)
    library.wimlib_free_compressor.restype = None
    return library


def compress(libwim, form, level, content):
    """The stored stream, and how many of its chunks are compressed."""
    compressor = ctypes.c_void_p()
    assert libwim.wimlib_create_compressor(form.codec, form.chunk, level, ctypes.byref(compressor)) == 0
    chunks, compressed = [], 0
    for at in range(0, len(content), form.chunk):
        plain = content[at:at + form.chunk]
        room = ctypes.create_string_buffer(len(plain))
        size = libwim.wimlib_compress(plain, len(plain), room, len(plain) - 1, compressor)
        chunks.append(room.raw[:size] if size else plain)
        compressed += 1 if size else 0
    libwim.wimlib_free_compressor(compressor)
    offsets, end = [], 0
    for chunk in chunks[:-1]:
        end += len(chunk)
        offsets.append(struct.pack("<I", end))
    return b"".join(offsets + chunks), compressed


def put(root, name, size, stored, number, provider=PROVIDER_FILE):
    with open(f"{root}/{name}", "wb") as file:
        file.truncate(size)
    with open(f"{root}/{name}:WofCompressedData", "wb") as file:
        file.write(stored)
    entry = os.stat(f"{root}/{name}").st_ino  # afterwards the driver has no answer
    set_reparse(f"{root}/{name}", struct.pack("<IHH4I", WOF, 16, 0, 1, provider, 1, number))
    return entry


class Packed(typing.NamedTuple):
    volume: Volume
    written: dict  # path: content
    stored: dict  # path: the stream
    entries: dict  # path: entry


def pack_volume(libwim, folder):
    """A volume of files that the system compressed, in all forms, in a folder of the caller."""
    need_mounting()
    image = folder / "volume.img"
    with open(image, "wb") as out:
        out.truncate(96 * MIB)
    run_tool("mkntfs", "-q", "-F", "-Q", "-p", 0, "-H", 255, "-S", 63, image)
    volume = Volume(image, folder / "mount")
    made = Packed(volume, {}, {}, {})
    with volume.mounted() as root:
        for form in FORMATS:
            for level in form.levels:
                for kind, content in contents().items():
                    path = f"/{kind} {form.name} {level}"
                    stored, compressed = compress(libwim, form, level, content)
                    assert compressed > 0 or kind in ("noise", "one byte"), path
                    made.entries[path] = put(root, path[1:], len(content), stored, form.number)
                    made.written[path], made.stored[path] = content, stored
        put(root, "in a wim", 5000, b"", 0, PROVIDER_WIM)
        put(root, "empty", 0, b"", 0)
    return made


@pytest.fixture(scope="module")
def packed(libwim, tmp_path_factory):
    folder = tmp_path_factory.mktemp("packed")
    yield pack_volume(libwim, folder)
    shutil.rmtree(folder)


@pytest.fixture
def exact(scratch):
    return Exact(scratch)


def test_every_file_is_what_was_compressed(packed, exact):
    def check(item):
        path, content = item
        assert exact.whole(packed.volume.image, "-src", path) == content, path
        assert exact.whole(packed.volume.image, "-mft", packed.entries[path]) == content, path

    all_of(check, packed.written.items())
    assert len(packed.written) == 108


def test_the_stored_stream_is_copied_by_its_name_and_raw_decodes_nothing(packed, exact):
    def check(item):
        path, stored = item
        image = packed.volume.image
        assert exact.whole(image, "-src", path + ":WofCompressedData") == stored, path
        assert exact.whole(image, "-src", path + ":wofcompresseddata") == stored, path
        raw = exact.whole(image, "-raw", "-src", path)
        assert not raw.strip(b"\0"), path

    all_of(check, list(packed.stored.items())[::7])


# It ends with an error at a stream of one byte, and at some chunks of LZX; of some chunks with calls of x86 it gives
# other bytes than were compressed.
NOT_READ_BY_LIBFSNTFS = {"/calls lzx", "/mixed lzx", "/program lzx", *(f"/one byte {form.name}" for form in FORMATS)}

READ_ALL = """
import hashlib, json, sys
import pyfsntfs
volume = pyfsntfs.volume()
volume.open(sys.argv[1])
found = {}
for entry in map(int, sys.argv[2:]):
    file = volume.get_file_entry(entry)
    size, sha = file.get_size(), hashlib.sha256()
    file.seek(0)
    try:
        while size:
            part = file.read(min(size, 1 << 20))
            if not part:
                break
            sha.update(part)
            size -= len(part)
        found[entry] = sha.hexdigest()
    except OSError:
        found[entry] = None
print(json.dumps(found))
"""


def test_every_file_is_what_libfsntfs_reads(packed, exact):
    python = "/usr/bin/python3"  # the one that Debian's package serves
    installed = subprocess.run([python, "-c", "import pyfsntfs"], capture_output=True, check=False).returncode == 0
    need(installed, "python3-libfsntfs is not installed")
    digests = json.loads(run_tool(python, "-c", READ_ALL, packed.volume.image, *packed.entries.values()))
    unread = {path.rsplit(" ", 1)[0] for path, entry in packed.entries.items()
              if digests[str(entry)] != hashlib.sha256(packed.written[path]).hexdigest()}
    assert unread <= NOT_READ_BY_LIBFSNTFS
    paths = [path for path in packed.entries if path.rsplit(" ", 1)[0] not in unread]

    def check(path):
        content = exact.whole(packed.volume.image, "-src", path)
        assert hashlib.sha256(content).hexdigest() == digests[str(packed.entries[path])], path

    all_of(check, paths)
    assert len(paths) >= 87


def test_a_file_whose_data_is_in_a_wim_is_refused_by_name(packed, exact):
    result = exact.run(packed.volume.image, "-src", "/in a wim")
    assert result.status == 1
    assert result.lines[-1] == 'err: path "/in a wim": the data is in a WIM file (provider 1)'


def test_a_file_without_a_byte_is_empty(packed, exact):
    assert exact.whole(packed.volume.image, "-src", "/empty") == b""


def test_every_damaged_byte_of_a_stored_stream_fails_or_changes_its_chunk_alone(libwim, make_volume, exact):
    """The chunk after the damage and the one ahead of it stay what they were, or the copy fails and names the chunk."""
    content = TEXT[:3 * 4096]
    form = FORMATS[0]
    stored, _ = compress(libwim, form, 50, content)
    volume = make_volume(size=8 * MIB)
    with volume.mounted() as root:
        put(root, "file", len(content), stored, form.number)
    with open(volume.image, "rb") as image:
        whole = image.read()
    begin = whole.index(stored)
    first, second = struct.unpack_from("<2I", stored)
    failed = changed = 0
    for at in range(8 + first, 8 + second, 61):
        with open(volume.image, "r+b") as image:
            image.seek(begin + at)
            image.write(bytes([stored[at] ^ 0x10]))
        result = exact.run(volume.image, "-src", "/file")
        if result.status == 1:
            assert ' "WofCompressedData": chunk 1: ' in result.lines[-1], result.lines
            failed += 1
        else:
            assert result.status == 0
            assert (result.content[:4096], result.content[8192:]) == (content[:4096], content[8192:])
            changed += 1
        with open(volume.image, "r+b") as image:
            image.seek(begin + at)
            image.write(stored[at:at + 1])
    assert failed > 0 and changed > 0
    assert exact.whole(volume.image, "-src", "/file") == content
