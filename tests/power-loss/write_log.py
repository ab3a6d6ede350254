"""
The log of a disk's writes, as QEMU's block driver "blklogwrites" keeps it, and the marks in it.

The log is a sequence of sectors: a superblock, then for each request a header of one sector and
behind it the data. The guest's disk takes one request at a time, so the order of the log is the
order in which the requests were completed.
"""

import struct
from dataclasses import dataclass

SECTOR = 512
SUPERBLOCK = struct.Struct("<QQQI")
HEADER = struct.Struct("<QQQQ")
MAGIC = 0x6A736677736872
VERSION = 1
FLUSH, FUA = 1, 2
MARK_WORD = b"power-loss "


class BadLog(Exception):
    """The file is no log that can be replayed."""


@dataclass(frozen=True)
class Write:
    """A completed write; with fua it was durable when it was completed."""

    sector: int
    data: bytes
    fua: bool = False

    def sectors(self):
        """The data by number of the sector."""
        return {self.sector + index: self.data[index * SECTOR:(index + 1) * SECTOR]
                for index in range(len(self.data) // SECTOR)}


@dataclass(frozen=True)
class Flush:
    """A completed flush: every earlier write is durable."""


@dataclass(frozen=True)
class Mark:
    """A word of the guest about itself, written behind the file system; no part of its disk."""

    words: tuple


def read_log(path, marks_from):
    """The entries of a log; writes from the sector marks_from on are marks."""
    content = memoryview(path.read_bytes())
    if len(content) < SECTOR:
        raise BadLog("it has no superblock")
    magic, version, count, sector_size = SUPERBLOCK.unpack_from(content)
    if (magic, version, sector_size) != (MAGIC, VERSION, SECTOR):
        raise BadLog(f"unknown superblock: {magic:x}, version {version}, sectors of {sector_size}")
    entries = []
    offset = SECTOR
    for _ in range(count):
        if offset + SECTOR > len(content):
            raise BadLog(f"it ends before entry {len(entries)} of {count}")
        sector, length, flags, _ = HEADER.unpack_from(content, offset)
        if flags & ~(FLUSH | FUA):
            raise BadLog(f"entry {len(entries)} has unknown flags {flags}")
        begin, offset = offset + SECTOR, offset + SECTOR + length * SECTOR
        if offset > len(content):
            raise BadLog(f"it ends within entry {len(entries)}")
        entries += entries_of(sector, bytes(content[begin:offset]), flags, marks_from)
    return entries


def entries_of(sector, data, flags, marks_from):
    """What a request amounts to: a flush counts before the data that comes with it."""
    if flags & FLUSH:
        yield Flush()
    if not data:
        return
    if sector >= marks_from:
        yield Mark(words_of_mark(data))
    elif sector + len(data) // SECTOR > marks_from:
        raise BadLog("a write of the file system reaches into the marks")
    else:
        yield Write(sector, data, bool(flags & FUA))


def words_of_mark(data):
    """What the guest has to say, by words."""
    if not data.startswith(MARK_WORD):
        raise BadLog(f"something else stands where the marks are: {data[:32]!r}")
    return tuple(data[len(MARK_WORD):].partition(b"\n")[0].decode("ascii").split(" "))
