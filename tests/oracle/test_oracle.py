"""The oracle over volumes that the tests make, and over programs that are wrong on purpose: it must find them out."""

import io
import os
import subprocess

import pytest

import oracle
import readers
from test_exact_streams import TEXT, fill_volume, pattern
from test_system_compression import FORMATS, PROVIDER_WIM, compress, libwim, put
from volumes import MIB, Volume, need, need_mounting, need_tools, run_tool

__all__ = ["libwim"]  # a fixture

SHAPES = ((512, 512), (512, 4096), (4096, 4096))
BUILT = ((1024, 1024), (4096, 4096))


@pytest.fixture(autouse=True)
def needed_tools():
    need_mounting()
    need_tools(*oracle.TOOLS)
    need(not oracle.missing_tools(), "missing: " + ", ".join(oracle.missing_tools()))


def judged(program, *images):
    """The tally of these images, and what was printed."""
    out = io.StringIO()
    return oracle.run(program, [str(image) for image in images], out), out.getvalue()


def check(program, image, streams, names):
    tally, printed = judged(program, image)
    assert tally.unexplained == [], printed
    assert tally.volumes == 1 and tally.streams >= streams and tally.names >= names, printed
    # All of them by the reader that has no excuses.
    second = oracle.Plain.name
    assert tally.agreed[second] + tally.refused[second] == tally.streams, printed
    assert tally.agreed[second] > streams * 3 // 4, printed
    assert tally.spellings == 3 * tally.names
    return tally


@pytest.mark.parametrize("sector, cluster", SHAPES)
def test_every_difference_on_a_volume_of_hard_cases_has_a_reason(program, tmp_path, sector, cluster):
    filled = fill_volume(tmp_path, sector, cluster, False)
    tally = check(program, filled.volume.image, 270, 200)
    # What is known to differ was there to be seen.
    keys = {key for _, key in tally.explained}
    assert {"sector-ends", "elsewhere", "hole-ends-it", "twin", "empty"} <= keys
    assert ("sector-ends-in-records" in keys) == (sector > 512)


@pytest.mark.parametrize("cluster, record", BUILT)
def test_every_difference_on_a_built_volume_has_a_reason(program, tmp_path, cluster, record):
    run_tool(os.environ["QUARRY_VOLUME_WRITER"], tmp_path, cluster, record)
    check(program, tmp_path / "volume.img", 400, 400)


def test_every_difference_on_system_compressed_files_has_a_reason(program, tmp_path, libwim):
    image = tmp_path / "volume.img"
    with open(image, "wb") as out:
        out.truncate(16 * MIB)
    run_tool("mkntfs", "-q", "-F", "-Q", "-p", 0, "-H", 255, "-S", 63, image)
    contents = {"text": TEXT[:40000], "noise": pattern(20000), "one byte": b"!", "chunk and byte": TEXT[:32769]}
    with Volume(image, tmp_path / "mount").mounted() as root:
        for form in FORMATS:
            for kind, content in contents.items():
                stored, _ = compress(libwim, form, 50, content)
                put(root, f"{kind} {form.name}", len(content), stored, form.number)
        put(root, "in a wim", 5000, b"", 0, PROVIDER_WIM)
    tally = check(program, image, 30, 25)
    assert tally.explained["ntfscat", "wof-zeros"] == len(contents) * len(FORMATS)
    assert tally.explained["libfsntfs", "wof-one-byte"] == len(FORMATS)


def test_names_that_no_spelling_but_their_own_finds_have_a_reason(program, tmp_path):
    image = tmp_path / "volume.img"
    with open(image, "wb") as out:
        out.truncate(8 * MIB)
    run_tool("mkntfs", "-q", "-F", "-Q", "-p", 0, "-H", 255, "-S", 63, image)
    with Volume(image, tmp_path / "mount").mounted() as root:
        for name in ("Pair", "pAIR"):
            (root / name).mkdir()
            (root / name / "inside").write_bytes(name.encode())
        os.symlink("Pair", root / "link")
    tally = check(program, image, 20, 15)
    assert tally.explained["ntfs-3g mount", "interix-link"] == 1
    # Both names and what is in both directories, in upper and in lower case.
    assert tally.explained["names", "twins"] == 8


def test_a_volume_in_a_partition_is_compared_too(program, tmp_path):
    run_tool(os.environ["QUARRY_VOLUME_WRITER"], tmp_path, 4096, 1024)
    volume = (tmp_path / "volume.img").read_bytes()
    disk = tmp_path / "disk"
    with open(disk, "wb") as out:
        out.truncate(8 * MIB)
    run_tool("sfdisk", "--quiet", disk, input=b"label: dos\nstart=2048, size=8192, type=7\n")
    with open(disk, "r+b") as out:
        out.seek(MIB)
        out.write(volume)
    tally, printed = judged(program, disk)
    assert tally.unexplained == [] and tally.volumes == 1 and tally.streams >= 400, printed


@pytest.fixture(scope="module")
def built(tmp_path_factory):
    folder = tmp_path_factory.mktemp("built")
    run_tool(os.environ["QUARRY_VOLUME_WRITER"], folder, 1024, 1024)
    return folder


# Runs the program, and spoils what goes in or comes out.
WRONG = """#!/bin/sh -e
program='{program}'
case " $* " in *" -exact "*) ;; *) exec "$program" "$@" ;; esac
{spoil}
exec "$program" "$@"
"""

WITH_ANOTHER_IMAGE = """
original='{image}'
spoiled='{spoiled}'
[ "$3" = "$original" ] && shift 3 && set -- -exact -image "$spoiled" "$@"
"""
WITHOUT_A_NAME = """
case " $* " in *" -list "*) "$program" "$@" | sed 1d; exit 0 ;; esac
"""
WITH_A_NAME_THAT_IS_NOT_FOUND = """
case " $* " in *" -raw "*) sed 's/ 399 of/ 3999 of/' | "$program" "$@"; exit $? ;; esac
"""


def found_out(program, built, tmp_path, spoil, only):
    """What the oracle says about a program that is spoiled so."""
    wrong = tmp_path / "wrong"
    wrong.write_text(WRONG.replace("{program}", program).replace("{spoil}", spoil))
    wrong.chmod(0o755)
    out = io.StringIO()
    tally = oracle.run(str(wrong), [str(built / "volume.img")], out, only=only)
    assert len(tally.unexplained) == out.getvalue().count("NO REASON: "), out.getvalue()
    return tally.unexplained


SECOND = oracle.Plain.name


def test_the_program_itself_passes_what_the_spoiled_ones_fail(program, built, tmp_path):
    assert found_out(program, built, tmp_path, "", (SECOND, "ntfs-3g mount")) == []


def test_one_wrong_byte_is_found_out_by_each_reader(program, built, tmp_path):
    content = (built / "stream2").read_bytes()  # of stored.bin
    image = bytearray((built / "volume.img").read_bytes())
    at = image.index(content[:1024])
    image[at + 700] ^= 1
    (tmp_path / "spoiled.img").write_bytes(image)
    spoil = WITH_ANOTHER_IMAGE.replace("{image}", str(built / "volume.img"))
    spoil = spoil.replace("{spoiled}", str(tmp_path / "spoiled.img"))
    for reader in (SECOND, "ntfscat", "libfsntfs", "ntfs-3g mount", "quarry"):
        found = found_out(program, built, tmp_path, spoil, (reader,))
        assert len(found) == 1 and f": {reader}: " in found[0] and "stored.bin" in found[0], (reader, found)


def test_a_name_that_the_listing_drops_is_found_out(program, built, tmp_path):
    found = found_out(program, built, tmp_path, WITHOUT_A_NAME, (SECOND,))
    assert len(found) == 1 and "-list has entry" in found[0], found


def test_a_name_that_the_program_does_not_find_is_found_out_in_each_spelling(program, built, tmp_path):
    found = found_out(program, built, tmp_path, WITH_A_NAME_THAT_IS_NOT_FOUND, (SECOND,))
    # Not so in upper case, which is not spoiled.
    assert len(found) == 2 and all("/file 399 of" in words.lower() for words in found), found


def test_a_program_that_makes_nothing_is_found_out(built, tmp_path):
    wrong = tmp_path / "wrong"
    wrong.write_text("#!/bin/sh\nexit 0\n")
    wrong.chmod(0o755)
    tally, _ = judged(str(wrong), built / "volume.img")
    assert len(tally.unexplained) == 1 and "0 lines for" in tally.unexplained[0]


def test_the_program_of_the_oracle_ends_with_what_it_found(program, built, tmp_path):
    def status(quarry, *images):
        command = [readers.PYTHON, "-B", oracle.__file__, "--quarry", quarry, "--only", SECOND, *map(str, images)]
        return subprocess.run(command, capture_output=True, check=False).returncode

    folder = tmp_path / "images"
    folder.mkdir()
    (folder / "volume.img").symlink_to(built / "volume.img")
    assert status(program, folder) == 0
    assert status("true", folder) == 1
    (folder / "volume.img").unlink()
    (folder / "none").write_bytes(bytes(MIB))
    assert status(program, folder) == 2
