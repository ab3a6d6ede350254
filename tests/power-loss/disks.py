"""What the tests make disks and logs of."""

import random

from commands import run
from write_log import FLUSH, HEADER, MAGIC, MARK_WORD, SECTOR, SUPERBLOCK, VERSION

MARKS_FROM = 1 << 16


def sector(letter):
    """A sector full of one letter."""
    return letter.encode() * SECTOR


def padded(data):
    return data + bytes(-len(data) % SECTOR)


def log_entry(number, data=b"", flags=0):
    """A request as it stands in a log."""
    return padded(HEADER.pack(number, len(data) // SECTOR, flags, 0)) + data


def flush_entry():
    return log_entry(0, flags=FLUSH)


def mark_entry(text):
    return log_entry(MARKS_FROM, padded(MARK_WORD + text.encode() + b"\n"))


def log_bytes(*entries):
    """A whole log."""
    return padded(SUPERBLOCK.pack(MAGIC, VERSION, len(entries), SECTOR)) + b"".join(entries)


def contents(state):
    """The sectors of a state of a small disk, as their letters; a dot for one that is empty."""
    disk = bytearray(state.disk.durable)
    for number, data in state.changes.items():
        disk[number * SECTOR:(number + 1) * SECTOR] = data
    letters = (disk[offset:offset + 1].decode() for offset in range(0, len(disk), SECTOR))
    return "".join(letter if letter != "\0" else "." for letter in letters)


def chance():
    return random.Random("a test")


def make_file_system(path, folder):
    """A file system without a journal, with an empty folder."""
    with open(path, "wb") as image:
        image.truncate(1 << 20)
    run("mke2fs", "-q", "-t", "ext4", "-O", "^has_journal", path)
    change_file_system(path, f"mkdir {folder}")


def change_file_system(path, *requests):
    """Carries out requests as debugfs has them."""
    done = run("debugfs", "-w", "-f", "-", path, input="\n".join(requests))
    complaints = done.stderr.splitlines()[1:]
    assert not complaints, complaints
