#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Runs the commands of a page and compares what they print with what the page shows.

Usage: run_page.py [--bin DIRECTORY] [--source DIRECTORY] [--also REASON] PAGE...

A fenced block of the language `sh` is run. The block without a language after it shows everything that it prints; a
block of commands without one after it prints nothing. All blocks of a page are one script: it begins in a new home
directory, where ~/rdm is the tree of --source, with the programs of --bin in PATH, and ends at the first command that
fails. In what the page shows, `...` stands for any text of a line, and a line `...` for any lines. Of blocks in other
languages, nothing is looked at.

A block after the line `<!-- not run: REASON -->` is left out, and named with its reason, unless --also gives the same
reason.

Of each address 127.0.0.1:PORT in the commands, a free port takes the place, and is changed back in what they print.
"""

import argparse
import difflib
import os
import pathlib
import random
import re
import signal
import socket
import subprocess
import sys
import tempfile
from dataclasses import dataclass

TIME_LIMIT = 120  # seconds for a page
FENCE = re.compile(r"^```(?P<language>.*)$")
LEFT_OUT = re.compile(r"^<!-- not run: (?P<reason>.+) -->$")
ADDRESS = re.compile(r"(127\.0\.0\.1:)([1-9][0-9]*)")


class PageError(Exception):
    """What is wrong with a page, with its line."""


@dataclass
class Step:
    """A block of commands: the number of its first line, what it prints, and why it is not run."""

    line: int
    commands: str
    shown: str = ""
    reason: str = ""


def blocks(lines):
    """Yields the language, the number of the first line, the text, and the line before of each fenced block."""
    fence, before = None, ""
    for number, line in enumerate(lines, 1):
        mark = FENCE.match(line)
        if fence is None and mark:
            fence = (mark["language"], number + 1, before)
        elif fence is not None and line == "```":
            language, first, above = fence
            yield language, first, "".join(text + "\n" for text in lines[first - 1 : number - 1]), above
            fence = None
        before = line
    if fence is not None:
        raise PageError(f"{fence[1] - 1}: the block has no end")


def steps_of(page, also):
    """Returns the steps of a page; those that are not run for the reason `also` have none."""
    steps, takes_output = [], False
    for language, line, text, above in blocks(page.splitlines()):
        if language == "sh":
            left_out = LEFT_OUT.match(above)
            reason = left_out["reason"] if left_out and left_out["reason"] != also else ""
            steps.append(Step(line, text, reason=reason))
            takes_output = not reason
        elif language == "" and takes_output:
            steps[-1].shown, takes_output = text, False
        elif language == "" and not (steps and steps[-1].reason):
            raise PageError(f"{line}: no commands print this block")
        else:
            takes_output = False
    if not any(not step.reason for step in steps):
        raise PageError("1: the page has no commands")
    return steps


def is_free(port):
    with socket.socket() as probe:
        probe.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        try:
            probe.bind(("127.0.0.1", port))
        except OSError:
            return False
        return True


class Ports:
    """Free ports in place of those of a page. They have four digits like these, so that every size stays the same."""

    def __init__(self):
        self.of_page = {}

    def _another(self, port):
        if port not in self.of_page:
            free = (str(candidate) for candidate in random.sample(range(2000, 10000), 8000) if is_free(candidate))
            self.of_page[port] = next(port for port in free if port not in self.of_page.values())
        return self.of_page[port]

    def fill_in(self, text):
        return ADDRESS.sub(lambda found: found[1] + self._another(found[2]), text)

    def change_back(self, text):
        of_test = {other: port for port, other in self.of_page.items()}
        return ADDRESS.sub(lambda found: found[1] + of_test.get(found[2], found[2]), text)


def pattern_of(shown):
    """Returns the regular expression of what a page shows."""
    lines = ("(?:.*\n)*" if line == "..." else re.escape(line).replace(re.escape("..."), ".*") + "\n"
             for line in shown.splitlines())
    return re.compile("".join(lines))


def script_of(steps, ports, outputs):
    """Returns a script that writes what each step prints to a file named after its line."""
    return "".join(f"exec >'{outputs}/{step.line}' 2>&1\n{ports.fill_in(step.commands)}" for step in steps)


def environment(home, programs):
    kept = {name: value for name, value in os.environ.items() if name.endswith("SAN_OPTIONS")}
    return kept | {
        "HOME": str(home),
        "LANG": "C.UTF-8",
        "PATH": f"{programs}:/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin",
        "TMPDIR": os.environ.get("TMPDIR", "/tmp"),
    }


def run_script(script, home, programs):
    """Runs a script with all that it starts, until it ends. Returns its exit status."""
    command = ["sh", "-e", str(script)]
    with subprocess.Popen(command, cwd=home, env=environment(home, programs), stdin=subprocess.DEVNULL,
                          start_new_session=True) as shell:
        try:
            return shell.wait(TIME_LIMIT)
        except subprocess.TimeoutExpired:
            return "no end"
        finally:
            stop_group(shell.pid)


def stop_group(group):
    """Ends what a script has left running, such as a server when a command after its start failed."""
    try:
        os.killpg(group, signal.SIGKILL)
    except ProcessLookupError:
        pass


def compare(step, printed):
    if pattern_of(step.shown).fullmatch(printed):
        return
    lines = difflib.unified_diff(step.shown.splitlines(), printed.splitlines(), "shown", "printed", lineterm="")
    raise PageError("\n".join([f"{step.line}: the commands print something else than the page shows", *lines]))


def check_outputs(steps, outputs, ports, status):
    """Compares what the steps printed that were run; the last of them failed if the status is not 0."""
    for step, following in zip(steps, steps[1:] + [None]):
        printed = ports.change_back((outputs / str(step.line)).read_text("utf-8", "replace"))
        if status != 0 and (following is None or not (outputs / str(following.line)).exists()):
            raise PageError(f"{step.line}: a command of this block failed ({status}) after the output\n{printed}")
        compare(step, printed)


def run_page(page, programs, source, also):
    steps = steps_of(page.read_text("utf-8"), also)
    for step in steps:
        if step.reason:
            print(f"{page}:{step.line}: not run: {step.reason}")
    steps = [step for step in steps if not step.reason]
    ports = Ports()
    with tempfile.TemporaryDirectory() as directory:
        home, outputs = pathlib.Path(directory, "home"), pathlib.Path(directory, "outputs")
        home.mkdir()
        (home / "rdm").symlink_to(source)
        outputs.mkdir()
        script = pathlib.Path(directory, "script")
        script.write_text(script_of(steps, ports, outputs), "utf-8")
        check_outputs(steps, outputs, ports, run_script(script, home, programs))
    print(f"{page}: {len(steps)} blocks of commands print what the page shows")


def main():
    parser = argparse.ArgumentParser(description="Runs the commands of pages and compares what they print.")
    parser.add_argument("--bin", default="/usr/bin", help="the directory of the programs")
    parser.add_argument("--source", default=pathlib.Path(__file__).parents[2], help="the directory of the sources")
    parser.add_argument("--also", metavar="REASON", help="run the blocks that are not run for this reason")
    parser.add_argument("pages", nargs="+", type=pathlib.Path, metavar="PAGE")
    arguments = parser.parse_args()
    # Tests of one build also run on the programs of another one.
    tested = os.environ.get("RDM_TESTED_BUILD")
    programs = pathlib.Path(tested, "bin") if tested else pathlib.Path(arguments.bin)
    for page in arguments.pages:
        try:
            run_page(page, programs.resolve(), pathlib.Path(arguments.source).resolve(), arguments.also)
        except PageError as error:
            sys.exit(f"{page}:{error}")


if __name__ == "__main__":
    main()
