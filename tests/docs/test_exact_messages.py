"""The messages that the manual page explains for the exact mode are those that the program gives, with their status."""

import glob
import lzma
import os
import re
import shutil
import subprocess

import pytest

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
MANUAL = os.path.join(ROOT, "docs", "quarry.1")
RECORD_64 = 0x114000  # of /readme.txt
STREAM_69 = 0x115560  # the attribute of /Pictures/terraces.png


def is_missing(what):
    if os.environ.get("CI"):
        pytest.fail(what)
    pytest.skip(what)


@pytest.fixture(scope="module")
def quarry():
    program = os.environ.get("QUARRY_PROGRAM")
    if not program:
        is_missing("QUARRY_PROGRAM does not name the program")

    def run(directory, *words):
        found = subprocess.run([program, "-exact", *words], cwd=directory, check=False, capture_output=True, text=True)
        return found.returncode, found.stderr
    return run


@pytest.fixture(scope="module")
def page():
    if shutil.which("mandoc") is None:
        is_missing("mandoc is not installed")
    text = subprocess.run(["mandoc", "-T", "ascii", MANUAL], check=True, capture_output=True, text=True).stdout
    return re.sub(r"\s+", " ", re.sub(r".\x08", "", text))


def changed(image, position, content):
    return image[:position] + content + image[position + len(content):]


@pytest.fixture(scope="module")
def directory(tmp_path_factory):
    made = tmp_path_factory.mktemp("messages")
    with lzma.open(os.path.join(ROOT, "samples", "disk.img.xz")) as file:
        disk = file.read()
    assert disk[RECORD_64:RECORD_64 + 4] == b"FILE"
    (made / "disk").write_bytes(disk)
    # The second entry of the table, type FAT, becomes the first volume once more.
    (made / "two").write_bytes(changed(disk, 446 + 16, disk[446:446 + 16]))
    (made / "torn").write_bytes(changed(disk, RECORD_64 + 510, bytes([disk[RECORD_64 + 510] ^ 0xFF])))
    (made / "marked").write_bytes(changed(disk, RECORD_64, b"BAAD"))
    assert disk[STREAM_69:STREAM_69 + 4] == b"\x80\0\0\0"
    (made / "encrypted").write_bytes(changed(disk, STREAM_69 + 12, b"\x00\x40"))
    (made / "cut").write_bytes(disk[:3000000])
    (made / "none").write_bytes(bytes(1 << 20))
    (made / "gzip").write_bytes(b"\x1f\x8b\x08" + bytes(1 << 20))
    assert disk[0x100003:0x10000B] == b"NTFS    "
    (made / "enciphered").write_bytes(changed(disk, 0x100003, b"-FVE-FS-"))
    (made / "earlier").write_bytes(b"")
    os.symlink("nothing", made / "link")
    os.mkdir(made / "folder")
    return made


COPY = ("-src", "/readme.txt", "-dst", "copy", "-overwrite")


# The words of the command line, the status, and the message as the page has it: "..." is any text.
@pytest.mark.parametrize("words, status, message", [
    (("-imgae", "disk"), 2, '... is no option; did you mean ...?'),
    (("-image=disk", *COPY), 2, "... is no option; did you mean ... with its value as the next word?"),
    (("--version",), 2, "... is no option; -exact -h shows the version"),
    (("-qwertz",), 2, "... is no option; -exact -h lists them"),
    (("-image", "disk", "-meta", *COPY), 2, "... is not taken with -exact: ..."),
    (("-image", "disk", "-threads", "0", *COPY), 2, "... is not 1 to 64"),
    (("-image", "disk", "-image", "disk", *COPY), 2, "... is given twice"),
    (("disk", "-src", "/readme.txt", "-dst", "copy"), 2, "... stands alone; a source is named with -src, an image with -image"),
    (("-image", "disk", "-mft", "x", "-dst", "copy"), 2, "... is no entry; say N or N-SEQUENCE"),
    (("-image", "disk", "-sector_size", "5", *COPY), 2, "... is not 512, 1024, 2048 or 4096"),
    (("-image", "disk", "-letter", "CC", *COPY), 2, "... is neither a letter nor Volume{GUID}"),
    (("-image", "disk", "-source_sha256", "abc", "-manifest", "m", *COPY), 2,
     "... is no SHA-256; it has 64 hexadecimal digits"),
    (("-image", "disk", "-ntfsvol", "0", *COPY), 2, "...: volumes are counted from 1"),
    (("-image", "disk", "-cluster", "0", "0", "-dst", "copy"), 2, "...: no cluster is asked for"),
    (("-image", "disk", "-src", ":notes", "-dst", "copy"), 2, "... is a stream; say -mft to name its entry"),
    (("-image", "disk", "-pipe", "-dst", "copy"), 2, "... needs a directory; say -dst DIR/"),
    (("-image", "disk", "-resume", *COPY), 2, "... needs -manifest"),
    (("-image", "disk", "-src", "/readme.txt", "-dst", "nowhere/copy"), 2,
     "destination ...: No such file or directory; make the directory first"),
    (("-image", "disk", "-manifest", "link", *COPY), 2, "manifest ...: is a link; links are not followed, name a file"),
    (("-image", "disk", "-src", "/readme.txt", "-dst", "link"), 2,
     "destination ...: is a link; links are not followed, name a file"),
    (("-image", "enciphered", *COPY), 5, "source ...: is enciphered (BitLocker)"),
    (("-image", "disk", "-src", "/read/me\\txt", "-dst", "copy"), 2,
     "path ...: after a backslash comes \\, : or uXXXX; write \\\\ for a backslash, / between names"),
    (("-image", "disk", "-src", "/readme.txt:", "-dst", "copy"), 2,
     "path ...: the stream has no name; ::$DATA is the unnamed one"),
    (("-image", "disk", "-src", "/Documents/", "-dst", "copy"), 2,
     "path ...: has an empty name; leave the separator at its end out"),
    (("-image", "disk", "-src", "\\\\readme.txt", "-dst", "copy"), 2,
     "path ...: has an empty name; with \\ between names nothing is escaped"),
    (("-image", "disk", "-list", "C:"), 2, "path ...: the stream has no name; the root of a drive is / or C:\\"),
    (("-image", "disk", "-src", '"/readme.txt"', "-dst", "copy"), 1,
     "path ...: no such name; a path has no quotes around it"),
    (("-image", "disk", *COPY, "-manifest", "nowhere/m"), 2,
     "manifest ...: No such file or directory; make the directory first"),
    (("-image", "disk", *COPY, "-diags", "nowhere/log"), 2,
     "log ...: cannot be opened: No such file or directory; make the directory first"),
    (("-image", "-", *COPY), 5,
     "source -: cannot be opened: No such file or directory; the source must be a file or a drive, ..."),
    (("-image", "gzip", *COPY), 5,
     "source ...: holds no NTFS volume; it begins as a file of gzip does, decompress it first"),
    (("-image", "none", "-ntfsvol", "2", *COPY), 5, "source ...: holds no NTFS volume; -volumes shows what it holds"),
    (("-vmdk", "gzip", *COPY), 5, "source ...: is no sparse VMDK file that can be read; ..."),
    (("-image", "disk", "-mft", "5000", "-dst", "copy"), 1, "record ...: $MFT has 93 entries"),
    (("-image", "disk", "-src", "/readme.txt", "-dst", "earlier"), 2, "destination ...: exists; say -overwrite"),
    (("-image", "disk", "-src", "/readme.txt", "-dst", "/dev/null"), 2, "destination ...: is no regular file"),
    (("-image", "disk", "-src", "/readme.txt", "-dst", "disk", "-overwrite"), 2,
     "destination ...: is a file of this run: a source, the log, the manifest or a standard stream"),
    (("-image", "nothing", *COPY), 5, "source ...: cannot be opened: ..."),
    (("-image", "none", *COPY), 5, "source ...: holds no NTFS volume; -volumes shows what it holds"),
    (("-image", "two", *COPY), 2, "source ...: holds 2 NTFS volumes; choose one with -ntfsvol"),
    (("-image", "disk", "-ntfsvol", "3", *COPY), 2,
     "source ...: has no NTFS volume 3; -volumes lists the one that it has"),
    (("-image", "disk", "-offset", "0x900000", *COPY), 5, "boot sector: ...; -volumes lists the offsets of the volumes"),
    (("-partition", "disk", *COPY), 5, "boot sector: ...; a disk with a partition table is named with -image"),
    (("-image", "disk", "-src", "/nothing", "-dst", "copy"), 1, "path ...: no such name"),
    (("-image", "disk", "-src", "/*.txt", "-dst", "copy"), 1,
     "path ...: no such name; patterns are not read, choose lines of -list with grep"),
    (("-image", "disk", "-src", "/readme.txt/x", "-dst", "copy"), 1, "path ...: is no directory"),
    (("-image", "disk", "-src", "/Shortcut/letter.txt", "-dst", "copy"), 1,
     "path ...: leads to ...; say -letter C if that is this volume"),
    (("-image", "disk", "-src", "/Documents", "-dst", "copy"), 1, "path ...: is a directory; name a stream, or list its files with -list"),
    (("-image", "disk", "-src", "/readme.txt:x", "-dst", "copy"), 1, "path ...: no stream ...; there are: ..."),
    (("-image", "disk", "-mft", "92-3", "-dst", "copy"), 1, "record ...: has sequence number 2, the reference says 3"),
    (("-image", "encrypted", "-mft", "69", "-dst", "copy"), 1,
     "record ...: encrypted (EFS); -raw copies the stored bytes, of which ... count"),
    (("-image", "torn", *COPY), 1, "record ...: torn: ..."),
    (("-image", "marked", *COPY), 1, "record ...: begins with ..."),
    (("-image", "cut", "-src", "/packed/bench.log", "-dst", "copy"), 1, "source ...: ends at byte ..., byte ... is needed"),
    (("-image", "cut", *COPY), 0, "warning: source ...: ends at byte ..., the volume at byte ..."),
    (("-image", "cut", *COPY), 0, "warning: record 2: ..."),
    (("-image", "cut", "-src", "/packed/bench.log", "-dst", "copy", "-overwrite", "-zero_unreadable"), 4,
     "warning: record ...: 102000 bytes at 0x0 are zeros"),
    (("-image", "disk", "-mft", "92", "-dst", "copy", "-overwrite"), 4,
     "warning: record ...: deleted: the record is not in use"),
    (("-image", "disk", "-mft", "92", "-dst", "copy", "-overwrite"), 4, "doubt: ..."),
    (("-image", "disk", *COPY), 0, "ok: ..."),
])
def test_a_message_is_given_and_explained(quarry, page, directory, words, status, message):
    found, said = quarry(directory, *words)
    pattern = ".*".join(re.escape(part) for part in message.split("..."))
    if not message.startswith(("warning: ", "doubt: ", "ok: ")):
        pattern = "err: " + pattern
    assert (found, re.findall(f"^{pattern}", said, re.M) != []) == (status, True), said
    assert message in page


# The lines of a list, its message about the last of them, and the status.
@pytest.mark.parametrize("lines, status, message", [
    (b"\xff\xfe/\0", 2, "list: is UTF-16; it must be UTF-8"),
    (b"a\tb\n", 1, "list, line 1: ...: has tabs and is no line of a listing"),
    (b"/readme.txt\n/README.TXT\n", 3, "list, line 2: destination ...: was made by line 1 of this list"),
    (b"69-1\tf\t8026\t-\t/readme.txt\n", 1, "list, line 1: record ...: is not at ...; the list may be of another volume"),
])
def test_a_message_about_a_list_is_given_and_explained(page, directory, tmp_path, lines, status, message):
    program = os.environ.get("QUARRY_PROGRAM") or is_missing("QUARRY_PROGRAM does not name the program")
    found = subprocess.run([program, "-exact", "-image", directory / "disk", "-pipe", "-overwrite", "-dst", f"{tmp_path}/"],
                           check=False, capture_output=True, input=lines)
    pattern = "err: " + ".*".join(re.escape(part) for part in message.split("..."))
    said = found.stderr.decode()
    # The page explains what comes after the number of the line.
    message = re.sub(r"^list, line \d: (?=dest|rec)", "", message)
    assert (found.returncode, re.findall(f"^{pattern}", said, re.M) != []) == (status, True), said
    assert message in page


# What the sources hold of texts but no message has: formats, names of places, and words that a test above has whole.
NO_MESSAGES = {
    "index root of", "is not at", "the list may be of another volume", '..." has more than', "/proc/self/fd/",
    "-dst \"-\": a copy never goes to standard output; a file of that name is ./-",
    "the source must be a file or a drive, copy what comes through a pipe to a file first",
    "%4s  offset 0x%016llX%10llu %s", "(boot sector from its backup)\\n", "\\xEF\\xBB\\xBF",
    "volume{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}", "$LOGGED_UTILITY_STREAM", "STORAGE_SYNC_FOLDER",
    "it is not needed", "a copy has another size than its stream",
}


def texts_of_exact_mode():
    """The literals of three words or more in the sources of the mode, but for those of the log and of the help."""
    found = set()
    for path in sorted(glob.glob(os.path.join(ROOT, "src", "exact", "*.cpp")) +
                       glob.glob(os.path.join(ROOT, "src", "frontend", "exact", "*.cpp"))):
        with open(path, encoding="utf-8") as file:
            source = re.sub(r"#include[^\n]*|//[^\n]*", "", file.read())
        for text in re.findall(r'"((?:[^"\\\n]|\\.)*)"', re.sub(r'"\s*\n\s*"', "", source)):
            text = text.replace("\\\\", "\\").replace('\\"', '"').strip(' ;:,"')
            if len(re.findall(r"[A-Za-z]{2,}", text)) >= 3 and not text.startswith("info: "):
                found.add(text)
    return found


def test_texts_are_found_in_the_sources():
    found = texts_of_exact_mode()
    assert {"keys do not rise at", "exists with other bytes; say -overwrite", "a stored cluster follows a hole"} <= found


def test_the_page_has_every_text_of_the_mode(page):
    missing = {text for text in texts_of_exact_mode() - NO_MESSAGES if re.sub(r"\s+", " ", text) not in page}
    assert missing == set()


def test_the_page_has_every_code_and_status_of_the_mode(page):
    with open(os.path.join(ROOT, "src", "exact", "failure.cpp"), encoding="utf-8") as file:
        codes = set(re.findall(r'^    "([a-z-]+)",$', file.read(), re.M))
    warned = set()
    for path in glob.glob(os.path.join(ROOT, "src", "**", "exact", "*.cpp"), recursive=True):
        with open(path, encoding="utf-8") as file:
            warned |= set(re.findall(r'(?:\.|->)(?:warn|doubt)\(\s*"([a-z-]+)"', file.read()))
    assert {"source-open", "fault"} <= codes and {"journal", "reused-clusters"} <= warned
    with open(MANUAL, encoding="utf-8") as file:
        source = file.read()
    part = source[source.index(".Ss Codes in a manifest"):source.index(".Sh DEFAULT MODE")]
    named = set(re.findall(r"[a-z][a-z-]+", " ".join(re.findall(r"^\.It Sy (.*)$", part, re.M))))
    assert named == codes | warned
    with open(os.path.join(ROOT, "src", "frontend", "exact", "exact_status.h"), encoding="utf-8") as file:
        statuses = set(re.findall(r"= (\d+)\b", file.read()))
    mode = source[source.index(".Sh EXACT MODE"):source.index(".Ss Messages of the exact mode")]
    assert len(statuses) > 5 and set(re.findall(r"^\.It (\d+)$", mode, re.M)) == statuses
