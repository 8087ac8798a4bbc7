#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Usage: confinement.py --policy FILE --root DIRECTORY --user NUMBER TRACE...

Looks for accesses in traces of processes that an AppArmor profile would refuse, without a kernel that has AppArmor.

The policy is the profile as "apparmor_parser --skip-kernel-load --stdout" compiles it: state machines over paths and
over families of sockets, which are walked here as the kernel walks them. The traces are those of "strace -ff -y -o
TRACE", one file for each process; --root is the root of their system, and --user the number of their user. Prints each
refused access, and the number of accesses and of paths. Ends with status 1 if one is refused.
"""

import argparse
import os
import re
import socket
import struct
import sys

EXECUTE, WRITE, READ, LOCK, MAP = 1, 2, 4, 0x20, 0x40
NETWORK = 14  # the class of network rules
LETTERS = {EXECUTE: "x", WRITE: "w", READ: "r", LOCK: "k", MAP: "m"}

CALL = re.compile(r"(?P<name>\w+)\((?P<arguments>.*)\) += (?:-?\d+|0x[0-9a-f]+)(?:<(?P<opened>.*?)>(?:\(deleted\))?)?"
                  r"(?: (?P<error>E\w+))?(?: \(.*\))?$")
OTHER = re.compile(r"\+\+\+ |--- |.* = \?( E\w+ \(.*\))?$")  # ends, signals, and calls that did not return
OPENED = re.compile(r"\d+<(/[^>]*)>")
TEXT = re.compile(r'(?:AT_FDCWD(?:<([^>]*)>)?, |\d+<([^>]*)>, )?"((?:[^"\\]|\\.)*)"')
CHANGES = {"unlink", "unlinkat", "mkdir", "mkdirat", "rmdir", "chmod", "fchmodat", "chown", "fchownat", "lchown",
           "truncate", "utimensat", "mknod", "mknodat", "symlink", "symlinkat"}
RENAMES = {"rename", "renameat", "renameat2"}
CHANGES_OPENED = {"fchmod", "fchown", "ftruncate", "fallocate"}


class Machine:
    """A state machine of a compiled profile: comb-compressed tables in the byte order of networks."""

    WIDTHS = {1: "B", 2: "H", 4: "I"}
    ACCEPT, BASE, CHECK, DEFAULT, CLASSES, NEXT = 1, 2, 3, 4, 5, 8

    def __init__(self, data):
        header, size = struct.unpack(">II", data[4:12])
        self.tables, at = {}, header
        while at < size:
            name, width, _, length = struct.unpack(">HHII", data[at:at + 12])
            self.tables[name] = struct.unpack_from(f">{length}{self.WIDTHS[width]}", data, at + 12)
            at += (12 + width * length + 7) // 8 * 8

    def step(self, state, byte):
        base, tables = self.tables[self.BASE], self.tables
        symbol = tables[self.CLASSES][byte] if self.CLASSES in tables else byte
        while True:
            at = (base[state] & 0xFFFFFF) + symbol
            if tables[self.CHECK][at] == state:
                return tables[self.NEXT][at]
            differs_from_default = base[state] & 0x80000000
            state = tables[self.DEFAULT][state]
            if not differs_from_default:
                return state

    def accepted(self, text):
        """Returns what the state after these bytes accepts: permissions of the owner, and those of others from bit 14."""
        state = 1
        for byte in text:
            state = self.step(state, byte)
        return self.tables[self.ACCEPT][state]


def machines_of(policy):
    """Returns the machine for all but files, and that for files; one for the path of the program may precede them."""
    magic, found, at = struct.pack(">I", 0x1B5E783D), [], 0
    while (at := policy.find(magic, at)) >= 0:
        found.append(Machine(policy[at:]))
        at += 4
    if len(found) not in (2, 3):
        raise SystemExit(f"confinement.py: the policy has {len(found)} state machines")
    return found[-2:]


def wanted_by_open(flags):
    """Returns the permissions that open() needs for its flags."""
    if "O_PATH" in flags:
        return 0
    wanted = READ | WRITE if "O_RDWR" in flags else WRITE if "O_WRONLY" in flags else READ
    return wanted | (WRITE if re.search("O_CREAT|O_TRUNC|O_TMPFILE", flags) else 0)


def paths_in(arguments):
    """Returns the paths that are named by text, relative ones with the directory before them."""
    found = TEXT.findall(arguments)
    return [os.path.normpath(os.path.join(current or directory or "/", text)) for current, directory, text in found]


class Checker:
    """Collects the accesses of the traced processes, and those that the policy refuses."""

    def __init__(self, policy, root, user):
        self.others, self.files = machines_of(policy)
        self.root, self.user = root, user
        self.accesses, self.paths, self.refused = 0, set(), set()

    def owns(self, path):
        """Returns whether the processes own a file; those that are gone were their own temporary ones."""
        try:
            return path.startswith("/proc/") or os.lstat(self.root + path).st_uid == self.user
        except OSError:
            return True

    def need(self, path, wanted, directory=False):
        """Checks an access to a file, by its path in the file system."""
        if not wanted or not path.startswith("/") or path.startswith("/memfd:"):
            return
        self.accesses += 1
        self.paths.add(path)
        named = path + "/" if (directory or os.path.isdir(self.root + path)) and path != "/" else path
        accepted = self.files.accepted(named.encode())
        allowed = accepted & 0x7F if self.owns(path) else accepted >> 14 & 0x7F
        if wanted & ~allowed:
            self.refuse(named, wanted & ~allowed)

    def need_family(self, family, kind):
        """Checks the use of a kind of socket."""
        self.accesses += 1
        text = struct.pack(">BHH", NETWORK, getattr(socket, family), getattr(socket, kind))
        if not self.others.accepted(text) & 0x7F:
            self.refused.add(f"socket {family} {kind}")

    def refuse(self, path, bits):
        self.refused.add("".join(letter for bit, letter in LETTERS.items() if bits & bit) + " " + path)

    def take(self, line):
        """Checks a line of a trace."""
        call = CALL.match(line)
        if call is None and not OTHER.match(line):
            raise SystemExit(f"confinement.py: unexpected line: {line}")
        if call is None or call["error"] not in (None, "EACCES", "EPERM", "EINPROGRESS", "EAGAIN"):
            return
        name, arguments = call["name"], call["arguments"]
        opened = OPENED.findall(arguments)
        if name in ("open", "openat"):
            self.take_open(arguments, call["opened"])
        elif name == "execve" and call["error"] is None:
            self.need(paths_in(arguments)[0], EXECUTE | READ)
        elif name == "mmap" and "PROT_EXEC" in arguments and opened:
            self.need(opened[-1], MAP)
        elif name == "flock" or name == "fcntl" and re.search("F_(OFD_)?SETLK", arguments):
            self.need(opened[0], LOCK)
        elif name in CHANGES_OPENED:
            self.need(opened[0], WRITE)
        elif name in CHANGES:
            directory = "mkdir" in name or name == "rmdir" or "AT_REMOVEDIR" in arguments
            self.need(paths_in(arguments)[-1], WRITE, directory)
        elif name in RENAMES:
            before, after = paths_in(arguments)
            self.need(before, READ | WRITE)
            self.need(after, WRITE)
        elif name in ("link", "linkat"):
            raise SystemExit("confinement.py: links are not expected")
        else:
            self.take_socket(name, arguments)

    def take_open(self, arguments, opened):
        flags = arguments.rpartition('"')[2]
        path = opened or paths_in(arguments)[0]
        self.need(path, wanted_by_open(flags), "O_DIRECTORY" in flags and "O_TMPFILE" not in flags)

    def take_socket(self, name, arguments):
        if name in ("socket", "socketpair"):
            self.need_family(*re.match(r"(AF_\w+), (SOCK_\w+)", arguments).groups())
        elif name in ("bind", "connect", "sendto", "sendmsg"):
            for path in re.findall(r'sun_path="([^"]*)"', arguments):
                self.need(path, WRITE)


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    for option in ("--policy", "--root"):
        parser.add_argument(option, required=True)
    parser.add_argument("--user", type=int, required=True)
    parser.add_argument("traces", nargs="+")
    options = parser.parse_args()
    with open(options.policy, "rb") as policy:
        checker = Checker(policy.read(), options.root, options.user)
    for trace in options.traces:
        with open(trace, encoding="utf-8", errors="surrogateescape") as lines:
            for line in lines:
                checker.take(line.rstrip("\n"))
    for text in sorted(checker.refused):
        print(f"refused: {text}")
    print(f"{len(options.traces)} processes, {checker.accesses} accesses to {len(checker.paths)} files and sockets, "
          f"{len(checker.refused)} refused")
    return 1 if checker.refused or not checker.accesses else 0


if __name__ == "__main__":
    sys.exit(main())
