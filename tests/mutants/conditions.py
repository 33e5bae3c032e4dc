"""The single conditions of C++ sources: what if, while, for and ?: ask, and the operands of && and ||.

A condition that is made of && and || counts by its operands. Left out is what the compiler decides, such as "if
constexpr" and whatever is in a constexpr function, and what a macro is part of.
"""

import json
import pathlib
import re
import shlex

from clang import cindex
from clang.cindex import CursorKind

FUNCTIONS = {CursorKind.FUNCTION_DECL, CursorKind.CXX_METHOD, CursorKind.CONSTRUCTOR, CursorKind.DESTRUCTOR,
             CursorKind.CONVERSION_FUNCTION, CursorKind.FUNCTION_TEMPLATE}
# Per statement: what the text before and after its condition ends and begins with.
SURROUNDINGS = {CursorKind.IF_STMT: (r"[(;]\s*$", r"\s*\)"), CursorKind.WHILE_STMT: (r"\(\s*$", r"\s*\)"),
                CursorKind.DO_STMT: (r"while\s*\(\s*$", r"\s*\)"), CursorKind.FOR_STMT: (r";\s*$", r"\s*;"),
                CursorKind.CONDITIONAL_OPERATOR: (r"", r"\s*\?")}
TAKEN_FLAGS = ("-I", "-D", "-std", "-isystem")


def flags_of(build):
    """The flags of each file of a build that libclang needs."""
    flags = {}
    for entry in json.loads((build / "compile_commands.json").read_text()):
        words = shlex.split(entry["command"])
        taken = [word for word in words if word.startswith(TAKEN_FLAGS)]
        taken += [f"-isystem{after}" for word, after in zip(words, words[1:]) if word == "-isystem"]
        flags[pathlib.Path(entry["file"])] = [word for word in taken if word != "-isystem"]
    return flags


class finder:
    def __init__(self, path, flags):
        self.path = str(path)
        self.text = path.read_bytes()
        self.unit = cindex.Index.create().parse(self.path, flags)
        errors = [each.spelling for each in self.unit.diagnostics if each.severity >= cindex.Diagnostic.Error]
        if errors:
            raise SystemExit(f"{path}: {errors[0]}")
        self.found = {}

    def is_here(self, cursor):
        return cursor.location.file is not None and cursor.location.file.name == self.path

    def span(self, cursor):
        return cursor.extent.start.offset, cursor.extent.end.offset

    def after(self, offset):
        return self.text[offset:offset + 80].decode("utf-8", "replace")

    def before(self, offset):
        return self.text[max(0, offset - 80):offset].decode("utf-8", "replace")

    def add(self, cursor):
        """A condition, or its operands."""
        children = list(cursor.get_children())
        if cursor.kind in (CursorKind.PAREN_EXPR, CursorKind.UNEXPOSED_EXPR) and len(children) == 1:
            begin, end = self.span(cursor)
            inner = self.span(children[0])
            if cursor.kind == CursorKind.PAREN_EXPR or inner == (begin, end):
                return self.add(children[0])
        if self.is_logical(cursor):
            return None  # its operands are found on the walk
        begin, end = self.span(cursor)
        text = self.text[begin:end].decode("utf-8", "replace")
        is_whole = text.count("(") == text.count(")") and text.count("{") == text.count("}")
        if begin < end and is_whole and not re.search(r"\b(EXPECT|ASSERT|S_IS|assert)\w*\b", text):
            self.found[begin, end] = text
        return None

    def is_logical(self, cursor):
        children = list(cursor.get_children())
        if cursor.kind != CursorKind.BINARY_OPERATOR or len(children) != 2:
            return False
        between = self.text[children[0].extent.end.offset:children[1].extent.start.offset]
        return between.strip() in (b"&&", b"||")

    def add_condition_of(self, cursor):
        before, after = SURROUNDINGS[cursor.kind]
        children = list(cursor.get_children())
        if cursor.kind == CursorKind.CONDITIONAL_OPERATOR:
            children = children[:1]
        for child in children:
            begin, end = self.span(child)
            if (child.kind.is_expression() and re.match(after, self.after(end)) and
                    re.search(before, self.before(begin))):
                self.add(child)
                return

    def is_decided_by_compiler(self, cursor):
        head = self.text[cursor.extent.start.offset:cursor.extent.end.offset].split(b"{", 1)[0]
        return b"constexpr" in head or b"consteval" in head

    def walk(self, cursor, in_function):
        for child in cursor.get_children():
            if cursor.kind == CursorKind.TRANSLATION_UNIT and not self.is_here(child):
                continue
            if child.kind in FUNCTIONS:
                if not self.is_decided_by_compiler(child):
                    self.walk(child, True)
                continue
            if child.kind == CursorKind.STATIC_ASSERT:
                continue
            if in_function:
                is_constant = child.kind == CursorKind.IF_STMT and re.match(
                    r"if\s+constexpr", self.after(child.extent.start.offset))
                if child.kind in SURROUNDINGS and not is_constant:
                    self.add_condition_of(child)
                if self.is_logical(child):
                    for operand in child.get_children():
                        self.add(operand)
                if child.kind == CursorKind.DECL_STMT and self.is_decided_by_compiler(child):
                    continue
            self.walk(child, in_function)


def conditions_of(path, flags):
    """The conditions of a file: where each begins and ends, in bytes, and its text."""
    search = finder(path, flags)
    search.walk(search.unit.cursor, False)
    return sorted((begin, end, text) for (begin, end), text in search.found.items())
