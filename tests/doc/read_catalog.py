# SPDX-License-Identifier: MIT
"""Usage: read_catalog.py DATABASE INDEX

Reads a catalog as rdm-catalog(5) describes it, and nothing else: a test that the page suffices. Compares the records of
the database with the entries of the index, and prints how many there are.
"""

import struct
import sys
import zlib


def log2_up(number):
    return (number - 1).bit_length()


class Database:
    """A hash file."""

    def __init__(self, path):
        with open(path, "rb") as source:
            self.bytes = source.read()
        magic, version, order, self.page_size = struct.unpack_from(">4I", self.bytes)
        assert (magic, version) == (0x00061561, 2)
        self.order = "<" if order == 1234 else ">"
        self.last_bucket, = struct.unpack_from(">I", self.bytes, 40)
        self.count, self.header_pages = struct.unpack_from(">2I", self.bytes, 56)
        self.spares = struct.unpack_from(">32I", self.bytes, 68)
        self.next_number, = struct.unpack_from(">Q", self.bytes, 272)

    def primary_page(self, bucket):
        return bucket + self.header_pages + (self.spares[log2_up(bucket + 1) - 1] if bucket else 0)

    def page(self, number):
        """Returns the bytes of a page and its slots, counted from 1."""
        page = self.bytes[number * self.page_size : (number + 1) * self.page_size]
        if not page:
            return page, [0]
        count, = struct.unpack_from(self.order + "H", page)
        return page, struct.unpack_from(f"{self.order}{count + 3}H", page)

    def next_page(self, slots):
        address = slots[slots[0] - 1]
        return self.primary_page((1 << (address >> 11)) - 1) + (address & 2047)

    def records(self, bucket):
        """Yields the keys and values of a bucket."""
        number, end, slot = self.primary_page(bucket), self.page_size, 1
        while True:
            page, slots = self.page(number)
            if slot > slots[0]:
                return
            if slots[slot + 1] == 0:
                number, end, slot = self.next_page(slots), self.page_size, 1
            elif slots[slot + 1] < 4:
                record, number, end, slot = self.long_record(number)
                yield record
            else:
                yield page[slots[slot] : end], page[slots[slot + 1] : slots[slot]]
                end, slot = slots[slot + 1], slot + 2

    def long_record(self, number):
        """Returns a record on pages of its own, and where to continue: page, end of its data, slot."""
        key = b""
        page, slots = self.page(number)
        while slots[2] == 1:
            key += page[slots[1] :]
            number = self.next_page(slots)
            page, slots = self.page(number)
        key += page[slots[1] :]
        value = page[slots[4] : slots[1]] if slots[2] == 3 else b""
        is_whole = slots[2] == 3 and slots[slots[0] + 1] != 0
        number = self.next_page(slots)
        if is_whole:
            return (key, value), number, self.page_size, 1
        while True:
            page, slots = self.page(number)
            value += page[slots[1] :]
            if slots[2] == 3:
                return (key, value), number, slots[1], 3
            number = self.next_page(slots)

    def all(self):
        return {int(key, 16): value for bucket in range(self.last_bucket + 1) for key, value in self.records(bucket)}


def entries(path):
    """Returns the entries of an index: time, 0, number, size and CRC-32 each."""
    with open(path, "rb") as source:
        index = source.read()
    magic, count = struct.unpack_from(">2I", index)
    assert magic == 0x3EB1CA0E
    found = [struct.unpack_from(">5I", index, 8 + 20 * at) for at in range(count)]
    assert found == sorted(found, key=lambda entry: (entry[0], entry[2]))
    return found


def main():
    database = Database(sys.argv[1])
    records = database.all()
    assert len(records) == database.count and max(records) < database.next_number
    same = [entry for entry in entries(sys.argv[2])
            if (len(records[entry[2]]), zlib.crc32(records[entry[2]])) == entry[3:]]
    print(f"{len(records)} records, {len(same)} as in the index")


if __name__ == "__main__":
    main()
