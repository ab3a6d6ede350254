"""
Cuts the power of a guest that runs the service, again and again, and looks whether its two
configuration files survive. docs/power-loss.md tells the whole of it; scripts/power-loss runs it.
"""

import argparse
import shutil
import sys
import time
from collections import Counter
from dataclasses import dataclass
from pathlib import Path

import guest
from configuration_files import FILES
from judge import BROKEN, LOST, STALE, TORN
from plan import make_lives, text_of_life
from power_cuts import KINDS, PREFIX, SUBSET, ignore_flushes
from replay import Effort, replay
from write_log import SECTOR, Mark, read_log

LIVES = 4
# Of either file in a life; with fewer the controls could be found out or not, as it happens.
FEWEST_SAVES = 6
# What a save gives at the least, measured: the number of saves follows from the states wanted.
STATES_PER_SAVE = 14
# At each cut, as many random states.
SUBSETS, TORN_WRITES = 2, 1
SHOWN_FINDINGS = 20


@dataclass(frozen=True)
class Control:
    """Something that is wrong on purpose, and what must be found of it."""

    title: str
    must_find: tuple
    skip: str = ""


CONTROLS = (Control("the folder is not flushed", (LOST, STALE), skip="folder"),
            Control("the file is not flushed", (TORN,), skip="file"))
LYING_DISK = Control("the disk ignores flushes within a save", (TORN, BROKEN))


class Bench:
    """A guest that goes through these lives, and what becomes of its disk."""

    def __init__(self, name, told, lives):
        self.kernel, self.work, self.seed = guest.Kernel(told.kernel), told.work, told.seed
        self.lives = lives
        texts = {f"life-{number}": text_of_life(number, saves)
                 for number, saves in enumerate(lives)}
        self.root = guest.make_root(self.work / f"{name}.root", told.build, self.kernel, texts)
        self.base = self.work / f"{name}.base"
        guest.make_disk(self.base)

    def record(self, name, skip=""):
        """The log of the guest's writes, from mounting the disk to its end."""
        disk, log = self.work / f"{name}.disk", self.work / f"{name}.log"
        shutil.copy(self.base, disk)
        guest.boot(self.kernel, self.root, disk, log, self.work / f"{name}.console",
                   seconds=600 + 10 * self.saves(), skip=skip)
        entries = read_log(log, guest.FILE_SYSTEM_SIZE // SECTOR)
        done = sum(isinstance(entry, Mark) and entry.words[0] == "done" for entry in entries)
        if done != self.saves():
            raise guest.GuestFailed(f"{done} of {self.saves()} saves are marked in the log")
        return entries

    def saves(self):
        """How many saves there are in all lives."""
        return sum(map(len, self.lives))

    def replay(self, entries, subsets, torn):
        """All states of a log, judged."""
        return list(replay(self.base.read_bytes(), entries, self.lives,
                           Effort(self.seed, subsets, torn)).values())


def first_life(entries):
    """The log until the guest's second life begins: enough to find out what goes wrong often."""
    marks = [position for position, entry in enumerate(entries)
             if isinstance(entry, Mark) and entry.words[0] == "life"]
    return entries[:marks[1]] if len(marks) > 1 else entries


def say(text=""):
    print(text, flush=True)


def violations_by_kind(judged):
    """How many states show each kind of violation."""
    return Counter(kind for state in judged for kind in {each.kind for each in state.findings})


def report_service(bench, judged, wanted):
    """Says what was found of the service; whether that is what must be."""
    counts = Counter((state.saving, state.kind) for state in judged)
    say(f"{'states while saving':24}" + "".join(f"{kind:>12}" for kind in KINDS))
    for name in FILES:
        say(f"{name:24}" + "".join(f"{counts[name, kind]:12}" for kind in KINDS))
    wrong = [state for state in judged if state.findings]
    say(f"{len(judged)} different states of {bench.saves()} saves, both files looked at in each: "
        f"{len(wrong)} with a violation")
    findings = sorted(finding for state in wrong for finding in state.findings)
    for each in findings[:SHOWN_FINDINGS]:
        say(f"  cut before entry {each.position}, {each.state_kind}: {each.kind}: {each.detail}")
    too_few = [name for name in FILES if counts[name, PREFIX] + counts[name, SUBSET] < wanted]
    for name in too_few:
        say(f"FAILED: fewer than {wanted} prefixes and subsets while saving {name}")
    return not wrong and not too_few


def report_control(control, judged):
    """Says what was found of a defect made on purpose; whether it was found."""
    found = violations_by_kind(judged)
    wrong = sum(bool(state.findings) for state in judged)
    told = ", ".join(f"{kind} {count}" for kind, count in sorted(found.items()))
    say(f"control, {control.title}: {wrong} of {len(judged)} states with a violation ({told})")
    seen = any(found[kind] for kind in control.must_find)
    if not seen:
        say(f"FAILED: nothing {' or '.join(control.must_find)} was found")
    return seen


def arguments():
    parser = argparse.ArgumentParser(prog="scripts/power-loss")
    parser.add_argument("--states", type=int, default=1000,
                        help="at least so many different prefixes and subsets for each file "
                             "(default: 1000)")
    parser.add_argument("--seed", default="1", help="of all that is random (default: 1)")
    parser.add_argument("--build", type=Path, required=True, help=argparse.SUPPRESS)
    parser.add_argument("--kernel", type=Path, required=True, help=argparse.SUPPRESS)
    parser.add_argument("--work", type=Path, required=True, help=argparse.SUPPRESS)
    result = parser.parse_args()
    if result.states < 1:
        parser.error("--states must be 1 or more")
    return result


def run(told, stage):
    """Records, replays and judges; whether all is as it must be."""
    saves_of_life = max(FEWEST_SAVES, -(-told.states // (LIVES * STATES_PER_SAVE)))
    bench = Bench("service", told, make_lives(told.seed, LIVES, saves_of_life))
    stage(f"the guest makes {bench.saves()} saves")
    entries = bench.record("service")
    stage(f"replaying {len(entries)} entries of the log")
    good = report_service(bench, bench.replay(entries, SUBSETS, TORN_WRITES), told.states)
    stage("controls")
    lied = list(ignore_flushes(first_life(entries)))
    good &= report_control(LYING_DISK, bench.replay(lied, subsets=4, torn=0))
    bench = Bench("controls", told, bench.lives[:1])
    for control in CONTROLS:
        entries = bench.record(f"without-{control.skip}", control.skip)
        good &= report_control(control, bench.replay(entries, subsets=1, torn=0))
    return good


def main():
    started = time.monotonic()

    def stage(text):
        say(f"-- {time.monotonic() - started:4.0f} s: {text}")

    try:
        good = run(arguments(), stage)
    except guest.GuestFailed as error:
        say(f"The guest failed:\n{error}")
        good = False
    stage("nothing is torn, lost or stale, and every control was found out" if good else "FAILED")
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main())
