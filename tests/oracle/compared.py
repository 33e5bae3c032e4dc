#!/usr/bin/env python3
"""Makes docs/compared.md: what each reader of NTFS delivers in hard cases, measured.

Usage: compared.py > docs/compared.md        as root; QUARRY_PROGRAM and QUARRY_VOLUME_WRITER name files of a build, as
                                             for the tests (scripts/compared.sh sets them)

Each case is a volume that is made here, a stream on it, and the bytes that were written to it. Each reader is asked for
the stream; nothing in the table is typed in.
"""

import collections
import contextlib
import os
import pathlib
import re
import struct
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path[:0] = [HERE, os.path.join(os.path.dirname(HERE), "real")]

import plain_ntfs  # noqa: E402
import readers  # noqa: E402
from plain_ntfs import DATA  # noqa: E402
from test_exact_streams import TEXT, fill_volume  # noqa: E402
from test_fragments import leave_only_gaps  # noqa: E402
from test_system_compression import FORMATS, compress, libwim, put  # noqa: E402
from volumes import MIB, Volume, pattern, run_tool  # noqa: E402

COLUMNS = ("quarry", "quarry -exact", "icat", "ntfscat", "ntfs-3g mount", "libfsntfs")
RIGHT, DOUBT, REFUSED = "right", "in doubt", "refused"
WRONG, WRONG_SAID = "**wrong**", "wrong, with a message"

# `expected` is None where the volume does not hold the bytes: then a refusal is right. `failing` is the range of bytes of
# the image that cannot be read. `by_path`: the stream is asked for by its path, not by its entry.
Case = collections.namedtuple("Case", "title why image entry path stream expected failing by_path")
# What a reader did: status 0 or a copy that is in doubt or refused; the bytes if there are any; words of its own.
Outcome = collections.namedtuple("Outcome", "state content words")


def case(title, why, image, entry, path, expected, stream="", failing=None, by_path=False):
    return Case(title, why, str(image), entry, path, stream, expected, failing, by_path)


def formatted(folder, name, size=16 * MIB, **options):
    image = folder / f"{name}.img"
    with open(image, "wb") as out:
        out.truncate(size)
    run_tool("mkntfs", "-q", "-F", "-Q", "-p", 0, "-H", 255, "-S", 63, "-s", options.get("sector", 512), "-c",
             options.get("cluster", 4096), image)
    return Volume(image, folder / f"{name}.mount")


def entry_of(path):
    return os.stat(path).st_ino


def opened(image):
    return plain_ntfs.Volume(plain_ntfs.Source(pathlib.Path(image).read_bytes()))


def place_of_record(image, entry):
    """Bytes of the image; the record must lie in one run."""
    content = pathlib.Path(image).read_bytes()
    place = content.index(opened(image).record_bytes(entry))
    return content, place


def entries_by_name(image):
    volume = opened(image)
    files = [volume.file(entry) for entry in volume.in_use()]
    return {name.name.decode("utf-16-le", errors="replace"): file.base.entry for file in files for name in file.names()}


def cases_of_hard_volume(folder):
    folder.mkdir()
    made = fill_volume(folder, 512, 4096, False)
    image, entries = made.volume.image, {node.path: node.entry for node in made.nodes}
    entries["/elsewhere"] = entries_by_name(image)["elsewhere"]

    def of(title, why, path, stream="", **options):
        return case(title, why, image, entries[path], path, made.written[path, stream], stream, **options)

    yield of("a stream in pieces over an attribute list", "the runs are in many records", "/islands")
    yield of("a named stream of a file in many records", "attributes in different records have the same number",
             "/many streams", "stream 20")
    yield of("a named stream", "`Zone.Identifier`", "/streams", "Zone.Identifier")
    yield of("a named stream with a name that is not ASCII", "the name is `потік`", "/streams", "потік")
    yield of("a compressed file", "LZNT1, units of 16 clusters", "/packed/mixed")
    yield of("a compressed file that begins with a hole", "units are not stored, the first one too", "/packed/holes")
    yield of("a compressed file with a hole inside", "one unit is not stored", "/packed/zeros between")
    yield of("a file that is a hole", "no cluster is stored", "/all hole")
    yield of("one of three names that differ in case", "`TWIN` beside `Twin` and `twin`, asked for by its path", "/TWIN",
             by_path=True)
    yield case("a file whose data was deduplicated", "the reparse point names another place; what is left of the unnamed "
               "stream is not the file", image, entries["/elsewhere"], "/elsewhere", None)
    yield case("a named stream of such a file", "the reparse point is only about the unnamed stream", image,
               entries["/elsewhere"], "/elsewhere", b"a note beside it", "note")
    yield encrypted(folder, image, entries["/size5000"])
    entry, content = max(made.deleted.items(), key=lambda item: len(item[1]))
    yield case("a deleted file", "its clusters are free", image, entry, None, content)


def encrypted(folder, image, entry):
    """The same volume with a stream that is marked as encrypted."""
    copy = folder / "encrypted.img"
    content, place = place_of_record(image, entry)
    volume = opened(image)
    stored = next(a for a in volume.file(entry).attributes if a.kind == DATA)
    at = content.index(stored.data[:12], place) + 12
    content = bytearray(content)
    struct.pack_into("<H", content, at, stored.flags | plain_ntfs.ENCRYPTED)
    copy.write_bytes(content)
    return case("an encrypted file (EFS)", "the keys are not on the volume's structures; the stored bytes are not the file",
                copy, entry, "/size5000", None)


def cases_of_large_sectors(folder):
    folder.mkdir()
    made = fill_volume(folder, 4096, 4096, False)
    image, entries = made.volume.image, {node.path: node.entry for node in made.nodes}
    yield case("a small file on sectors of 4,096 bytes", "records have a fixup each 512 bytes all the same", image,
               entries["/size700"], "/size700", made.written["/size700", ""])
    yield case("a file in many pieces on sectors of 4,096 bytes", "the runs cross the fixups", image, entries["/islands"],
               "/islands", made.written["/islands", ""])


def cases_of_large_clusters(folder):
    for name, cluster in (("128 KiB", 131072), ("2 MiB", 2 * MIB)):
        volume = formatted(folder, f"clusters {cluster}", 512 * MIB if cluster > MIB else 64 * MIB, cluster=cluster)
        content = pattern(3 * MIB + 5, name)
        with volume.mounted() as root:
            (root / "large").write_bytes(content)
            entry = entry_of(root / "large")
        yield case(f"clusters of {name}", "more than 128 sectors, so a negative exponent in the boot sector", volume.image,
                   entry, "/large", content)


def cases_of_valid_length(folder):
    volume = formatted(folder, "grown")
    with volume.mounted() as root:
        (root / "filler").write_bytes(b"text of a deleted file\n" * 500000)
    with volume.mounted() as root:
        (root / "filler").unlink()
        (root / "grown").write_bytes(b"ten bytes\n")
        entry = entry_of(root / "grown")
    run_tool("ntfsfallocate", "-l", 40000, volume.image, "/grown")
    yield case("a file that is longer than what was written to it",
               "after the valid length programs read zeros; the clusters hold a deleted file", volume.image, entry,
               "/grown", b"ten bytes\n" + bytes(39990))


def cases_of_fragments(folder):
    volume = formatted(folder, "fragments")
    content = pattern(400 * 4096)
    with volume.mounted() as root:
        leave_only_gaps(root, 500, 4096)
        with open(f"{root}/file:stream", "wb") as stream:
            stream.write(content)
        entry = entry_of(root / "file")
    yield case("a named stream in pieces over an attribute list", "its runs are in two records", volume.image, entry,
               "/file", content, "stream")


def cases_of_built_volume(folder):
    folder.mkdir()
    run_tool(os.environ["QUARRY_VOLUME_WRITER"], folder, 4096, 1024)
    image = folder / "volume.img"
    names = entries_by_name(image)
    name = "file 399 of four hundred.txt"
    yield case("a file in the second piece of $MFT", "record 0 does not name that piece, an extension record does", image,
               names[name], "/many/" + name, b"number 399")
    broken = bytearray(image.read_bytes())
    volume = opened(image)
    broken[volume.mft_lcn * 4096:volume.mft_lcn * 4096 + 1024] = bytes(1024)
    (folder / "mirror.img").write_bytes(broken)
    name = "file 7 of four hundred.txt"
    yield case("the first record of $MFT is lost", "its mirror has it", folder / "mirror.img", names[name], "/many/" + name,
               b"number 7")


def cases_of_damage(folder):
    volume = formatted(folder, "damage")
    large = pattern(3 * MIB, "large")
    with volume.mounted() as root:
        (root / "large").write_bytes(large)
        (root / "small").write_bytes(b"the earlier text of a small file\n" * 18)
        entries = {name: entry_of(root / name) for name in ("large", "small")}
    earlier, place = place_of_record(volume.image, entries["small"])
    text = b"what the small file holds today \n" * 18
    with volume.mounted() as root:
        with open(root / "small", "r+b") as file:
            file.write(text)
    content = bytearray(pathlib.Path(volume.image).read_bytes())
    content[place + 512:place + 1024] = earlier[place + 512:place + 1024]
    (folder / "torn.img").write_bytes(content)
    yield case("a record that was half written", "its second sector is of an earlier time; the fixup shows it",
               folder / "torn.img", entries["small"], "/small", text)
    runs = opened(volume.image).file(entries["large"]).stream(DATA, b"").runs
    at = (runs[0].lcn + runs[0].clusters // 2) * 4096
    (folder / "cut.img").write_bytes(pathlib.Path(volume.image).read_bytes()[:at + 1000])
    yield case("an image that was cut off inside of the file", "its last clusters are not in the image", folder / "cut.img",
               entries["large"], "/large", large)
    yield case("an unreadable sector in the file", "the disk reports an error for 512 of its bytes", volume.image,
               entries["large"], "/large", large, failing=(at, at + 512))


def cases_of_reused_clusters(folder):
    volume = formatted(folder, "reused", 8 * MIB)
    content = pattern(100000, "gone")
    with volume.mounted() as root:
        (root / "gone").write_bytes(content)
        entry = entry_of(root / "gone")
        (root / "keeps the entry").write_bytes(b"x")
    with volume.mounted() as root:
        (root / "gone").unlink()
    run = opened(volume.image).file(entry).stream(DATA, b"").runs[0]
    with volume.mounted() as root:
        with open(root / "keeps the entry", "ab") as file, contextlib.suppress(OSError):
            while True:
                file.write(b"another file " * 4096)
    assert pathlib.Path(volume.image).read_bytes()[run.lcn * 4096:][:100000] != content
    yield case("a deleted file whose clusters belong to another one now", "its record is intact", volume.image, entry, None,
               None)


def cases_of_system_compression(folder):
    library = getattr(libwim, "__wrapped__", None) or libwim.__pytest_wrapped__.obj
    volume = formatted(folder, "packed")
    kinds = {"text": TEXT[:150000], "calls": b"\xe8\x10\x20\x30\x00abc" * 9000, "one byte": b"!"}
    made = []
    with volume.mounted() as root:
        for form in FORMATS:
            for kind, content in kinds.items():
                stored, _ = compress(library(), form, 50, content)
                entry = put(root, f"{kind} {form.name}", len(content), stored, form.number)
                made.append((form.name, kind, entry, content))
    titles = {"text": "text", "calls": "calls as programs have them", "one byte": "one byte"}
    for form, kind, entry, content in made:
        if form in ("xpress4k", "lzx") or kind == "text":
            yield case(f"a file that the system compressed, {form}: {titles[kind]}",
                       "the bytes are in the stream `WofCompressedData`", volume.image, entry, f"/{kind} {form}", content)


def all_cases(folder):
    yield from cases_of_hard_volume(folder / "hard")
    yield from cases_of_fragments(folder)
    yield from cases_of_valid_length(folder)
    yield from cases_of_built_volume(folder / "built")
    yield from cases_of_large_sectors(folder / "sectors")
    yield from cases_of_large_clusters(folder)
    yield from cases_of_system_compression(folder)
    yield from cases_of_reused_clusters(folder)
    yield from cases_of_damage(folder)


# The readers

class Asked:
    """The readers, each asked for one stream."""

    def __init__(self, program, folder):
        self.program, self.folder = program, folder

    @staticmethod
    def run(*command):
        return subprocess.run([str(word) for word in command], capture_output=True, env=readers.ENVIRONMENT, check=False,
                              stdin=subprocess.DEVNULL, timeout=readers.TIME_LIMIT)

    def object(self, asked, with_entry):
        shown = asked.path + (":" + asked.stream if asked.stream else "") if asked.path else None
        if with_entry and not asked.by_path:
            return ["-mft", asked.entry, *(["-src", ":" + asked.stream] if asked.stream else [])]
        return ["-src", shown]

    def quarry_with(self, words):
        copy = self.folder / "copy"
        done = self.run(self.program, *words, "-dst", copy)
        content = copy.read_bytes() if copy.exists() else None
        copy.unlink(missing_ok=True)
        return done, content

    def quarry(self, asked):
        by_entry = not asked.stream
        done, content = self.quarry_with(["-image", asked.image, *self.object(asked, by_entry)])
        if done.returncode == 0:
            return Outcome("given", content, "no file, and status 0" if content is None else "")
        return Outcome("refused", None, f"status {done.returncode}")

    def exact(self, asked):
        done, content = self.quarry_with(["-exact", "-image", asked.image, *self.object(asked, True)])
        lines = done.stderr.decode().splitlines()
        said = [line for line in lines if line.startswith(("err: ", "doubt: ", "warning: "))]
        words = "; ".join(line.split(": ", 1)[1] for line in said if not line.startswith("doubt: "))
        state = {0: "given", 4: "doubt"}.get(done.returncode, "refused")
        return Outcome(state, content, words)

    def icat(self, asked):
        entry = asked.entry
        if asked.by_path:
            entry = int(self.run("ifind", "-f", "ntfs", "-n", asked.path, asked.image).stdout.split()[0])
        address = str(entry)
        if asked.stream:
            name = asked.stream.encode("utf-16-le")
            attributes = opened(asked.image).file(entry).attributes
            address += f"-128-{next(a.id for a in attributes if (a.kind, a.name) == (DATA, name))}"
        return self.given(self.run("icat", "-f", "ntfs", asked.image, address))

    def ntfscat(self, asked):
        which = [asked.image, asked.path] if asked.by_path else ["-i", asked.entry, asked.image]
        return self.given(self.run("ntfscat", "-f", *(["-n", asked.stream] if asked.stream else []), *which))

    @staticmethod
    def given(done):
        words = done.stderr.decode(errors="replace").strip().split("\n")[0]
        return Outcome("given", done.stdout, words) if done.returncode == 0 else Outcome("refused", None, words)

    def mount(self, asked):
        if asked.path is None:
            return Outcome("refused", None, "no path leads to it")
        point = self.folder / "mount"
        point.mkdir(exist_ok=True)
        done = self.run("ntfs-3g", "-o", "ro,streams_interface=windows", asked.image, point)
        if done.returncode != 0:
            return Outcome("refused", None, done.stderr.decode(errors="replace").strip().split("\n")[0])
        try:
            path = f"{point}{asked.path}" + (":" + asked.stream if asked.stream else "")
            with os.fdopen(os.open(path, os.O_RDONLY | os.O_NOFOLLOW), "rb") as file:
                return Outcome("given", file.read(), "")
        except OSError as reason:
            return Outcome("refused", None, reason.strerror)
        finally:
            for _ in range(50):
                if self.run("umount", point).returncode == 0:
                    break

    def libfsntfs(self, asked):
        copy = self.folder / "libfsntfs"
        which = asked.path.replace("/", "\\") if asked.by_path else asked.entry
        done = self.run(readers.PYTHON, "-B", os.path.join(HERE, "libfsntfs_one.py"), asked.image, which, asked.stream,
                        copy)
        content = copy.read_bytes() if copy.exists() else None
        copy.unlink(missing_ok=True)
        if done.returncode == 0:
            return Outcome("given", content, "")
        words = done.stderr.decode(errors="replace").strip().split("\n")[-1]
        # The first of many clauses, one for each function on the way.
        return Outcome("refused", None, re.sub(r"^\w+: ", "", words).split(". ")[0])

    def all(self, asked):
        ways = (self.quarry, self.exact, self.icat, self.ntfscat, self.mount, self.libfsntfs)
        with unreadable(asked, self.folder) if asked.failing else contextlib.nullcontext(asked) as given:
            return {column: way(given) for column, way in zip(COLUMNS, ways)}


# What nbdkit runs for each request.
UNREADABLE = """#!/bin/sh
case $1 in
    get_size) stat -L -c %s '{image}' ;;
    pread)
        [ $4 -ge {end} ] || [ $(($4 + $3)) -le {begin} ] || {{ echo EIO >&2; exit 1; }}
        dd if='{image}' iflag=skip_bytes,count_bytes skip=$4 count=$3 bs=128k status=none ;;
    *) exit 2 ;;
esac
"""


@contextlib.contextmanager
def unreadable(asked, folder):
    """The same case on a view of the image, of which some bytes cannot be read."""
    script, view = folder / "unreadable", folder / "view"
    script.write_text(UNREADABLE.format(image=asked.image, begin=asked.failing[0], end=asked.failing[1]))
    script.chmod(0o755)
    view.mkdir()
    with subprocess.Popen(["nbdfuse", "-r", view, "[", "nbdkit", "--exit-with-parent", "sh", script, "]"],
                          stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL) as process:
        try:
            for _ in range(300):
                if (view / "nbd").exists() and (view / "nbd").stat().st_size:
                    break
                time.sleep(0.1)
            yield asked._replace(image=str(view / "nbd"))
        finally:
            for _ in range(50):
                if Asked.run("fusermount3", "-u", view).returncode == 0:
                    break
                time.sleep(0.1)
            process.terminate()


def judged(asked, outcome):
    if outcome.state == "refused":
        return REFUSED
    if outcome.state == "doubt":
        return DOUBT
    if asked.expected is not None and outcome.content == asked.expected:
        return RIGHT
    return WRONG_SAID if outcome.content is not None and outcome.words else WRONG


def detail(asked, column, outcome):
    """What a reader did, in words that can be checked."""
    verdict = judged(asked, outcome)
    if verdict == RIGHT:
        return None
    if verdict == REFUSED:
        return f"{column} refuses: {outcome.words}" if outcome.words else f"{column} refuses"
    if outcome.content is None:
        return f"{column}: {outcome.words}"
    content, expected = outcome.content, asked.expected
    size = f"{len(content):,} byte" + ("s" if len(content) != 1 else "")
    if verdict == DOUBT:
        return f"{column} copies {size}, in doubt: {outcome.words}"
    said = f": {outcome.words}" if outcome.words else ""
    if expected is None:
        return f"{column} gives {size} with status 0{said}"
    if len(content) != len(expected):
        return f"{column} gives {size} of {len(expected):,} with status 0{said}"
    first = next(at for at, (a, b) in enumerate(zip(content, expected)) if a != b)
    count = sum(a != b for a, b in zip(content, expected))
    return f"{column} gives {size} with status 0, of which {count:,} differ, the first at byte {first:,}{said}"


def versions(program):
    def first_line(*command):
        done = subprocess.run(command, capture_output=True, env=readers.ENVIRONMENT, check=False)
        return (done.stdout + done.stderr).decode().strip().split("\n")[0]

    library = first_line(readers.PYTHON, "-c", "import pyfsntfs; print(pyfsntfs.get_version())")
    return {"quarry": first_line(program, "-exact", "-h").replace("quarry ver: ", ""),
            "icat": first_line("icat", "-V").replace("The Sleuth Kit ver ", "The Sleuth Kit "),
            "ntfscat, ntfs-3g": first_line("ntfscat", "-V").split(" - ")[0].replace("ntfscat v", ""),
            "libfsntfs": library}


INTRODUCTION = """# Hard cases, and what each reader delivers

What is here was measured: `scripts/compared.sh` makes each volume, writes known bytes to it, asks each reader for them, and
writes this page. The tests make it again.

- right: the bytes that were written.
- **wrong**: other bytes, or none, with status 0 and no message of an error: in silence.
- wrong, with a message: other bytes with status 0, and a message on standard error.
- refused: an error, and a status other than 0. Where the volume does not hold the bytes, this is the right answer.
- in doubt: quarry copies what is there, says what is doubtful, and ends with status 4.

| Reader | Version | Command |
| --- | --- | --- |
| quarry | {quarry} | `quarry -image VOLUME -mft ENTRY -dst COPY`, as root; a named stream by its path with `-src` |
| quarry -exact | {quarry} | `quarry -exact -image VOLUME -mft ENTRY -dst COPY`, with `-src :STREAM` for a named stream |
| icat | {icat} | `icat -f ntfs VOLUME ENTRY`, or `ENTRY-128-ID` for a named stream |
| ntfscat | {ntfscat, ntfs-3g} | `ntfscat -f -i ENTRY VOLUME`, with `-n STREAM` for a named stream |
| ntfs-3g mount | {ntfscat, ntfs-3g} | `ntfs-3g -o ro,streams_interface=windows VOLUME DIR`, and the file's path |
| libfsntfs | {libfsntfs} | `get_file_entry` of its Python module and `read` to the size |

"""


def link(title):
    return re.sub(r"[^\w\- ]", "", title.lower()).replace(" ", "-")


def document(program, folder):
    asked = Asked(program, folder)
    rows, parts, wrong = [], [], collections.Counter()
    for each in all_cases(folder):
        outcomes = asked.all(each)
        verdicts = {column: judged(each, outcome) for column, outcome in outcomes.items()}
        wrong.update(column for column, verdict in verdicts.items() if verdict == WRONG)
        rows.append(f"| [{each.title}](#{link(each.title)}) | " + " | ".join(verdicts.values()) + " |")
        details = [detail(each, column, outcome) for column, outcome in outcomes.items()]
        parts.append(f"### {each.title[0].upper()}{each.title[1:]}\n\n{each.why[0].upper()}{each.why[1:]}.\n\n"
                     + "".join(f"- {clean(words, folder)}\n" for words in details if words))
    head = INTRODUCTION
    for key, version in versions(program).items():
        head = head.replace("{" + key + "}", version)
    table = "| Case | " + " | ".join(COLUMNS) + " |\n" + "| --- " * (1 + len(COLUMNS)) + "|\n" + "\n".join(rows) + "\n"
    sums = "| wrong in silence, of " + str(len(rows)) + " | " + " | ".join(str(wrong[column]) for column in COLUMNS) + " |\n"
    return head + table + sums + "\n## Case by case\n\nAll that is not right.\n\n" + "\n".join(
        part.rstrip("\n") + "\n" for part in parts)


def clean(words, folder):
    """Without what differs from run to run."""
    words = words.replace(str(folder), "").replace("|", "\\|")
    words = re.sub(r"[^ '\":]*(\.img|/view/nbd)\b", "VOLUME", words)
    return re.sub(r"[ \t]+", " ", words.replace("\n", " ")).strip().rstrip(".")


def main():
    with tempfile.TemporaryDirectory(prefix="compared") as folder:
        sys.stdout.write(document(os.environ["QUARRY_PROGRAM"], pathlib.Path(folder)))


if __name__ == "__main__":
    main()
