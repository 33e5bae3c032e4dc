"""The documents of users speak of modules and layers, and every page can be reached from the README."""

import glob
import os
import re

import pytest

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
PAGES = sorted(os.path.relpath(path, ROOT) for pattern in ("*.md", "docs/*.md", "docs/*.1", "samples/*.md")
               for path in glob.glob(os.path.join(ROOT, pattern)))


def text_of(path):
    with open(os.path.join(ROOT, path), encoding="utf-8") as file:
        return file.read()


@pytest.mark.parametrize("page", PAGES)
def test_a_page_has_no_rooms_and_houses(page):
    # "With room for it" is about space and stays.
    assert re.findall(r"(?i)\b(?:houses?|rooms|(?:a|each|the) room)\b", text_of(page)) == []


@pytest.mark.parametrize("page", PAGES)
def test_a_page_says_after_and_says_rather_than_behind_and_tells(page):
    # Code, the names of tests and messages are not prose.
    prose = re.sub(r"```.*?```|`[^`\n]+`|^\.It Sy [^\n]*", "", text_of(page), flags=re.S | re.M)
    assert re.findall(r"(?i)\b(?:behind|tells?|told|stands|stood|made out)\b", prose) == []


def comments_of(path):
    """The text of its // comments, line breaks undone."""
    return re.sub(r"\n\s*// ?", " ", "\n".join(re.findall(r"//.*", text_of(path))))


@pytest.mark.parametrize("folder", ["src", "tests", "fuzz", "bench"])
def test_comments_use_the_words_of_the_field(folder):
    sources = [path for path in glob.glob(os.path.join(ROOT, folder, "**", "*.*"), recursive=True)
               if path.endswith((".h", ".cpp"))]
    assert sources
    found = [(os.path.relpath(path, ROOT), word) for path in sources for word in
             re.findall(r"\b(?:behind(?!-mft)|one would expect|taken apart|made out|in front)\b", comments_of(path))]
    assert found == []


def test_the_readme_is_a_page_for_the_first_minutes():
    assert text_of("README.md").count("\n") <= 150


def test_the_readme_leads_to_every_page():
    linked = set(re.findall(r"\]\((docs/[^)#]+\.md)", text_of("README.md")))
    assert linked == {page for page in PAGES if page.startswith("docs/") and page.endswith(".md")}


def test_the_glossary_is_in_the_order_of_the_alphabet():
    words = [row.split("|")[1].strip() for row in text_of("docs/glossary.md").split("\n") if row.startswith("| ")][2:]
    assert len(words) > 20
    assert words == sorted(words, key=lambda word: word.replace("`", "").lower())
