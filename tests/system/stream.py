"""A stream of numbered device events from another process, and what of it reaches the broker."""

import math
import re
import subprocess
import threading
import time

from bridge import LOGS
from publishing import HeldEvent
from waiting import DEADLINE_SECONDS, wait_until

# Slow enough for a busy machine with the address sanitizer: the event service keeps about 2,000 of
# these events for a consumer that falls behind.
RATE = 500
TOPIC = "tnsnorq:Stream"
FILTER = "norq:Stream"
FILLER = "x" * 4000
# Of the message that an event becomes, with some room for what the JSON document adds.
EVENT_BYTES = len(FILLER) + 1000


class GrowingLog:
    """The lines of a service's log, each taken once."""

    def __init__(self, name):
        self.path = LOGS / f"{name}.log"
        self.position = 0
        self.rest = b""

    def new_lines(self):
        if not self.path.exists():
            return []
        with open(self.path, "rb") as file:
            file.seek(self.position)
            text = file.read()
        self.position += len(text)
        *lines, self.rest = (self.rest + text).split(b"\n")
        return [line.decode(errors="replace") for line in lines]

    def wait_for(self, text):
        """Waits for a line with this text among those not taken yet; takes all up to now."""
        wait_until(lambda: any(text in line for line in self.new_lines()), f"a line has '{text}'")


class Stream:
    """
    Sends events with the numbers 1, 2, 3, ... at a rate in events a second while it runs. The number
    stands in the topic of the message that an event becomes.

    While `ahead` is set, it waits when that many events have not reached the broker yet: a busy
    machine has a slower stream then, not a service that is flooded.
    """

    def __init__(self, rate=RATE):
        self.rate = rate
        self.ahead = None
        self.arrivals = Arrivals()
        self.event = HeldEvent("--topic", TOPIC, "--tag", "number=onvif-source", "number:int",
                               f"filler={FILLER}")
        self.sent = 0
        self.stopping = threading.Event()
        self.thread = None
        # What the tool complains about while the event service is away must not hold it up.
        self.complaints = threading.Thread(target=self.event.process.stderr.read)
        self.complaints.start()

    def run(self):
        self.stopping.clear()
        self.thread = threading.Thread(target=self._feed)
        self.thread.start()

    def _feed(self):
        begin, before = time.monotonic(), self.sent
        while not self.stopping.wait(0.005):
            now, furthest = time.monotonic(), self._furthest()
            due = before + int((now - begin) * self.rate)
            if due > furthest:
                begin, before, due = now, furthest, furthest
            # In small portions: whoever stops the stream is not to wait for all that is overdue.
            self._send(min(due, self.sent + 10))

    def _furthest(self):
        ahead = self.ahead
        return math.inf if ahead is None else max(self.sent, self.arrivals.last() + ahead)

    def _send(self, last):
        numbers = range(self.sent + 1, last + 1)
        # Before they are: whoever reads it may rely on it that higher numbers are sent later.
        self.sent = last
        self.event.send(*(f"number={number}" for number in numbers))

    def stop(self):
        if self.thread:
            self.stopping.set()
            self.thread.join()
            self.thread = None

    def pause(self):
        """
        Stops the stream; the number of its last event. When it returns, the event service has
        handed over every event.
        """
        self.stop()
        watcher = subprocess.Popen(
            ["norq-event", "watch", "--topic", TOPIC, "--match", f"number={self.sent + 1}",
             "--count", "1", "--timeout", str(DEADLINE_SECONDS)],
            stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        assert watcher.stderr.readline() == "watching\n"
        self._send(self.sent + 1)
        assert watcher.wait(timeout=2 * DEADLINE_SECONDS) == 0
        watcher.stderr.close()
        return self.sent

    def close(self):
        self.stop()
        self.event.process.stdin.close()
        self.event.process.wait(timeout=2 * DEADLINE_SECONDS)
        self.complaints.join()
        self.event.process.stderr.close()


class Arrivals:
    """
    The events of the stream that the broker got, by the broker's own log. It also tells whether the
    service marked a message as one that it may have sent before.
    """

    PUBLISH = re.compile(r"Received PUBLISH from \S+ \(d([01]), q\d, r\d, m\d+, "
                         r"'[^']*/\$source/number/(\d+)'")

    def __init__(self):
        self.log = GrowingLog("broker")
        self.messages = []
        self.highest = 0

    def update(self):
        """All so far, in their order: (number, whether marked as sent again)."""
        for line in self.log.new_lines():
            found = self.PUBLISH.search(line)
            if found:
                number, again = int(found[2]), found[1] == "1"
                self.messages.append((number, again))
                self.highest = max(self.highest, number)
        return self.messages

    def last(self):
        """The highest number so far, 0 when there is none."""
        self.update()
        return self.highest

    def wait_for(self, number, seconds=DEADLINE_SECONDS):
        """Waits for an event with this number or a higher one."""
        wait_until(lambda: self.last() >= number, f"event {number} arrives", seconds)

    def wait_for_run(self, length, behind):
        """Waits until the last events are that many without a gap, all with higher numbers."""
        def flows():
            numbers = [number for number, _ in self.update()[-length:]]
            return numbers == list(range(self.highest - length + 1, self.highest + 1)) and (
                numbers[0] > behind)
        wait_until(flows, f"{length} events behind event {behind} arrive without a gap")

    def first_times(self):
        """
        The numbers in the order of their first arrival. Fails the test when one comes again that is
        not marked: the service itself has then published it twice.
        """
        known, numbers = set(), []
        for number, again in self.update():
            if number not in known:
                numbers.append(number)
                known.add(number)
            else:
                assert again, f"event {number} was published twice"
        return numbers

    def times_again(self):
        """How many messages came a second time."""
        return len(self.messages) - len(self.first_times())


def gaps(numbers):
    """The runs that are missing in an ascending sequence: (first missing, last missing) each."""
    assert numbers == sorted(numbers), "events arrived out of order"
    return [(before + 1, after - 1) for before, after in zip(numbers, numbers[1:])
            if after > before + 1]
