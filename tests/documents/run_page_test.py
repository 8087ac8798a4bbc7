#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The runner of pages finds each way in which a page can be wrong, and names its line."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

RUNNER = pathlib.Path(__file__).with_name("run_page.py")


def block(language, text):
    return f"```{language}\n{text}```\n"


def run(page, *options):
    """Runs a page; returns the exit status, standard output and standard error, without the page's name."""
    with tempfile.TemporaryDirectory() as directory:
        path = pathlib.Path(directory, "page.md")
        path.write_text(page)
        finished = subprocess.run([sys.executable, RUNNER, *options, path], capture_output=True, text=True, check=False)
    return finished.returncode, finished.stdout.replace(str(path), "page"), finished.stderr.replace(str(path), "page")


class RunPage(unittest.TestCase):
    def assert_runs(self, page):
        self.assertEqual(run(page)[0], 0, run(page)[2])

    def assert_wrong(self, page, error):
        status, _, errors = run(page)
        self.assertEqual(status, 1)
        self.assertEqual(errors.splitlines()[0], error)

    def test_what_is_shown_is_printed(self):
        self.assert_runs(block("sh", "echo a\necho b >&2\n") + "It prints:\n\n" + block("", "a\nb\n"))

    def test_what_is_not_shown_must_not_be_printed(self):
        self.assert_wrong(block("sh", "echo a\n"), "page:2: the commands print something else than the page shows")

    def test_what_is_shown_must_be_printed(self):
        self.assert_wrong(block("sh", "true\n") + block("", "a\n"),
                          "page:2: the commands print something else than the page shows")

    def test_a_difference_is_shown(self):
        self.assertIn("-a\n+b\n", run(block("sh", "echo b\n") + block("", "a\n"))[2])

    def test_a_failed_command_is_an_error(self):
        self.assert_wrong(block("sh", "true\n") + block("sh", "false\ntrue\n"),
                          "page:5: a command of this block failed (1) after the output")

    def test_blocks_share_a_shell(self):
        self.assert_runs(block("sh", "name=a\nmkdir d\ncd d\n") + block("sh", 'echo "$name"; basename "$PWD"\n') +
                         block("", "a\nd\n"))

    def test_dots_stand_for_the_rest_of_a_line(self):
        page = block("sh", "echo on 1 May here\n")
        self.assert_runs(page + block("", "on ... here\n"))
        self.assert_wrong(page + block("", "on ... there\n"),
                          "page:2: the commands print something else than the page shows")

    def test_a_line_of_dots_stands_for_lines(self):
        page = block("sh", "seq 5\n")
        self.assert_runs(page + block("", "1\n...\n5\n"))
        self.assert_wrong(page + block("", "1\n...\n6\n"),
                          "page:2: the commands print something else than the page shows")

    def test_dots_within_a_line_stand_for_no_other_line(self):
        self.assertEqual(run(block("sh", "printf 'a\\nb\\n'\n") + block("", "a...b\n"))[0], 1)

    def test_what_is_not_run_is_named(self):
        status, out, _ = run("<!-- not run: needs root -->\n" + block("sh", "false\n") + block("", "a\n") +
                             block("sh", "true\n"))
        self.assertEqual(status, 0)
        self.assertEqual(out.splitlines()[0], "page:3: not run: needs root")

    def test_a_reason_that_is_given_is_none(self):
        page = block("sh", "true\n") + "<!-- not run: needs root -->\n" + block("sh", "echo a\n") + block("", "a\n")
        self.assertEqual(run(page, "--also", "needs root"),
                         (0, "page: 2 blocks of commands print what the page shows\n", ""))
        self.assertEqual(run(page, "--also", "needs a disk")[1].splitlines()[0], "page:6: not run: needs root")

    def test_other_languages_are_left_alone(self):
        self.assert_runs(block("sh", "true\n") + block("toml", "a = 1\n"))

    def test_output_without_commands_is_an_error(self):
        self.assert_wrong("\n" + block("", "a\n"), "page:3: no commands print this block")

    def test_a_page_without_commands_is_an_error(self):
        self.assert_wrong("Text.\n", "page:1: the page has no commands")

    def test_a_block_without_end_is_an_error(self):
        self.assert_wrong("\n```sh\ntrue\n", "page:2: the block has no end")

    def test_ports_are_free_ones_and_look_like_those_of_the_page(self):
        page = block("sh", "echo 127.0.0.1:8380 127.0.0.1:8380 127.0.0.1:8381 | tee shown\n")
        self.assert_runs(page + block("", "127.0.0.1:8380 127.0.0.1:8380 127.0.0.1:8381\n") +
                         block("sh", "cut -d' ' -f1 shown | grep -vc 127.0.0.1:$((8000 + 380))\n") + block("", "1\n"))

    def test_nothing_is_left_running(self):
        with tempfile.TemporaryDirectory() as directory:
            page = block("sh", f"sleep 1000 &\necho $! >'{directory}/pid'\nfalse\n")
            self.assertEqual(run(page)[0], 1)
            left = pathlib.Path("/proc", pathlib.Path(directory, "pid").read_text().strip(), "cmdline")
            self.assertFalse(left.exists() and b"sleep" in left.read_bytes())


if __name__ == "__main__":
    unittest.main()
