#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Keeps a file equal to the catalog of a server.

Usage: harvest.py URL FILE [CSID]     for example: harvest.py http://localhost:8380/rdm copy.soif

FILE has the descriptions in the order of their URLs. It is replaced when everything has arrived, and is all that is
remembered from one run to the next. Exit status: 0 FILE equals the catalog, 2 wrong usage, 3 FILE is as it was.
"""

import http.client
import os
import random
import re
import sys
import time
import urllib.error
import urllib.request
from email.utils import formatdate, parsedate_to_datetime
from urllib.parse import urlencode

OVERLAP = 300  # seconds; the second of a recent change may not be over, and indexes may show changes late
ATTEMPTS = 5
ROUNDS = 5
TIMEOUT = 60  # seconds without a byte
START = re.compile(rb"\s*(@\S+ \{ (\S+)\n)")
ATTRIBUTE = re.compile(rb"([^{\s]+)\{(\d+)\}:\t")


class Refused(Exception):
    """Another attempt would not help."""


class Cut(Exception):
    """The answer is not whole; another attempt may bring one that is."""


def seconds(date):
    return int(parsedate_to_datetime(date).timestamp())


def objects(text):
    """Yields the URL, the attributes and the bytes of each SOIF object. Byte counts, not marks, end the values."""
    position = 0
    while text[position:].strip():
        start = START.match(text, position)
        if not start:
            raise Cut(f"no object at byte {position}")
        position, attributes = start.end(), {}
        while attribute := ATTRIBUTE.match(text, position):
            position = attribute.end() + int(attribute[2]) + 1
            attributes[attribute[1].decode()] = text[attribute.end() : position - 1].decode("utf-8", "replace")
        if text[position - 1 : position + 2] != b"\n}\n":
            raise Cut(f"a wrong size before byte {position}")
        position += 2
        yield start[2].decode(), attributes, text[start.start(1) : position]


def verified(answer, body):
    """Returns the time of the server and the descriptions of an answer: by URL, the attributes and the bytes."""
    if answer.headers.get_content_type() != "application/x-rdm" or answer.headers["Content-Length"] is None:
        raise Refused("this is no RDM message of a known length")
    message_objects = objects(body)
    _, header, _ = next(message_objects, ("", {}, b""))
    message = header.get("rdm-error-message", "").strip()
    if message not in ("", "0 results.") or header.get("rdm-type") != "rd-response":
        raise Refused(message or "the server does not send descriptions")
    return seconds(answer.headers["Date"]), {url: (attributes, text) for url, attributes, text in message_objects}


def ask(url, csid, **query):
    """Sends one query, again after a pause if the server is busy or the answer is cut."""
    target = f"{url}/rd-request?" + urlencode({"ql": "gatherer", **csid, **query})
    for attempt in range(ATTEMPTS):
        pause = 2**attempt * random.uniform(0.5, 1)
        try:
            with urllib.request.urlopen(target, timeout=TIMEOUT) as answer:
                return verified(answer, answer.read())
        except urllib.error.HTTPError as error:
            if error.code not in (408, 429) and error.code < 500:
                raise Refused(f"HTTP status {error.code}") from error
            reason, pause = error, float(error.headers.get("Retry-After", pause))
        except (Cut, OSError, http.client.HTTPException) as error:
            reason = error
        time.sleep(pause)
    raise Refused(f"{ATTEMPTS} attempts failed, the last one: {reason}")


def read_copy(path):
    if not os.path.exists(path):
        return {}
    with open(path, "rb") as file:
        return {url: (attributes, text) for url, attributes, text in objects(file.read())}


def write_copy(path, held):
    with open(path + ".new", "wb") as file:
        file.writelines(held[url][1] for url in sorted(held))
        file.flush()
        os.fsync(file.fileno())
    os.rename(path + ".new", path)


def times(descriptions):
    return {url: attributes["rd-last-changed"] for url, (attributes, _) in descriptions.items()}


def missing(url, csid, wanted):
    """Returns the descriptions that are wanted, and others. `wanted` has their times of change by URL."""
    since = formatdate(min(map(seconds, wanted.values())) - OVERLAP, usegmt=True)
    sent = ask(url, csid, scope=f"since {since}")[1]
    # A search that narrows to the newest description answers nothing.
    return sent if wanted.keys() <= sent.keys() else ask(url, csid, scope="all")[1]


def update(url, csid, held):
    """Makes the held descriptions equal to the catalog. Returns how many were sent and how many are gone."""
    sent, gone = set(), set()
    for _ in range(ROUNDS):
        now, listed = ask(url, csid, scope="all", **{"view-attributes": "rd-last-changed"})
        if len(listed) < len(held) / 2:
            raise Refused(f"{len(held)} descriptions are held, {len(listed)} are left; "
                          "remove the copy if that is right")
        gone |= held.keys() - listed.keys()
        for address in held.keys() - listed.keys():
            del held[address]
        held_times = times(held)
        wanted = {address: date for address, date in times(listed).items() if held_times.get(address) != date
                  or (address not in sent and seconds(date) > now - OVERLAP)}
        if not wanted:
            return len(sent), len(gone)
        answer = missing(url, csid, wanted)
        held.update(answer)
        sent |= answer.keys()
    raise Refused("the catalog changes faster than it can be harvested")


def main():
    if len(sys.argv) not in (3, 4):
        print(__doc__, file=sys.stderr)
        sys.exit(2)
    url, path = sys.argv[1:3]
    csid = {"csid": sys.argv[3]} if len(sys.argv) == 4 else {}
    try:
        held = read_copy(path)
        sent, gone = update(url, csid, held)
        write_copy(path, held)
        print(f"{sent} sent, {gone} gone, {len(held)} held")
    except (Cut, Refused, OSError) as error:
        print(f"harvest.py: {error}", file=sys.stderr)
        sys.exit(3)


if __name__ == "__main__":
    main()
