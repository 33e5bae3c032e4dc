"""What the documents point to is there: files, headings of each other, names of the source."""

import glob
import os
import re
import subprocess

import pytest

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
DOCUMENTS = sorted(os.path.relpath(path, ROOT) for pattern in ("*.md", "docs/*.md", "samples/*.md", "bench/*.md")
                   for path in glob.glob(os.path.join(ROOT, pattern)))


def text_of(path):
    with open(os.path.join(ROOT, path), encoding="utf-8") as file:
        return file.read()


def prose_of(path):
    """Without the fenced blocks."""
    return re.sub(r"^```.*?^```$", "", text_of(path), flags=re.M | re.S)


def anchors_of(path):
    """The names under which headings can be linked to."""
    found = set()
    for heading in re.findall(r"^#+ (.*)$", prose_of(path), re.M):
        found.add(re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-"))
    return found


@pytest.mark.parametrize("document", DOCUMENTS)
def test_links_lead_somewhere(document):
    for target in re.findall(r"\]\(([^)\s]+)\)", prose_of(document)):
        assert not target.startswith("http"), f"{target}: documents need no network"
        path, _, anchor = target.partition("#")
        file = os.path.normpath(os.path.join(os.path.dirname(document), path)) if path else document
        assert os.path.exists(os.path.join(ROOT, file)), target
        assert not anchor or anchor in anchors_of(file), target


def test_links_lead_somewhere_where_the_documents_are_installed(tmp_path):
    program = os.environ.get("QUARRY_PROGRAM", "")
    build = os.path.dirname(os.path.dirname(program))
    if not os.path.exists(os.path.join(build, "cmake_install.cmake")):
        pytest.skip("QUARRY_PROGRAM is in no build directory")
    subprocess.run(["cmake", "--install", build, "--prefix", tmp_path], check=True, capture_output=True)
    installed = glob.glob(os.path.join(tmp_path, "**", "*.md"), recursive=True)
    assert len(installed) > 10
    for document in installed:
        with open(document, encoding="utf-8") as file:
            prose = re.sub(r"^```.*?^```$", "", file.read(), flags=re.M | re.S)
        for target in re.findall(r"\]\(([^)#\s]+)", prose):
            assert os.path.exists(os.path.join(os.path.dirname(document), target)), f"{document}: {target}"


@pytest.fixture(scope="module")
def sources():
    return "\n".join(text_of(path) for path in glob.glob(os.path.join(ROOT, "src", "**", "*.*"), recursive=True))


def test_the_internals_name_files_and_functions_that_exist(sources):
    for word in re.findall(r"`([^`\s]+)`", prose_of("docs/internals.md")):
        if "/" in word:
            assert any(os.path.exists(os.path.join(ROOT, base, word)) for base in ("", "src")), word
        elif word.endswith(".h"):
            assert glob.glob(os.path.join(ROOT, "src", "*", word)), word
        elif re.fullmatch(r"\w+_\w+", word) and not word.endswith("_..."):
            assert re.search(rf"\b{word}\b", sources), word


def test_the_pictures_name_layers_and_functions_that_exist(sources):
    for picture in re.findall(r"^```mermaid$(.*?)^```$", text_of("docs/internals.md"), re.M | re.S):
        for layer, name in re.findall(r"participant \w+ as (\w+): (\w+)", picture):
            assert os.path.isdir(os.path.join(ROOT, "src", layer)), layer
            assert re.search(rf"\b{name}\b", sources), name
        for name in re.findall(r"\b[a-z]+_[a-z_]+\b", picture):
            assert re.search(rf"\b{name}\b", sources), name
