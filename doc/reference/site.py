#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Usage: site.py --source DIRECTORY --manual DIRECTORY --to DIRECTORY --version VERSION LIBRARY:PATH:FILE...

Makes the documents as HTML: those of the source directory, the manual pages (--manual has those of section 3), and the
reference of the headers. Runs mandoc, doxygen and mkdocs; a warning of the last two, and a link that leads nowhere, is
an error. The headers are named as for manual.py.
"""

import argparse
import calendar
import glob
import html
import json
import os
import re
import shutil
import subprocess
import sys
import time

import headers
import links

SECTIONS = {"1": "Programs", "5": "Files and messages", "7": "Overview and guides", "8": "Administration",
            "3": "Functions"}


def read(path):
    with open(path, encoding="utf-8") as source:
        return source.read()


def write(path, text):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "w", encoding="utf-8") as output:
        output.write(text)


def title_of(path):
    """Returns the first heading of a document."""
    return re.search(r"^# +(.*)$", read(path), flags=re.MULTILINE)[1].replace("`", "")


class Site:
    """The pages are collected in a directory, in the places that they have in the source tree, so that the links
    between them hold; mkdocs makes the site of them."""

    def __init__(self, options):
        self.source, self.manual, self.to = options.source, options.manual, options.to
        self.version, self.inputs = options.version, [each.split(":") for each in options.inputs]
        self.work = self.to + ".work"
        self.pages = os.path.join(self.work, "pages")
        files = glob.glob(os.path.join(self.source, "doc/man/*.[1-8]")) + glob.glob(os.path.join(self.manual, "*.3"))
        self.manual_files = {os.path.basename(file): file for file in sorted(files)}

    def page_of(self, name):
        """Returns the manual page that a name such as soif.5 leads to, or None."""
        file = self.manual_files.get(name)
        return os.path.basename(os.path.realpath(file)) if file else None

    def documents(self):
        """Copies the documents, and the files that they link to. Returns their names."""
        names = [name for pattern in ("*.md", "doc/*.md", "doc/*/*.md", "bench/*.md", "examples/*.md")
                 for name in sorted(glob.glob(pattern, root_dir=self.source))]
        for name in names:
            for link in links.parts_of(os.path.join(self.source, name))[0]:
                self.copy(os.path.normpath(os.path.join(os.path.dirname(name), link.partition("#")[0])))
            self.copy(name)
        for name in names:
            path = os.path.join(self.pages, name)
            write(path, self.with_references(read(path), os.path.relpath("man", os.path.dirname(name) or ".")))
        return names

    def with_references(self, text, directory):
        """Makes links of the names of manual pages, such as soif(5), outside of code and other links."""
        def link(match):
            page = self.page_of(f"{match[1]}.{match[2]}")
            return f"[{match[0]}]({directory}/{page}.md)" if page else match[0]

        parts = re.split(r"(^```.*?^```|`[^`]*`|\[[^\]]*\]\([^)]*\)|^#.*?$)", text, flags=re.MULTILINE | re.DOTALL)
        return "".join(part if at % 2 else re.sub(r"\b([\w.-]+)\((\d)\)", link, part) for at, part in enumerate(parts))

    def copy(self, name):
        """Copies a file of the source tree; links to directories and elsewhere need none."""
        source, target = os.path.join(self.source, name), os.path.join(self.pages, name)
        if os.path.isfile(source) and not os.path.exists(target):
            os.makedirs(os.path.dirname(target), exist_ok=True)
            shutil.copyfile(source, target)

    def manual_pages(self):
        """Converts the manual pages. Returns their names by section."""
        sections = {section: [] for section in SECTIONS}
        for name, file in self.manual_files.items():
            if not os.path.islink(file):
                sections[name[-1]].append(name)
                write(os.path.join(self.pages, "man", name + ".md"), self.manual_page(name, file))
        return sections

    def manual_page(self, name, file):
        """Returns a manual page as the HTML of a document. Functions lead to the page that describes them; references
        to pages of the system become plain text."""
        stem, section = name.rsplit(".", 1)
        body = subprocess.run(["mandoc", "-T", "html", "-O", "fragment,man=%N.%S", file], check=True,
                              stdout=subprocess.PIPE, encoding="utf-8").stdout

        def reference(match):
            page = self.page_of(html.unescape(match[1]))
            return '<a class="Xr"' + (f' href="{page}.html"' if page else "")

        body = re.sub(r'<a class="Xr" href="([^"]*)"', reference, body)
        body = re.sub(r"(</?h)([12])", lambda match: match[1] + str(int(match[2]) + 1), body)
        return f"# {stem}({section})\n\n<div class=\"man\">\n{body}\n</div>\n"

    def reference(self):
        """Runs doxygen."""
        bases = {file.removesuffix(path).rstrip("/") for _, path, file in self.inputs}
        environment = {
            "RDM_VERSION": self.version,
            "RDM_HEADERS": " ".join(file for _, _, file in self.inputs),
            "RDM_STRIP": " ".join(sorted(bases, key=len, reverse=True)),
            "RDM_OUTPUT": self.pages,
            "RDM_PYTHON": sys.executable,
            "RDM_FILTER": os.path.join(os.path.dirname(os.path.abspath(__file__)), "doxygen_filter.py"),
        }
        doxyfile = os.path.join(self.source, "doc/reference/Doxyfile")
        subprocess.run(["doxygen", doxyfile], check=True, env={**os.environ, **environment})

    def library_page(self):
        """Writes the page that leads to the reference of each header."""
        rows = []
        for library, path, file in self.inputs:
            opening = " ".join(headers.read(file, path).opening)
            subject = re.split(r"[.:](?: |$)", opening)[0]
            name = os.path.basename(path).replace(".", "_8") + ".html"
            rows.append(f"| `{library}` | [`<{path}>`](reference/{name}) | {subject} |")
        write(os.path.join(self.pages, "libraries.md"), "\n".join([
            "# Headers of the libraries", "", "| library | header | contents |", "|---|---|---|", *rows, "",
            "[All names](reference/globals.html), [all records](reference/annotated.html).", ""]))

    def navigation(self, names, sections):
        """Returns the table of contents."""
        def entries(*patterns):
            found = [name for pattern in patterns for name in names if re.fullmatch(pattern, name)]
            return [{title_of(os.path.join(self.source, name)): name} for name in found]

        manual = [{SECTIONS[section]: [{name[:-2] + f"({section})": f"man/{name}.md"} for name in pages]}
                  for section, pages in sections.items()]
        contents = {
            "Start": entries(r"README\.md", r"doc/tutorial\.md", r"examples/README\.md"),
            "Guides": entries(r"doc/guides/.*\.md"),
            "Running": entries(r"doc/operations\.md", r"doc/security\.md", r"SECURITY\.md", r"CHANGELOG\.md"),
            "Formats": entries(r"doc/formats/.*\.md"),
            "Manual": manual,
            "Libraries": [{"Headers": "libraries.md"}],
            "Design": entries(r"doc/architecture\.md", r"doc/measurements\.md", r"bench/.*\.md",
                              r"CONTRIBUTING\.md"),
            "Decisions": entries(r"doc/decisions/README\.md", r"doc/decisions/\d.*\.md"),
        }
        return [{title: pages} for title, pages in contents.items() if pages]

    def build(self, names, sections):
        """Runs mkdocs, which is quiet unless it fails. Its configuration is JSON, which is YAML."""
        shutil.copyfile(os.path.join(self.source, "doc/reference/site.css"), os.path.join(self.pages, "site.css"))
        configuration = {
            "site_name": "Resource-description server", "site_url": "", "docs_dir": self.pages, "site_dir": self.to,
            "use_directory_urls": False, "extra_css": ["site.css"], "plugins": ["search"],
            "theme": {"name": "material", "font": False},
            "markdown_extensions": ["tables", "fenced_code", "sane_lists"],
            "extra": {"generator": False}, "nav": self.navigation(names, sections),
        }
        write(os.path.join(self.work, "mkdocs.yml"), json.dumps(configuration, indent=1))
        run = subprocess.run(["mkdocs", "build", "--strict", "--clean", "--config-file",
                              os.path.join(self.work, "mkdocs.yml")], stderr=subprocess.PIPE, encoding="utf-8")
        if run.returncode != 0:
            raise SystemExit(run.stderr)
        self.remove_needless()

    def remove_needless(self):
        """Removes pages for servers of a site with an address of its own, and what the theme has for its developers and
        for the search in other languages."""
        for pattern in ("404.html", "sitemap.xml*", "assets/**/*.map"):
            for file in glob.glob(os.path.join(self.to, pattern), recursive=True):
                os.unlink(file)
        shutil.rmtree(os.path.join(self.to, "assets/javascripts/lunr"))

    def check(self):
        files = [file for file in glob.glob(os.path.join(self.to, "**/*.html"), recursive=True)]
        faults = [f"{os.path.relpath(file, self.to)}: {fault}" for file in files for fault in links.faults_of(file)]
        if faults:
            raise SystemExit("\n".join(faults))

    def make(self):
        shutil.rmtree(self.work, ignore_errors=True)
        os.environ.setdefault("SOURCE_DATE_EPOCH", str(self.date()))
        names, sections = self.documents(), self.manual_pages()
        self.reference()
        self.library_page()
        self.build(names, sections)
        self.check()

    def date(self):
        """Returns the date of the manual in seconds since 1970, so that two builds are equal."""
        text = re.search(r"^\.Dd (.*)$", read(os.path.join(self.source, "doc/man/rdm.7")), flags=re.MULTILINE)[1]
        return calendar.timegm(time.strptime(text, "%B %d, %Y"))


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    for option in ("--source", "--manual", "--to", "--version"):
        parser.add_argument(option, required=True)
    parser.add_argument("inputs", nargs="+")
    Site(parser.parse_args()).make()


if __name__ == "__main__":
    main()
