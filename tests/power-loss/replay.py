"""Goes through a log cut by cut, and looks at what each cut may leave on the disk."""

import os
import tempfile
from concurrent.futures import ProcessPoolExecutor
from dataclasses import dataclass, replace
from pathlib import Path

from configuration_files import FILES
from file_system import BrokenFileSystem, ImageReader
from judge import BROKEN, Found, Progress, Violation, look_at, violations_at
from power_cuts import KINDS, Disk, chance_of_cut, states_at_cut
from write_log import Mark


@dataclass(frozen=True)
class Effort:
    """How many random states are tried at each cut."""

    seed: str
    subsets: int
    torn: int


@dataclass(frozen=True, order=True)
class Finding:
    """What is wrong after a cut at a position of the log."""

    position: int
    state_kind: str
    kind: str
    detail: str


@dataclass(frozen=True)
class Judged:
    """
    A content of the disk, by the first cut that leaves it in the simplest way, and what is wrong
    after any cut.
    """

    position: int
    kind: str
    saving: str
    findings: frozenset

    def merged(self, other):
        simplest = min(self, other, key=lambda each: (KINDS.index(each.kind), each.position))
        return replace(simplest, findings=self.findings | other.findings)


class Examiner:
    """Judges states; what was found in those it has seen before it knows by heart."""

    def __init__(self, lives, work):
        self.progress = Progress(lives)
        self.reader = ImageReader(work)
        self.known = {}
        self.judged = {}

    def examine(self, position, state):
        """Judges a state of the cut at a position of the log."""
        key = (self.progress.life, state.digest)
        if key not in self.known:
            self.known[key] = self._look(state)
        findings = frozenset(Finding(position, state.kind, violation.kind, violation.detail)
                             for violation in violations_at(self.progress, self.known[key]))
        judged = Judged(position, state.kind, self.progress.saving, findings)
        earlier = self.judged.get(state.digest)
        self.judged[state.digest] = earlier.merged(judged) if earlier else judged

    def _look(self, state):
        try:
            folder = self.reader.folder(state, f"/life-{self.progress.life}", FILES)
        except BrokenFileSystem as error:
            return Found({}, (Violation(BROKEN, str(error)),))
        return look_at(self.progress.lives[self.progress.life], folder)


def replay_share(base, entries, lives, effort, share, shares):
    """What one of several workers has judged, by the states' digests: each takes its cuts."""
    memory = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
    with tempfile.TemporaryDirectory(dir=memory, prefix="power-loss-") as work:
        examiner = Examiner(lives, Path(work))
        disk = Disk(base)
        for position, following in enumerate([*entries, None]):
            # From the first save on, and until the guest leaves a life's folder.
            if examiner.progress.saving and position % shares == share:
                chance = chance_of_cut(effort.seed, position)
                for state in states_at_cut(disk, following, chance, effort.subsets, effort.torn):
                    examiner.examine(position, state)
            if isinstance(following, Mark):
                examiner.progress.take(following.words)
            elif following:
                disk.take(following)
        return examiner.judged


def replay(base, entries, lives, effort, workers=None):
    """All states of a log, by their digests."""
    workers = workers or os.cpu_count() or 1
    judged = {}
    with ProcessPoolExecutor(workers) as pool:
        shares = [pool.submit(replay_share, base, entries, lives, effort, share, workers)
                  for share in range(workers)]
        for share in shares:
            for digest, state in share.result().items():
                judged[digest] = judged[digest].merged(state) if digest in judged else state
    return judged
