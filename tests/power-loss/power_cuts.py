"""
What a disk can hold after a power cut, by the log of its writes.

A disk may keep writes in its cache, and puts them on the medium in any order. What a completed
flush covers, or is written with FUA, is there for good; of all else any part may be lost.
"""

import os
import random
from dataclasses import dataclass
from hashlib import blake2b

from write_log import SECTOR, Flush, Mark, Write

# In which the content of a disk is looked through.
BLOCK = 4096
# From the simplest on.
KINDS = PREFIX, SUBSET, TORN = "prefix", "subset", "torn write"
# The file system's own superblock has a checksum and no second copy that a boot would turn to. Where
# a disk tears these two sectors apart, no file is left to look at, whoever has written it.
SUPERBLOCK_SECTORS = {2, 3}


class Disk:
    """What is on the medium for good, and the writes that may still be lost, oldest first."""

    def __init__(self, content):
        self.durable = bytearray(content)
        self.pending = []
        self.digest = 0
        self.used = {offset for offset in range(0, len(content), BLOCK)
                     if any(content[offset:offset + BLOCK])}

    def take(self, entry):
        """Brings the disk to where it is when the entry is completed."""
        if isinstance(entry, Flush):
            for sectors in self.pending:
                self._keep(sectors)
            self.pending = []
        elif isinstance(entry, Write) and entry.fua:
            sectors = entry.sectors()
            # What was written there before can come up no more.
            for older in self.pending:
                for number in sectors.keys() & older.keys():
                    del older[number]
            self._keep(sectors)
        elif isinstance(entry, Write):
            self.pending.append(entry.sectors())

    def state(self, kind, writes):
        """The disk when of all that is pending just these writes have come through, in order."""
        changes = {}
        for sectors in writes:
            changes |= sectors
        return State(kind, self, changes, self.digest ^ self._difference(changes))

    def _keep(self, sectors):
        self.digest ^= self._difference(sectors)
        for number, data in sectors.items():
            offset = number * SECTOR
            self.durable[offset:offset + SECTOR] = data
            self.used.add(offset - offset % BLOCK)

    def _difference(self, changes):
        """How the digest changes: that of a disk is the sum of its sectors', modulo 2."""
        difference = 0
        for number, data in changes.items():
            before = bytes(self.durable[number * SECTOR:(number + 1) * SECTOR])
            if before != data:
                difference ^= sector_digest(number, before) ^ sector_digest(number, data)
        return difference


@dataclass(frozen=True)
class State:
    """A content that the disk may have after a cut; valid until the disk takes its next entry."""

    kind: str
    disk: Disk
    changes: dict
    digest: int

    def write_to(self, path):
        """Makes a file of the whole content, with holes where the disk was never written to."""
        durable = memoryview(self.disk.durable)
        with open(path, "wb", buffering=0) as image:
            image.truncate(len(durable))
            for offset in self.disk.used:
                os.pwrite(image.fileno(), durable[offset:offset + BLOCK], offset)
            for number, data in self.changes.items():
                os.pwrite(image.fileno(), data, number * SECTOR)


def sector_digest(number, data):
    return int.from_bytes(blake2b(data, digest_size=16, key=number.to_bytes(8, "little")).digest(),
                          "little")


def states_at_cut(disk, following, chance, subsets, torn):
    """
    States in which a cut leaves the disk before the entry that follows: all that was written; just
    what must be there; random subsets of what need not; and some in which one write of several
    sectors, unflushed or under way, has come through in part.
    """
    yield disk.state(PREFIX, disk.pending)
    if disk.pending:
        yield disk.state(SUBSET, [])
        for _ in range(subsets):
            yield disk.state(SUBSET, some_of(disk.pending, chance))
    under_way = [following.sectors()] if isinstance(following, Write) else []
    for index in range(torn):
        # By turns with all other writes and with some of them.
        if writes := with_one_torn(disk.pending + under_way, chance, keep_others=index % 2 == 0):
            yield disk.state(TORN, writes)


def with_one_torn(writes, chance, keep_others):
    """The writes, or some, in order, a part of one among them; nothing when none can be torn."""
    candidates = [index for index, sectors in enumerate(writes) if len(sectors) > 1]
    if not candidates:
        return []
    victim = chance.choice(candidates)
    before, after = writes[:victim], writes[victim + 1:]
    if not keep_others:
        before, after = some_of(before, chance), some_of(after, chance)
    return [*before, part_of(writes[victim], chance), *after]


def some_of(writes, chance):
    """A random subset, in order; now dense, now sparse."""
    share = chance.choice((0.1, 0.5, 0.9))
    return [each for each in writes if chance.random() < share]


def part_of(sectors, chance):
    """Some of a write's sectors, not all and not none: its beginning, or any of them."""
    numbers = sorted(sectors)
    count = chance.randrange(1, len(numbers))
    chosen = set(numbers[:count] if chance.random() < 0.5 else chance.sample(numbers, count))
    if chosen & SUPERBLOCK_SECTORS:
        chosen |= SUPERBLOCK_SECTORS & sectors.keys()
    return {number: sectors[number] for number in sorted(chosen)}


def chance_of_cut(seed, position):
    """The random numbers of one cut, whoever comes to it, and in whatever order."""
    return random.Random(f"{seed} {position}")


def ignore_flushes(entries):
    """The log of a disk that calls a flush done and does nothing until the guest's next mark."""
    held = False
    for entry in entries:
        if isinstance(entry, Flush):
            held = True
            continue
        if isinstance(entry, Mark) and held:
            held = False
            yield Flush()
        yield entry
