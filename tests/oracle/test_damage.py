"""Damaged volumes: what `-exact` copies without a word is what a second reader says too, and the second reader is right."""

import hashlib
import io
import os
import subprocess

import pytest

import damage
import plain_ntfs
from codecs_of_ntfs import Bad

# The whole takes a minute where the processor is not shared, and many where each instruction is watched.
CASES = 2000 if os.environ.get("QUARRY_INSTRUMENTED") else 20000


@pytest.fixture(scope="module")
def program():
    return os.environ["QUARRY_EXACT_DAMAGE"]


@pytest.fixture(scope="module")
def volumes(program, tmp_path_factory):
    folder = tmp_path_factory.mktemp("volumes")
    subprocess.run([program, "write", folder], check=True)
    return folder


def test_no_damage_makes_a_copy_that_the_second_reader_does_not_make_too(program):
    out = io.StringIO()
    result = damage.run(program, CASES, os.cpu_count(), out)
    assert result.wrong == [], out.getvalue()
    assert result.counts["cases"] >= CASES - 3
    # So many of each outcome that none of this can have been empty.
    assert all(result.counts[kind] > CASES // 1000 for kind in ("complete", "other", "failed")), out.getvalue()


def test_the_program_copies_what_the_many_cases_of_one_process_say(program, volumes, tmp_path):
    orders = damage.read_orders(volumes)
    done = subprocess.run([program, "run", "1500"], capture_output=True, text=True, check=True)
    lines = [line.split("\t") for line in done.stdout.splitlines() if line.startswith("other\t")]
    assert len(lines) > 100
    for number, line in enumerate(lines[::len(lines) // 30]):
        order, image, copy = orders[line[1], line[2]], tmp_path / "damaged.img", tmp_path / f"copy{number}"
        image.write_bytes(damage.damaged((volumes / f"{line[1]}.img").read_bytes(), line[5]))
        stream = ":" + order.stream if order.stream else ""
        of_stream = ["-src", stream] if stream else []
        which = ["-src", order.path + stream] if order.path else ["-mft", str(order.entry), *of_stream]
        copied = subprocess.run([os.environ["QUARRY_PROGRAM"], "-exact", "-image", image, *which, "-dst", copy],
                                capture_output=True, check=False)
        assert copied.returncode == 0, (line, copied.stderr)
        assert hashlib.sha256(copy.read_bytes()).hexdigest() == line[4], line


def test_the_volumes_hold_every_kind_of_stream_and_index(volumes):
    kinds, forms, levels = set(), set(), set()
    for (name, _), order in damage.read_orders(volumes).items():
        volume = plain_ntfs.Volume(plain_ntfs.Source((volumes / f"{name}.img").read_bytes()))
        file = volume.file(order.entry)
        stored = file.stream(plain_ntfs.DATA, order.stream.encode("utf-16-le"))
        held = next((a for a in file.base.attributes if a.kind == plain_ntfs.ATTRIBUTE_LIST), None)
        kinds |= {"in the record" if stored.resident else "in clusters", "named" if order.stream else "unnamed"}
        kinds |= {"compressed"} if stored.compressed else set()
        kinds |= {"valid length"} if stored.valid < stored.size and stored.valid else set()
        kinds |= {"pieces"} if stored.pieces > 3 else set()
        kinds |= {"list in the record" if held.resident else "list in clusters"} if held else set()
        if file.tag() == plain_ntfs.TAG_WOF:
            forms.add(file.reparse()[20])
        for parent in {name.parent for name in file.names()}:
            levels.add(depth(volume.file(parent)))
    assert kinds == {"in the record", "in clusters", "named", "unnamed", "compressed", "valid length", "pieces",
                     "list in the record", "list in clusters"}
    assert forms == {0, 1, 2, 3}
    assert levels >= {0, 1, 2}


def depth(directory):
    """How many levels of blocks are below the root of an index."""
    root = directory.stream(plain_ntfs.INDEX_ROOT, plain_ntfs.I30).content()
    _, children = plain_ntfs.node_entries(root, 16)
    levels = 0
    blocks = directory.stream(plain_ntfs.INDEX_ALLOCATION, plain_ntfs.I30).content() if children else b""
    size = plain_ntfs.number(root, 8, 4)
    step = directory.volume.cluster if directory.volume.cluster <= size else 512
    while children:
        at = children[0] * step
        _, children = plain_ntfs.node_entries(plain_ntfs.with_sector_ends(blocks[at:at + size]), 24)
        levels += 1
    return levels


def test_a_copy_that_is_wrong_is_found_out(volumes):
    image = (volumes / "listed.img").read_bytes()
    order = damage.Order("/three pieces", 24, "")
    volume = plain_ntfs.Volume(plain_ntfs.Source(image))
    right = hashlib.sha256(volume.file(24).content()).hexdigest()

    def judged(kind, entry, given):
        return damage.judge(image, order, [kind, "listed", "0", str(entry), given])

    assert judged("other", 24, right) is None
    assert judged("other", 24, right[:-1] + "x") == "the second reader has other bytes"
    assert judged("other", 27, right) == "entry 27 has no such name"
    assert judged("other", 25, right).startswith("the second reader refuses it: ")
    assert judged("large", 24, "1") == "the second reader has 3069 bytes"


def test_a_program_that_ends_early_or_copies_nothing_is_found_out(program, tmp_path):
    wrong = tmp_path / "wrong"
    start = f'#!/bin/sh\n[ "$1" = write ] && exec {program} "$@"\n'
    wrong.write_text(start + "exit 0\n")
    wrong.chmod(0o755)
    found = damage.run(str(wrong), 30, 1, io.StringIO()).wrong
    assert len(found) == 2 and "ended with 0" in found[0] and "copied 0 of 56 sound streams" in found[1], found
    # Other bytes than those on the volume.
    wrong.write_text(start + f'{program} "$@" | sed "s/^\\(sound.*\\)[0-9a-f]$/\\1x/"\n')
    assert len(damage.run(str(wrong), 30, 1, io.StringIO()).wrong) >= 56


@pytest.mark.parametrize("at, words", [(0x1FE, "torn"), (0, "signature"), (0x14, "first attribute"), (0x1C, "sizes")])
def test_the_second_reader_refuses_a_record_that_breaks_a_rule(volumes, at, words):
    image = bytearray((volumes / "listed.img").read_bytes())
    volume = plain_ntfs.Volume(plain_ntfs.Source(image))
    place = image.index(volume.record_bytes(36)[:48])
    image[place + at] ^= 1
    with pytest.raises(Bad, match=words):
        plain_ntfs.Volume(plain_ntfs.Source(image)).file(36)
