# SPDX-License-Identifier: MIT
"""Reads the public headers into records: what their comments and declarations say, in their order.

A header begins with a comment about the whole. After QX_BEGIN, comments of the form "---- Title ----" begin groups. A
declaration follows its comment, which begins each line with three slashes, and ends at an empty line.
"""

import re
from dataclasses import dataclass, field

FUNCTION = re.compile(r"(?P<type>[\w ]+?[ *]+)(?P<name>\w+)\((?P<parameters>.*)\)$")
VARIABLE = re.compile(r"extern (?P<type>[\w ]+?)(?P<names>[ *]+\w+(?:\[\d+\])?(?:, \*?\w+)*)$")
MACRO = re.compile(r"#define (?P<name>\w+)\((?P<parameters>[^)]*)\)")
TYPE = re.compile(r"typedef (?:struct|enum) (\w+)|typedef .*\(\*(\w+)\)|typedef .* \*?(\w+);")


@dataclass
class Function:
    """A function, or a macro that is called like one: then the type is empty."""

    type: str
    name: str
    parameters: list


@dataclass
class Variable:
    type: str
    name: str


@dataclass
class Item:
    """A comment with the declarations below it. The code is kept for types; functions and variables are taken apart."""

    comment: list
    code: list
    functions: list = field(default_factory=list)
    variables: list = field(default_factory=list)
    types: list = field(default_factory=list)


@dataclass
class Group:
    title: str
    text: list
    items: list = field(default_factory=list)

    def names(self):
        """Returns the names of functions and variables."""
        return [each.name for item in self.items for each in item.functions + item.variables]

    def types(self):
        return [name for item in self.items for name in item.types]


@dataclass
class Header:
    """A header. The first group has no title: it is what comes before the others."""

    path: str
    opening: list
    groups: list


def split_parameters(text):
    """Splits a list at the commas that are outside of parentheses."""
    parts, depth = [""], 0
    for character in text:
        depth += (character == "(") - (character == ")")
        if character == "," and depth == 0:
            parts.append("")
        else:
            parts[-1] += character
    return [part.strip() for part in parts]


def statements(code):
    """Joins the lines of each declaration, without the attributes that only compilers need."""
    text = re.sub(r" QX_NOEXCEPT| QX_PRINTF\(\d+, \d+\)", "", " ".join(line.strip() for line in code))
    return [part.strip() for part in text.split(";") if part.strip()]


def take_variable(item, match):
    """Adds the variables of a declaration, which may name several."""
    for name in match["names"].split(","):
        stars = re.sub(r"[^*]", "", name)
        variable_type = f"extern {match['type'].strip()} {stars}".strip()
        item.variables.append(Variable(variable_type, re.search(r"\w+", name)[0]))


def take_declarations(item):
    """Fills the lists of an item from its code."""
    text = "\n".join(item.code)
    if macro := MACRO.match(text):
        item.functions.append(Function("", macro["name"], split_parameters(macro["parameters"])))
    item.types = [next(filter(None, names)) for names in TYPE.findall(text)]
    if text.startswith(("typedef", "#", "enum")):
        return item
    for statement in statements(item.code):
        if match := VARIABLE.match(statement):
            take_variable(item, match)
        elif match := FUNCTION.match(statement):
            parameters = split_parameters(match["parameters"])
            item.functions.append(Function(match["type"].strip(), match["name"], parameters))
        else:
            raise ValueError(f"not understood: {statement}")
    return item


def comment_text(lines):
    """Returns the text of a comment between a slash and a star as lines."""
    return [re.sub(r"^ ?/?\*+/? ?|\s*\*/$", "", line) for line in lines]


def take_group(line, rest):
    """Returns the group that a line begins, and removes the lines of its comment from the rest."""
    lines = [line]
    while not lines[-1].endswith("*/"):
        lines.append(rest.pop(0))
    words = " ".join(comment_text(lines)).strip(" /").removeprefix("---- ")
    head, _, text = (words + " ").partition(" ----")
    title, _, more = head.partition(". ")
    return Group(title.strip(), [each.strip(" -") for each in (more, text) if each.strip(" -")])


def take_item(line, rest):
    """Returns the item that a line begins, and removes its lines from the rest."""
    lines = [line]
    while rest and rest[0].strip() and rest[0] != "QX_END":
        lines.append(rest.pop(0))
    comment = [re.sub(r"^/// ?", "", each) for each in lines if each.startswith("///")]
    return take_declarations(Item(comment, [each for each in lines if not each.startswith("///")]))


def opening_of(lines):
    """Returns the comment about the whole header."""
    start = lines.index("/*")
    return comment_text(lines[start + 1 : lines.index(" */", start)])


def read(file, path):
    """Reads a header, which programs include by the path."""
    with open(file, encoding="ascii") as source:
        lines = source.read().split("\n")
    header = Header(path, opening_of(lines), [Group("", [])])
    rest = lines[lines.index("QX_BEGIN") + 1 : lines.index("QX_END")]
    while rest:
        line = rest.pop(0)
        if line.startswith("/* ----"):
            header.groups.append(take_group(line, rest))
        elif line.strip():
            header.groups[-1].items.append(take_item(line, rest))
    return header
