"""What docs/bounds.md says names constants of the source and tests that there are."""

import glob
import os
import re

import pytest

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))


def text_of(*patterns):
    paths = [path for pattern in patterns for path in glob.glob(os.path.join(ROOT, pattern), recursive=True)]
    assert paths, patterns
    texts = []
    for path in paths:
        with open(path, encoding="utf-8") as file:
            texts.append(file.read())
    return "\n".join(texts)


def rows():
    """The cells of each row of a table that has a column of tests."""
    found = []
    inside = False
    for line in text_of("docs/bounds.md").split("\n"):
        cells = [cell.strip() for cell in line.strip("|").split("|")] if line.startswith("|") else []
        if cells and cells[-1] == "test":
            inside = True
        elif not cells:
            inside = False
        elif inside and not set("".join(cells)) <= {"-", " "}:
            found.append(cells)
    return found


def quoted(cell):
    return re.findall(r"`([^`]+)`", cell)


@pytest.fixture(scope="module")
def tests():
    """All tests by the names that the document gives them, those in tables of command lines as "table: words"."""
    found = set()
    for path in glob.glob(os.path.join(ROOT, "tests", "**", "*.cpp"), recursive=True):
        with open(path, encoding="utf-8") as file:
            source = file.read()
        found.update(f"{suite}.{name}" for suite, name in
                     re.findall(r"^TEST(?:_F|_P)?\(\s*(\w+),\s*(\w+)\s*\)", source, re.M))
        for table in re.findall(r"^QUARRY_COMMAND_TABLE\((\w+),", source, re.M):
            found.update(f"{table}: {words}" for words in re.findall(r'\.name = "([^"]+)"', source))
    found.update(re.findall(r"^def (test_\w+)", text_of("tests/**/*.py"), re.M))
    return found


def test_every_row_is_found():
    assert len(rows()) > 60


@pytest.mark.parametrize("cells", rows(), ids=lambda cells: cells[0])
def test_a_row_names_tests_that_there_are(cells, tests):
    for name in quoted(cells[-1]):
        assert name in tests, name


def test_a_row_without_a_test_is_about_what_no_program_can_see():
    assert [cells[0] for cells in rows() if not cells[-1]] == ["SIGKILL, or a loss of power"]


def test_the_text_names_tests_that_there_are(tests):
    prose = re.sub(r"^\|.*$", "", text_of("docs/bounds.md"), flags=re.M)
    for name in re.findall(r"`([a-z]\w*\.[a-z]\w*_\w+|[A-Z]\w*[a-z]\w*\.\w+)`", prose):
        assert name in tests, name


def test_the_bounds_are_names_of_the_source():
    source = text_of("src/**/*.cpp", "src/**/*.h")
    for cells in rows():
        for name in quoted(cells[1]) if len(cells) == 5 else []:
            if re.fullmatch(r"[a-z]\w*", name):
                assert re.search(rf"\b{name}\b", source), name
