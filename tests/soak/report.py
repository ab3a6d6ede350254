"""What came out of it: the figures, and everything that should not have been."""

import collections

from causes import Cause
from expected_log import NOT_SENT, judge_log
from ledger import judge_lane
from resources import MIB, judge_resources

# Of a lane's numbers. With less, the excuses would leave nothing to judge.
LEAST_IN_QUIET = 0.5


def judge_losses(lanes, episodes):
    """What each lane lost by which line, and in words what no line allows."""
    windows = [window for episode in episodes for window in episode.windows]
    losses, found = {}, []
    for lane in lanes:
        losses[lane], wrong = judge_lane(lane, windows)
        found += wrong
    return losses, found


def judge_refusals(losses, lines):
    """Each event that could not be sent was a message, and is lost."""
    refused = sum(count for kind, count in lines.items() if NOT_SENT in kind)
    lost = sum(counts["M9"] for counts in losses.values())
    if refused <= lost:
        return []
    return [f"{refused} events could not be sent, but only {lost} messages were lost meanwhile"]


def traffic_lines(losses):
    for lane, counts in losses.items():
        by_line = ", ".join(f"{line} {count}" for line, count in sorted(counts.items()))
        yield (f"  {lane.direction}, QoS {lane.qos} ({lane.name}): sent {lane.sent}, arrived "
               f"{len(lane.known)}, again {len(lane.again)}, lost {lane.sent - len(lane.known)}"
               f"{': ' + by_line if by_line else ''}")


def share_in_quiet(lane, episodes):
    """The part of a lane's numbers that no line would have excused."""
    covered = {number for episode in episodes for window in episode.windows
               if window.lane is lane and window.most != 0
               for number in range(window.behind + 1, window.last + 1)}
    return 1 - len(covered) / max(lane.sent, 1)


def judge_excuses(lanes, episodes):
    """A lane whose losses were nearly all excused beforehand proves nothing."""
    return [f"{lane.name}: only {share_in_quiet(lane, episodes):.0%} had to arrive whatever happened"
            for lane in lanes if share_in_quiet(lane, episodes) < LEAST_IN_QUIET]


def incarnation_lines(incarnations, warm_up):
    for number, incarnation in enumerate(incarnations, 1):
        samples = incarnation.warm(warm_up)
        if not samples:
            yield f"  {number}: ended before it was warm"
            continue
        first, last = samples[0], samples[-1]
        yield (f"  {number}: at {first.age:.0f} s {first.rss / MIB:.2f} MiB and {first.count} "
               f"descriptors, at {last.age:.0f} s {last.rss / MIB:.2f} MiB and {last.count}; most "
               f"{max(sample.rss for sample in samples) / MIB:.2f} MiB")


class Report:
    """Judges a trial once, and tells it as text."""

    def __init__(self, trial, warm_up, heading):
        self.trial = trial
        self.warm_up = warm_up
        self.heading = heading
        self.found = list(trial.failures)
        self.losses, wrong = judge_losses(trial.lanes, trial.episodes)
        self.found += wrong
        self.lines, wrong = judge_log(trial.episodes)
        self.found += wrong
        self.found += judge_refusals(self.losses, self.lines)
        self.found += judge_excuses(trial.lanes, trial.episodes)
        self.found += judge_resources(trial.incarnations, warm_up)

    def text(self):
        causes = collections.Counter(cause for episode in self.trial.episodes
                                     for cause, _ in episode.causes)
        quiet = min(share_in_quiet(lane, self.trial.episodes) for lane in self.trial.lanes)
        parts = [self.heading, "what happened:",
                 f"  {self.trial.steps_made} configuration changes, "
                 f"{len(self.trial.episodes)} episodes",
                 *(f"  {cause.value}: {causes[cause]}" for cause in Cause),
                 "messages and events:", *traffic_lines(self.losses),
                 f"  at least {quiet:.0%} of each lane's numbers had to arrive whatever happened",
                 "the service's memory and descriptors:",
                 *incarnation_lines(self.trial.incarnations, self.warm_up),
                 f"  descriptors at the end: {self.trial.incarnations[-1].samples[-1].descriptors}",
                 "log lines:", *(f"  {count} {kind}" for kind, count in sorted(self.lines.items())),
                 *(f"WRONG: {text}" for text in self.found),
                 f"{len(self.found)} findings" if self.found else "nothing is wrong"]
        return "\n".join(parts)
