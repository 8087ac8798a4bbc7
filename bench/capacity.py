#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Measures what a catalog and its server need, as doc/guides/capacity.md shows it.

Usage: capacity.py [--bin DIRECTORY] [RECORDS...]     by default build/release/bin, 10000 and 100000

Descriptions have 2 KB. The catalogs are in TMPDIR and take up to 20 KB a description there. Clients run on the same
machine: on a network of their own, they leave the server more.
"""

import argparse
import contextlib
import email.utils
import http.client
import os
import pathlib
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile
import threading
import time

CSID = "x-catalog://localhost:8380/capacity"
WORDS = "harbour tide chart sound depth buoy light mark sand rock current pilot".split()


def write_feed(path, numbers, edition=0, dated=False):
    """Writes descriptions of about 2 KB, which differ in number and edition. If dated, they changed since last year."""
    first = time.time() - 365 * 86400
    with open(path, "w", encoding="ascii") as file:
        for number in numbers:
            text = " ".join(WORDS[(number + i * i) % len(WORDS)] for i in range(320))
            values = {"title": f"Description {number}, edition {edition}", "author-1": f"Author {number % 997}",
                      "keywords": WORDS[number % len(WORDS)], "description": text}
            if dated:
                changed = first + number * 364 * 86400 / numbers[-1]
                values["rd-last-changed"] = email.utils.formatdate(changed, usegmt=True)
            file.write(f"@DOCUMENT {{ http://localhost/{number}\n")
            file.writelines(f"{name}{{{len(value)}}}:\t{value}\n" for name, value in values.items())
            file.write("}\n")


def peak_memory(pid, so_far):
    """Returns the peak of memory of a process in MiB, or what it was so far if the process has ended."""
    with contextlib.suppress(OSError, StopIteration):
        status = pathlib.Path(f"/proc/{pid}/status").read_text()
        return next(int(line.split()[1]) for line in status.splitlines() if line.startswith("VmHWM")) / 1024
    return so_far


def measured(*command):
    """Runs a command. Returns its time on the clock and its peak of memory in MiB."""
    began, memory = time.monotonic(), 0
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL)
    while process.poll() is None:
        memory = peak_memory(process.pid, memory)
        with contextlib.suppress(subprocess.TimeoutExpired):
            process.wait(0.005)
    if process.returncode != 0:
        sys.exit(f"capacity.py: {' '.join(map(str, command))}: exit status {process.returncode}")
    return time.monotonic() - began, memory


class Server:
    """rdmd with a number of workers, on a free port."""

    def __init__(self, programs, directory, workers):
        (directory / "csid.conf").write_text(f'csid="{CSID}"\ncatalog-database="{directory}/rds.db"\n')
        (directory / "rdm.conf").write_text(f'bindir="{programs}" tmpdir="{directory}" debug-loglevel="0"\n'
                                            f'csid-config="{directory}/csid.conf" csid-default="{CSID}"\n')
        self.process = subprocess.Popen([programs / "rdmd", "--listen", "127.0.0.1:0", "--workers", str(workers),
                                         "--config", directory / "rdm.conf"], stderr=subprocess.PIPE, text=True)
        line = next(line for line in self.process.stderr if "listening on" in line)
        self.port = int(line.rsplit(":", 1)[1])

    @property
    def url(self):
        return f"http://127.0.0.1:{self.port}/rdm"

    def memory(self):
        """Returns the memory in MiB that all processes have for themselves, pages of files not counted."""
        listed = subprocess.run(["pgrep", "-P", str(self.process.pid)], capture_output=True, text=True, check=False)
        total = 0
        for pid in [self.process.pid, *listed.stdout.split()]:
            status = pathlib.Path(f"/proc/{pid}/status").read_text()
            total += next(int(line.split()[1]) for line in status.splitlines() if line.startswith("RssAnon"))
        return total / 1024

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.send_signal(signal.SIGTERM)
        self.process.wait()


@contextlib.contextmanager
def harvesters(server, count):
    """Harvests the whole catalog again and again, by `count` clients. Yields the list of the times so far."""
    times, ending = [], threading.Event()

    def harvest():
        while not ending.is_set():
            times.append(measured("curl", "-s", "-o", os.devnull, f"{server.url}/rd-request?ql=gatherer&scope=all")[0])

    threads = [threading.Thread(target=harvest) for _ in range(count)]
    for thread in threads:
        thread.start()
    try:
        yield times
    finally:
        ending.set()
        for thread in threads:
            thread.join()


def status_times(server, seconds=4):
    """Returns the times of status requests, one after the other on one connection, in milliseconds."""
    connection, times = http.client.HTTPConnection("127.0.0.1", server.port), []
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        began = time.monotonic()
        connection.request("GET", "/rdm/status-request")
        connection.getresponse().read()
        times.append(1000 * (time.monotonic() - began))
    return sorted(times)


def row(*cells):
    print("| " + " | ".join(cells) + " |", flush=True)


def measure_disk(directory, records):
    for name, suffix in (("database", ""), ("index", ".idx"), ("URL map", ".url")):
        size = (directory / f"rds.db{suffix}").stat().st_size
        row(f"size of the {name}", f"{size / 1e6:,.1f} MB, {size / records:,.0f} bytes a description")


def measure_changes(programs, directory, records):
    feed, change = directory / "feed.soif", directory / "change.soif"
    write_feed(feed, range(records))
    write_feed(change, range(0, records, 100), edition=1)
    database = directory / "rds.db"
    row(f"feed of {records:,} descriptions", f"{feed.stat().st_size / 1e6:,.1f} MB")
    for what, *command in (("publish all", "publish", "-q", database, feed),
                           ("publish a change of 1 %", "publish", "-q", database, change),
                           ("back up", "backup", "-q", database, directory / "backup")):
        seconds, memory = measured(programs / "rdmctl", *command)
        row(what, f"{seconds:,.2f} s, {memory:,.0f} MiB of memory")
    measure_disk(directory, records)


def replace_by_dated(programs, directory, records):
    """Makes the catalog one whose descriptions have changed at many times, as after a year."""
    old, minidba = directory / "old.soif", [programs / "minidba", "-q", "-d", directory / "rds.db"]
    write_feed(old, range(records), dated=True)
    measured(*minidba, "import", "--replace", "--no-header", old)
    measured(*minidba, "-i", directory / "rds.db.idx", "index")


def measure_mirror(programs, directory, server):
    command = [programs / "rdm", "mirror", "-q", "--state", directory / "state", "--full-every", "0", server.url,
               directory / "mirror.db"]
    change = [programs / "rdmctl", "publish", "-q", directory / "rds.db", directory / "change.soif"]
    for what in ("mirror all", "mirror when nothing is new", "mirror a change of 1 %"):
        if "change" in what:
            measured(*change)
        seconds, memory = measured(*command)
        row(what, f"{seconds:,.2f} s, {memory:,.0f} MiB of memory")


def measure_serving(programs, directory):
    for workers in (1, 2, 4):
        with Server(programs, directory, workers) as server:
            measured("curl", "-s", "-o", os.devnull, f"{server.url}/rd-request?ql=gatherer&scope=all")
            idle, alone = server.memory(), statistics.median(status_times(server, 1))
            with harvesters(server, 4) as times:
                asked = status_times(server)
                busy = server.memory()
            row(str(workers), f"{statistics.median(times):.2f} s", f"{alone:.2f} ms",
                f"{statistics.median(asked):.2f} ms", f"{asked[int(0.99 * len(asked))]:.1f} ms", f"{idle:.0f} MiB", f"{busy:.0f} MiB")


def measure(programs, records):
    directory = pathlib.Path(tempfile.mkdtemp())
    try:
        print(f"\n### {records:,} descriptions of 2 KB\n")
        row("", "")
        row("---", "---")
        measure_changes(programs, directory, records)
        replace_by_dated(programs, directory, records)
        with Server(programs, directory, 2) as server:
            measure_mirror(programs, directory, server)
        print("\nFour harvesters of the whole catalog at once, and a client that asks for the status:\n")
        row("workers", "a harvest, median", "status alone", "status beside them", "99th of 100", "memory idle",
            "memory then")
        row(*["---"] * 7)
        measure_serving(programs, directory)
    finally:
        shutil.rmtree(directory)


def main():
    parser = argparse.ArgumentParser(description="Measures what a catalog and its server need.")
    parser.add_argument("--bin", type=pathlib.Path, default=pathlib.Path(__file__).parents[1] / "build/release/bin")
    parser.add_argument("records", nargs="*", type=int, default=[10_000, 100_000])
    arguments = parser.parse_args()
    for records in arguments.records:
        measure(arguments.bin.resolve(), records)


if __name__ == "__main__":
    main()
