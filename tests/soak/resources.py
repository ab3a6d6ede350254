"""The memory and the descriptors of the service, and whether they grow."""

import collections
import os
import re
import time
from dataclasses import dataclass, field
from pathlib import Path

MIB = 1024 * 1024
# Reasons: docs/soak.md.
RSS_TOLERANCE = 2 * MIB
DESCRIPTOR_TOLERANCE = 0


@dataclass(frozen=True)
class Sample:
    """What the service held at an age in seconds."""

    age: float
    rss: int  # bytes
    descriptors: dict  # how many of each kind

    @property
    def count(self):
        return sum(self.descriptors.values())


def descriptors_of(pid):
    """How many descriptors of each kind a process has."""
    kinds = collections.Counter()
    for entry in Path(f"/proc/{pid}/fd").iterdir():
        try:
            kinds[re.sub(r"\[\d+\]$", "", os.readlink(entry))] += 1
        except FileNotFoundError:
            pass  # closed meanwhile
    return dict(kinds)


def rss_of(pid):
    status = Path(f"/proc/{pid}/status").read_text(encoding="ascii")
    return int(re.search(r"^VmRSS:\s+(\d+) kB$", status, re.MULTILINE)[1]) * 1024


@dataclass
class Incarnation:
    """One run of the service, from its start to its end, and what it held meanwhile."""

    pid: int
    started: float = field(default_factory=time.monotonic)
    samples: list = field(default_factory=list)

    def age(self):
        return time.monotonic() - self.started

    def is_alive(self):
        return Path(f"/proc/{self.pid}/fd").exists()

    def take_sample(self):
        self.samples.append(Sample(self.age(), rss_of(self.pid), descriptors_of(self.pid)))

    def warm(self, warm_up):
        """The samples since it was warm."""
        return [sample for sample in self.samples if sample.age >= warm_up]


def compare(what, before, after):
    """In words, what has grown from one sample to another by more than it may."""
    found = []
    if after.rss - before.rss > RSS_TOLERANCE:
        found.append(f"{what}: the memory has grown from {before.rss} to {after.rss} bytes")
    if after.count - before.count > DESCRIPTOR_TOLERANCE:
        grown = {kind: count for kind, count in after.descriptors.items()
                 if count > before.descriptors.get(kind, 0)}
        found.append(f"{what}: the descriptors have grown from {before.count} to {after.count}: "
                     f"{grown}")
    return found


def judge_resources(incarnations, warm_up):
    """
    Each incarnation ends with what it had when it was warm, and had then what the first one had.
    The first must have become warm, and the last have lived on then, or nothing is known.
    """
    warm = [incarnation.warm(warm_up) for incarnation in incarnations]
    found = [f"the {name} incarnation did not become warm: nothing can be compared"
             for name, samples, least in (("first", warm[0], 1), ("last", warm[-1], 2))
             if len(samples) < least]
    if found:
        return found
    for number, samples in enumerate(warm, 1):
        if samples:
            name = f"incarnation {number}"
            found += compare(f"{name}, warm, beside the first", warm[0][0], samples[0])
            found += compare(f"{name} from warm to its end", samples[0], samples[-1])
    return found
