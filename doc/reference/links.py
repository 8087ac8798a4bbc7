#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Usage: links.py FILE...

Checks the relative links of documents in Markdown and HTML: the file exists, and has the anchor. In HTML, nothing may
be loaded from elsewhere. Prints each fault as FILE: text, and ends with status 1 if there is one.
"""

import functools
import html.parser
import os
import re
import sys
import urllib.parse

LINK = re.compile(r"!?\[(?:[^\[\]]|\[[^\]]*\])*\]\(\s*<?([^)\s>]+)>?[^)]*\)")


def slug(heading):
    """Returns the anchor of a heading, as viewers of Markdown and the site make it."""
    text = re.sub(r"\[([^\]]*)\]\([^)]*\)", r"\1", heading.replace("`", ""))
    return re.sub(r"[^\w\- ]", "", text.strip().lower()).replace(" ", "-")


def without_code(text):
    """Returns a document without its blocks and spans of code, with the lines of blocks left empty."""
    text = re.sub(r"^(```|~~~).*?^\1", "", text, flags=re.MULTILINE | re.DOTALL)
    return re.sub(r"(`+)(?!`).*?(?<!`)\1(?!`)", "", text)


def markdown(text):
    """Returns the links and anchors of a document."""
    headings = re.findall(r"^#+ +(.*?) *#*$", re.sub(r"^```.*?^```", "", text, flags=re.M | re.S), flags=re.MULTILINE)
    anchors = []
    for heading in map(slug, headings):
        anchors.append(heading if heading not in anchors else f"{heading}-{anchors.count(heading)}")
    return LINK.findall(without_code(text)), set(anchors), []


class Page(html.parser.HTMLParser):
    """Collects the links, the anchors and what a page loads."""

    def __init__(self, text):
        super().__init__()
        self.links, self.anchors, self.loads = [], set(), []
        self.feed(text)

    def handle_starttag(self, tag, attributes):
        values = dict(attributes)
        self.anchors.update(values[name] for name in ("id", "name") if values.get(name))
        if tag in ("a", "area") and values.get("href"):
            self.links.append(values["href"])
        loaded = values.get("src") or (values.get("href") if tag == "link" else None)
        if loaded:
            self.loads.append(loaded)


@functools.cache
def parts_of(file):
    """Returns the links, the anchors and the loaded files of a document."""
    with open(file, encoding="utf-8") as source:
        text = source.read()
    if file.endswith(".md"):
        return markdown(text)
    page = Page(text)
    return page.links + page.loads, page.anchors, page.loads


def fault_of(file, link):
    """Returns what is wrong with a link, or None."""
    if re.match(r"[a-z]+:", link) or link.startswith("//"):
        return None
    path, _, anchor = urllib.parse.unquote(link).partition("#")
    target = os.path.normpath(os.path.join(os.path.dirname(file), path.partition("?")[0])) if path else file
    if not os.path.exists(target):
        return f"{link} does not exist"
    if anchor and target.endswith((".md", ".html")) and anchor not in parts_of(target)[1]:
        return f"{link}: there is no such heading"
    return None


def faults_of(file):
    links, _, loads = parts_of(file)
    faults = [fault for fault in (fault_of(file, link) for link in links) if fault]
    return faults + [f"{each} is loaded from elsewhere" for each in loads if re.match(r"(https?:)?//", each)]


def main():
    faults = [f"{file}: {fault}" for file in sys.argv[1:] for fault in faults_of(file)]
    print("\n".join(faults), end="\n" if faults else "")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
