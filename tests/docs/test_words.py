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


def test_the_readme_leads_to_every_page():
    linked = set(re.findall(r"\]\((docs/[^)#]+\.md)", text_of("README.md")))
    assert linked == {page for page in PAGES if page.startswith("docs/") and page.endswith(".md")}


def test_the_glossary_is_in_the_order_of_the_alphabet():
    words = [row.split("|")[1].strip() for row in text_of("docs/glossary.md").split("\n") if row.startswith("| ")][2:]
    assert len(words) > 20
    assert words == sorted(words, key=lambda word: word.replace("`", "").lower())
