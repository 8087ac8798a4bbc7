#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Usage: manual.py --date "MONTH D, YYYY" --to DIRECTORY LIBRARY:PATH:FILE...

Makes the manual pages of section 3 from public headers: one for each header, one for each group of it, and for every
function and variable a symbolic link to the page that describes it. PATH is how programs include the FILE.
"""

import argparse
import os
import re
from dataclasses import dataclass

import headers

WIDTH = 78


@dataclass
class Page:
    """What one page is about: a group of a header. The group without a title stands for the header."""

    library: str
    header: headers.Header
    group: headers.Group

    @property
    def name(self):
        return self.names()[0]

    @property
    def title(self):
        """Returns the subject in one line."""
        if self.group.title:
            return lower_first(self.group.title)
        return lower_first(re.split(r"[.:](?: |$)", " ".join(paragraphs(self.header.opening)[0]))[0])

    def names(self):
        """Returns all names under which the page is found, its own first: that of the header, or of the type that its
        functions are about, or of the first function."""
        names = self.group.names()
        types = [each for each in self.group.types() if any(name.startswith(each + "_") for name in names)]
        return ([] if self.group.title else [header_page(self.header)]) + types + names


def header_page(header):
    """Returns the name of the page of a header: rdm-soif for libcs/soif.h."""
    directory, stem = header.path.removesuffix(".h").split("/")
    return "rdm-" + (directory if stem == "rdm" else stem)


def lower_first(text):
    return text if text[1:2].isupper() else text[:1].lower() + text[1:]


def paragraphs(lines):
    """Splits lines at the empty ones."""
    parts = [[]]
    for line in lines:
        if line.strip():
            parts[-1].append(line)
        elif parts[-1]:
            parts.append([])
    return [part for part in parts if part]


def escape(text):
    """Escapes text for roff."""
    text = text.replace("\\", "\\e")
    return "\\&" + text if text.startswith((".", "'")) else text


def quoted(text):
    """Returns an argument of a macro."""
    return '"' + escape(text).replace('"', '\\(dq') + '"'


class Writer:
    """Writes running text in mdoc: a macro for each name that has one, a new line for each sentence."""

    def __init__(self, page, places):
        self.page, self.places = page, places
        self.parameters = {re.split(r"[ *]+", each)[-1].removesuffix("[]")
                           for item in page.group.items for one in item.functions for each in one.parameters}
        self.lines, self.references = [], set()

    def macro(self, word):
        """Returns the macro for a word without its punctuation, or None."""
        if word.startswith("`"):
            name = word.strip("`")
            return f"Fa {name}" if name in self.parameters else f"Ql {escape(name)}"
        if word.endswith("()"):
            return f"Fn {word[:-2]}"
        if reference := re.match(r"([\w.-]+)\((\d)\)$", word):
            return f"Xr {reference[1]} {reference[2]}"
        if self.places.get(word) == self.page.name:
            return f"Fn {word}" if word in self.functions() else f"Va {word}"
        if word in self.places and "_" in word:
            self.references.add(word)
            return f"Xr {word} 3"
        return None

    def functions(self):
        return {one.name for item in self.page.group.items for one in item.functions}

    def words(self, text):
        """Writes a paragraph."""
        line, starts = "", True
        for word in re.findall(r"\(?`[^`]*`[^\s]*|\S+", text):
            opening, core, closing = re.match(r"^([(\"]?)(.*?(?:\(\d?\))?)([).,:;\"]*)$", word).groups()
            macro = self.macro(core) if '"' not in opening + closing else None
            if macro:
                line = self.flush(line)
                name, _, argument = macro.partition(" ")
                self.lines.append(" ".join(filter(None, ["." + name, opening, argument, *closing])))
            elif line and len(line) + 1 + len(word) > WIDTH:
                line = self.flush(line) or escape(word)
            else:
                line = f"{line} {word.replace(chr(92), chr(92) + 'e')}" if line else escape(word)
            if not macro and re.search(r"[.?!][)\"]*$", word):
                line = self.flush(line)
        self.flush(line)

    def flush(self, line):
        if line:
            self.lines.append(line)
        return ""

    def literal(self, lines):
        self.lines += [".Bd -literal -offset indent", *(escape(line) for line in lines), ".Ed"]

    def paragraph(self, lines):
        """Writes a paragraph of a comment: text, a list, or an example if all of it is indented."""
        if all(line.startswith("    ") for line in lines):
            return self.literal([line[4:] for line in lines])
        text, items = [], []
        for line in lines:
            if line.lstrip().startswith("- "):
                items.append([line.strip()[2:]])
            elif items and line.startswith("    "):
                items[-1].append(line.strip())
            elif items:
                self.list(" ".join(text), items)
                text, items = [line], []
            else:
                text.append(line)
        return self.list(" ".join(text), items)

    def list(self, text, items):
        self.words(text)
        if items:
            self.lines.append(".Bl -dash -compact")
            for item in items:
                self.lines.append(".It")
                self.words(" ".join(item))
            self.lines.append(".El")

    def comment(self, lines):
        for part in paragraphs(lines):
            self.lines.append(".Pp")
            self.paragraph(part)


def prototype(function):
    """Returns the macros of one function in a synopsis."""
    lines = [f".Ft {quoted(function.type)}"] if function.type else []
    lines.append(f".Fo {function.name}")
    lines += [f".Fa {quoted(each)}" for each in function.parameters if each]
    return lines + [".Fc"]


def synopsis(page):
    lines = [".Sh SYNOPSIS", f".In {page.header.path}"]
    for item in page.group.items:
        for variable in item.variables:
            lines += [f".Vt {quoted(variable.type)}", f".Va {variable.name} ;", ".Pp"]
        for function in item.functions:
            lines += prototype(function)
    return lines[:-1] if lines[-1] == ".Pp" else lines


def name_section(page):
    names = page.names()
    return [".Sh NAME", *(f".Nm {name} ," for name in names[:-1]), f".Nm {names[-1]}", f".Nd {escape(page.title)}"]


def library_section(page):
    return [".Sh LIBRARY", f"{page.library} (\\-l{page.library.removeprefix('lib')}, pkg-config {page.library})"]


def describe(page, writer):
    """Writes the description: the header's own comment, that of the group, and each item."""
    writer.comment(page.header.opening)
    writer.comment(page.group.text)
    for item in page.group.items:
        writer.comment(item.comment)
        if not item.functions and not item.variables:
            writer.lines.append(".Pp")
            writer.literal(item.code)
    lines = [line for at, line in enumerate(writer.lines) if line != ".Pp" or not is_idle(writer.lines, at)]
    return [".Sh DESCRIPTION", *lines]


def is_idle(lines, at):
    """Returns true if a paragraph macro has no effect: at the start, and beside a display."""
    return at == 0 or at + 1 == len(lines) or lines[at + 1].startswith((".Bd", ".Pp"))


def see_also(page, pages, references):
    """Returns the references: to pages that the text names, the other pages of the header, and the overview."""
    family = [each for each in pages if each.header is page.header]
    related = {each.name for each in family if not page.group.title or not each.group.title}
    names = sorted((references | related) - {page.name})
    return [".Sh SEE ALSO", *(f".Xr {name} 3 ," for name in names), ".Xr rdm 7"]


def text_of(page, pages, places, date):
    writer = Writer(page, places)
    description = describe(page, writer)
    lines = [f".Dd {date}", f".Dt {page.name.upper()} 3", ".Os", *name_section(page), *library_section(page),
             *synopsis(page), *description, *see_also(page, pages, writer.references)]
    return "\n".join(lines) + "\n"


def pages_of(inputs):
    """Returns the pages of all headers. A function without a comment is an error."""
    pages = []
    for library, path, file in inputs:
        header = headers.read(file, path)
        for group in header.groups:
            for item in group.items:
                if item.functions and not item.comment:
                    raise SystemExit(f"{file}: {item.functions[0].name} has no comment")
            pages.append(Page(library, header, group))
    return pages


def write(pages, directory, date):
    os.makedirs(directory, exist_ok=True)
    for old in os.listdir(directory):
        os.unlink(os.path.join(directory, old))
    places = {name: page.name for page in pages for name in page.names()}
    for page in pages:
        with open(os.path.join(directory, page.name + ".3"), "w", encoding="ascii") as output:
            output.write(text_of(page, pages, places, date))
        for name in page.names()[1:]:
            os.symlink(page.name + ".3", os.path.join(directory, name + ".3"))


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("--date", required=True)
    parser.add_argument("--to", required=True)
    parser.add_argument("inputs", nargs="+")
    options = parser.parse_args()
    write(pages_of(each.split(":") for each in options.inputs), options.to, options.date)


if __name__ == "__main__":
    main()
