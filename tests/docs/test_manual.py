"""The manual page, the completions and the program name the same options; the page has every message."""

import glob
import os
import re
import shutil
import subprocess

import pytest

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
MANUAL = os.path.join(ROOT, "docs", "quarry.1")
SOURCE_TABLE = ("src", "frontend", "options", "source_table.h")


def text_of(*path):
    with open(os.path.join(ROOT, *path), encoding="utf-8") as file:
        return file.read()


def sources(pattern):
    return "\n".join(text_of(path) for path in sorted(glob.glob(os.path.join(ROOT, pattern), recursive=True)))


def sources_of_frontend():
    return sources("src/frontend/*.cpp") + sources("src/frontend/options/*.cpp") + text_of(*SOURCE_TABLE)


def options_of_exact_mode(state=""):
    """Those of its own table and of the listings, and the rows of the sources that have words of its help."""
    table = text_of("src", "frontend", "exact", "option_table.cpp")
    return (set(re.findall(r'row\("(-[a-z][a-z0-9_]*)", option::\w+, \d, ' + state, table)) |
            set(re.findall(r'\{"(-[a-z]+)", source_kind::\w+, source_value::\w+, "', text_of(*SOURCE_TABLE))) |
            set(re.findall(r'\{"(-[a-z]+)", "', text_of("src", "frontend", "exact", "listing_table.h"))))


def options_of_program():
    return set(re.findall(r'"(-[a-z][a-z0-9_]*)"', sources_of_frontend())) | options_without_effect()


def options_without_effect():
    table = text_of("src", "frontend", "options", "early_words.h").split("ignored_words", 1)[1]
    return set(re.findall(r'\{"(-[a-z0-9_]+)", \d', table))


def synopsis_of_page():
    page = text_of("docs", "quarry.1")
    begin = page.index(".Sh SYNOPSIS\n")
    return page[begin:page.index(".Sh ", begin + 1)]


def pages_of_both_modes():
    """The page without its section on the exact mode and without the synopsis of both, and that section."""
    synopsis = synopsis_of_page()
    page = text_of("docs", "quarry.1").replace(synopsis, "")
    begin = page.index(".Sh EXACT MODE\n")
    end = page.index(".Sh ", begin + 1)
    return page[:begin] + page[end:], page[begin:end]


def options_in(page):
    found = set()
    for line in page.split("\n"):
        if line.startswith((".It Fl ", ".Fl ")):
            # Further names after commas, and further "Fl" on the same line.
            words = re.sub(r" (Ar|Op|Ns|No|Ql|Pa|Sm) .*?(?= , Fl |$)", " ", line.split("Fl ", 1)[1])
            found |= {"-" + word for word in re.findall(r"\b[a-z][a-z0-9_]*", words)}
    return found


def rendered():
    return re.sub(r"\s+", " ", subprocess.run(["mandoc", "-T", "ascii", MANUAL], check=True,
                                              capture_output=True, text=True).stdout.replace("\b", "\x00"))


def plain(text):
    return re.sub(r"_\x00|.\x00", "", text)


@pytest.fixture
def page():
    if shutil.which("mandoc") is None:
        if os.environ.get("CI"):
            pytest.fail("mandoc is not installed")
        pytest.skip("mandoc is not installed")
    return plain(rendered())


def test_the_page_is_without_a_fault(page):
    lint = subprocess.run(["mandoc", "-T", "lint", "-W", "all", MANUAL], check=False, capture_output=True, text=True)
    assert (lint.returncode, lint.stdout + lint.stderr) == (0, "")


def test_the_page_has_every_option_of_the_program_and_no_other():
    # What chooses the mode is named in both parts.
    assert options_in(pages_of_both_modes()[0]) == options_of_program() | {"-exact"}


def test_the_synopsis_has_what_both_modes_begin_with():
    exact = {line for line in synopsis_of_page().split(".Nm\n") if line.startswith(".Fl exact\n")}
    assert {"-volumes", "-list", "-pipe", "-mft", "-src"} <= options_in("".join(exact)) <= options_of_exact_mode() | {"-exact"}
    assert options_in(synopsis_of_page()) <= options_of_program() | options_of_exact_mode() | {"-exact"}


def test_the_page_has_every_option_of_the_exact_mode_and_no_other():
    # The page writes "--help" as a flag of "-help", which the pattern above reads as one.
    assert options_in(pages_of_both_modes()[1]) == options_of_exact_mode()


def codes_of_the_manifest():
    """What scripts find in a manifest, of failures and of warnings."""
    table = re.search(r"code_texts = .*?\}\);", text_of("src", "exact", "failure.cpp"), re.S).group()
    failures = re.findall(r'"([a-z-]+)"', table)
    # A few failures become warnings under their own code.
    warnings = re.findall(r'\b(?:warn|doubt)\(\s*"([a-z-]+)"', sources("src/**/*.cpp"))
    assert len(failures) > 40 and len(set(warnings)) > 15
    return failures + warnings


def test_the_page_has_every_code_of_a_manifest():
    part = text_of("docs", "quarry.1").split(".Ss Codes in a manifest\n")[1].split("\n.Sh ")[0]
    listed = [code for row in re.findall(r"^\.It Sy (.*)$", part, re.M) for code in row.split(" , ")]
    assert sorted(listed) == sorted(set(codes_of_the_manifest()))


@pytest.mark.parametrize("completion, pattern", [
    ("quarry.bash", r"(?<![\w-])(-[a-z][a-z0-9_]*)"),
    ("_quarry", r"'[*!]?(-[a-z][a-z0-9_]*)[\[:]"),
    ("quarry.fish", r"^__quarry_(?:option|repeated) .*?([a-z][a-z0-9_]*)(?= -[a-z] | -[rx] |$|\s\\$)"),
])
def test_completions_name_only_options_that_have_an_effect(completion, pattern):
    text = text_of("completions", completion)
    if completion == "quarry.fish":
        named = {"-" + name for name in re.findall(r"^__quarry_(?:option|repeated) (?:'[^']*'|\"[^\"]*\"|\S+) (\w+)",
                                                   text, re.M)}
    else:
        named = set(re.findall(pattern, text))
    wanted = options_of_program() - options_without_effect() - HIDDEN
    assert wanted <= named
    if completion != "quarry.bash":
        assert named - {"-exact"} <= options_of_program() - options_without_effect()


@pytest.mark.parametrize("completion, start, pattern", [
    ("quarry.bash", "_quarry_exact_options() {", r"(?<![\w-])(-[a-z][a-z0-9_]*)"),
    ("_quarry", "_quarry_exact_options() {", r"^ +(-[a-z][a-z0-9_]*) '\["),
    ("quarry.fish", "", r"^__quarry_exact(?:_repeated)? (?:'[^']*'|\"[^\"]*\"|\S+) (\w+)"),
])
def test_completions_name_the_options_of_the_exact_mode(completion, start, pattern):
    text = text_of("completions", completion)
    part = text[text.index(start):]
    named = {"-" + name.lstrip("-") for name in re.findall(pattern, part.split("\n}\n")[0] if start else part, re.M)}
    assert named - {"-exact"} == options_of_exact_mode("taken") - {"-exact", "-help"}


# Named only in the page: other names of an option, and what changes nothing that a copy shows.
HIDDEN = {"-help", "-outfile", "-append", "-l2", "-l3", "-pair_datetime", "-base10", "-base16", "-timeformat", "-v",
          "-verbose", "-signal"}


def messages():
    """What the program says: every literal that is logged or printed for the user, up to its first variable part."""
    frontend_and_disk = sources_of_frontend() + sources("src/disk/volume_detection.cpp")
    found = re.findall(r'"((?:err|info): [^"]*)"', sources("src/**/*.cpp"))
    found += re.findall(r'\.log\("([^"]*)"', sources("src/**/*.cpp"))
    found += re.findall(r'print_error\("([^"]*)"', frontend_and_disk)
    found += re.findall(r'(?:stream|m_stream) << "([^"]*)"', sources("src/disk/v*.cpp"))
    found += re.findall(r'say\("([^"]*)"', sources("src/disk/vmdk_check.cpp"))
    for text in found:
        start = re.split(r"%|\\n|\[ ?$", text)[0].strip()
        if start and start not in ("err:", "info:"):
            yield start


@pytest.mark.parametrize("message", sorted(set(messages())))
def test_the_page_explains(page, message):
    assert re.sub(r"\s+", " ", message) in page


def test_messages_are_found_in_the_sources():
    found = set(messages())
    assert {"err: find inode", "Need Admin privs to use this option", "invalid start time, ignoring",
            "couldn't find any partitions on disk", "suggested array:"} <= found
