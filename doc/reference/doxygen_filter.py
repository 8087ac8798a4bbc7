#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Usage: doxygen_filter.py FILE

Prints a public header with its comments in the forms of Doxygen: groups have their names, a comment about several
declarations is repeated for each, and one behind a field belongs to that field.
"""

import re
import sys

import headers


def escape(text):
    """Escapes the characters with a meaning to Doxygen, except between backquotes."""
    parts = re.split(r"(`[^`]*`)", text)
    return "".join(part if part.startswith("`") else re.sub(r"([\\@<>#%&])", r"\\\1", part) for part in parts)


def comment(lines):
    return [f"/// {escape(line)}".rstrip() for line in lines]


def field_comment(line):
    """Returns a line with a comment behind a declaration as one about that declaration."""
    return re.sub(r"^(\s*[^\s/].*?) /\* (.*) \*/$", lambda match: f"{match[1]} /**< {escape(match[2])} */", line)


def item_lines(item):
    """Returns the lines of an item, with its comment before each declaration."""
    if item.types or item.code[0].startswith(("#", "enum", "typedef")):
        return comment(item.comment) + [field_comment(line) for line in item.code] + [""]
    return [line for each in headers.statements(item.code) for line in [*comment(item.comment), each + ";", ""]]


def group_lines(group):
    lines = [line for item in group.items for line in item_lines(item)]
    if not group.title:
        return lines
    text = [escape(line) for line in group.text]
    return [f"/** @name {escape(group.title)}", *text, "*/", "/** @{ */", "", *lines, "/** @} */", ""]


def main():
    header = headers.read(sys.argv[1], sys.argv[1])
    lines = ["/** @file", *(escape(line) for line in header.opening), "*/", ""]
    for group in header.groups:
        lines += group_lines(group)
    print("\n".join(lines))


if __name__ == "__main__":
    main()
