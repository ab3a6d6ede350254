"""What was sent, what arrived, and which line of docs/delivery.md excuses what did not."""

import bisect
import collections
from dataclasses import dataclass

EVENTS, MESSAGES = "events to MQTT", "MQTT to events"
# What the MQTT client has under way at most, and may send again when the connection has broken.
UNDER_WAY = 200


class Lane:
    """The numbers 1, 2, 3, ... that travel one way by one QoS: which were sent, which arrived."""

    def __init__(self, name, direction, qos):
        self.name = name
        self.direction = direction
        self.qos = qos
        self.sent = 0
        self.arrived = []  # ascending
        self.again = []
        self.late = []  # (number, the higher one before it)
        self.known = set()

    def arrive(self, number):
        if number in self.known:
            self.again.append(number)
            return
        self.known.add(number)
        if number < self.highest:
            self.late.append((number, self.highest))
        else:
            self.arrived.append(number)

    @property
    def highest(self):
        """The highest number that has arrived, 0 before there is one."""
        return self.arrived[-1] if self.arrived else 0

    def first_behind(self, number):
        """The first arrival with a higher number, or None."""
        place = bisect.bisect_right(self.arrived, number)
        return self.arrived[place] if place < len(self.arrived) else None

    def missing(self):
        return [number for number in range(1, self.sent + 1) if number not in self.known]


@dataclass
class Window:
    """
    A line of the contract at work: of a lane's numbers behind one up to another, any may be lost,
    or at most so many. Numbers that were under way may also come again, where the line says so.
    """

    lane: Lane
    line: str
    behind: int
    last: int
    most: int | None = None
    repeats: bool = False
    used: int = 0

    def excuses(self, number):
        return self.behind < number <= self.last and (self.most is None or self.used < self.most)

    def lets_come_again(self, number):
        return self.repeats and self.behind - UNDER_WAY < number <= self.last


def runs(numbers):
    """Ascending numbers in words, neighbours as one."""
    first_and_last = []
    for number in numbers:
        if first_and_last and number == first_and_last[-1][1] + 1:
            first_and_last[-1][1] = number
        else:
            first_and_last.append([number, number])
    return [f"number {first}" if first == last else f"numbers {first} to {last}"
            for first, last in first_and_last]


def judge_lane(lane, windows):
    """How many numbers each line excuses, and in words what none does."""
    lost, inexcusable = collections.Counter(), []
    own = [window for window in windows if window.lane is lane]
    for number in lane.missing():
        window = next((window for window in own if window.excuses(number)), None)
        if window is None:
            inexcusable.append(number)
            continue
        window.used += 1
        lost[window.line] += 1
    found = [f"{lane.name}: {run} got lost, and no line allows it" for run in runs(inexcusable)]
    found += [f"{lane.name}: number {number} came twice" for number in lane.again
              if not any(window.lets_come_again(number) for window in own)]
    found += [f"{lane.name}: number {number} came behind {higher}" for number, higher in lane.late]
    unsent = [number for number in lane.known if not 1 <= number <= lane.sent]
    found += [f"{lane.name}: number {number} came and was never sent" for number in unsent]
    return lost, found
