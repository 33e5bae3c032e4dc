"""docs/compared.md is what the readers do now: all of it where they have the versions that it names, else quarry's part."""

import os
import pathlib
import re

import pytest

import compared
import oracle
from volumes import need, need_mounting, need_tools

DOCUMENT = pathlib.Path(compared.HERE).parent.parent / "docs" / "compared.md"


def table(text):
    """The verdicts: {title: {reader: verdict}}."""
    rows = [re.split(r"(?<!\\) ?\| ?", line.strip("| ")) for line in text.split("\n") if line.startswith("| ")]
    start = next(at for at, row in enumerate(rows) if row[0] == "Case")
    return {row[0]: dict(zip(rows[start][1:], row[1:])) for row in rows[start + 2:]}


def versions(text):
    return {row[0]: row[1] for row in (line.strip("| ").split(" | ") for line in text.split("\n")) if len(row) == 3}


def cases(text):
    """What is said case by case. Numbers, as sizes and places, differ with how the volume's driver was in time."""
    parts = re.split(r"^### ", text, flags=re.M)[1:]
    return {part.split("\n")[0]: re.sub(r"0x[0-9A-Fa-f]+|[0-9,]+", "N", part) for part in parts}


def differences(written, made):
    """Between the document and what it is now, as far as the versions let them be compared."""
    found = []
    old, new = table(written), table(made)
    if list(old) != list(new):
        found.append(f"cases: {sorted(old.keys() ^ new.keys())}")
    same = [reader for reader in compared.COLUMNS if versions(written).get(reader) == versions(made).get(reader)]
    for title in old.keys() & new.keys():
        found += [f"{title}, {reader}: {old[title][reader]} in the document, {new[title][reader]} now"
                  for reader in {*same, "quarry", "quarry -exact"} if old[title][reader] != new[title][reader]
                  and not title.startswith("wrong in silence")]
    if len(same) == len(compared.COLUMNS):
        found += [f"case by case: {title}" for title, part in cases(made).items() if cases(written).get(title) != part]
    return found


@pytest.fixture(scope="module")
def made(tmp_path_factory):
    need_mounting()
    need_tools(*oracle.TOOLS, "icat", "ifind", "nbdkit", "nbdfuse", "fusermount3", "ntfsfallocate")
    need(not oracle.missing_tools(), "missing: " + ", ".join(oracle.missing_tools()))
    return compared.document(os.environ["QUARRY_PROGRAM"], tmp_path_factory.mktemp("compared"))


def test_the_document_is_what_the_readers_do(made):
    assert differences(DOCUMENT.read_text(encoding="utf-8"), made) == [], "run scripts/compared.sh, and look at the difference"


def test_the_exact_mode_is_never_wrong_and_right_where_the_bytes_are_there(made):
    exact = {title: verdicts["quarry -exact"] for title, verdicts in table(made).items()}
    assert exact.popitem()[1] == "0"  # the last row counts what is wrong in silence
    assert len(exact) > 30
    not_right = {re.search(r"\[(.*)\]", title)[1] for title, verdict in exact.items() if verdict != compared.RIGHT}
    assert not_right == {"a file whose data was deduplicated", "an encrypted file (EFS)", "a deleted file",
                         "a deleted file whose clusters belong to another one now", "a record that was half written",
                         "an image that was cut off inside of the file", "an unreadable sector in the file"}


def test_a_document_that_says_something_else_is_found_out():
    written = DOCUMENT.read_text(encoding="utf-8")
    assert differences(written, written) == []
    row = next(line for line in written.split("\n") if line.startswith("| [a named stream]("))
    assert len(differences(written.replace(row, row.replace("| right |", "| refused |", 1)), written)) == 1
    assert len(differences(written.replace(row + "\n", ""), written)) == 1
    assert len(differences(written.replace("ends in 0x", "ended in 0x"), written)) == 1
    # Of another version of a reader only that reader's column and the words are let go.
    other = written.replace(versions(written)["icat"], "The Sleuth Kit 9")
    assert differences(other, written) == []
    assert len(differences(other.replace(row, row.replace("| right |", "| refused |", 1)), written)) == 1
