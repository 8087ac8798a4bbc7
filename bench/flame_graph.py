#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Draws a flame graph: the time of a program by its call stacks, from what "perf script" prints.

Usage: perf script | bench/flame_graph.py TITLE >GRAPH.svg

The width of a box is the share of samples in which the function was on the stack. Boxes under half a percent are left
out. The mouse over a box shows its function and its share.
"""

import html
import re
import sys

WIDTH, ROW, LEAST_SHARE = 1200, 17, 0.005
FRAME = re.compile(r"^\s+[0-9a-f]+ (.+?)(?:\+0x[0-9a-f]+)? \(([^()]*)\)$")


class Node:
    """A function called from the same stack: its samples and the functions that it called."""

    def __init__(self):
        self.samples = 0
        self.callees = {}


def function_of(frame):
    """The name of a frame, or the file of an unknown one."""
    name, file = frame.groups()
    if name == "[unknown]":
        name = "[" + file.rsplit("/", 1)[-1] + "]"
    return re.sub(r"\(.*", "", name) or name


def stacks(lines):
    """Each stack that perf prints, the outermost function first."""
    stack = []
    for line in lines:
        frame = FRAME.match(line)
        if frame:
            stack.insert(0, function_of(frame))
        elif not line.strip() and stack:
            yield stack
            stack = []
    if stack:
        yield stack


def tree_of(lines):
    root = Node()
    for stack in stacks(lines):
        root.samples += 1
        node = root
        for name in stack:
            node = node.callees.setdefault(name, Node())
            node.samples += 1
    return root


def depth_of(node, least):
    return 1 + max((depth_of(one, least) for one in node.callees.values() if one.samples >= least), default=0)


def boxes(name, node, left, level, total):
    """The boxes of a function and of what it calls, as SVG."""
    width = WIDTH * node.samples / total
    text = html.escape(name)
    shown = html.escape(name[: int(width / 6.5)]) if width > 25 else ""
    hue = sum(name.encode()) % 50
    yield (
        f'<g><title>{text}: {100 * node.samples / total:.1f} %</title><rect x="{left:.1f}" y="{level * ROW + 24}" '
        f'width="{width:.1f}" height="{ROW - 1}" fill="hsl({hue},80%,65%)"/>'
        f'<text x="{left + 2:.1f}" y="{level * ROW + 36}">{shown}</text></g>'
    )
    for callee, one in sorted(node.callees.items()):
        if one.samples >= LEAST_SHARE * total:
            yield from boxes(callee, one, left, level + 1, total)
        left += WIDTH * one.samples / total


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    root = tree_of(sys.stdin)
    if root.samples == 0:
        sys.exit("flame_graph.py: no stack on standard input")
    height = ROW * depth_of(root, LEAST_SHARE * root.samples) + 28
    print(f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {height}" font-family="monospace" font-size="11">')
    print(f'<text x="4" y="15" font-size="13">{html.escape(sys.argv[1])} ({root.samples} samples)</text>')
    print("\n".join(boxes("all", root, 0, 0, root.samples)))
    print("</svg>")


main()
