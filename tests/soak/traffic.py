"""Sends the numbered events and messages of the lanes, at a steady rate."""

import subprocess
import threading
import time

from bridge import HOST, PORT
from ledger import EVENTS
from publishing import HeldEvent
from waiting import DEADLINE_SECONDS

TICK_SECONDS = 0.05


class HeldProducer:
    """A producer on the device, which the event service's absence does not hold up for long."""

    def __init__(self, *arguments):
        self.event = HeldEvent("--timeout", "1", *arguments)
        # What the tool complains about meanwhile must not fill its pipe.
        self.complaints = threading.Thread(target=self.event.process.stderr.read, daemon=True)
        self.complaints.start()

    def send(self, *lines):
        self.event.send(*lines)

    def close(self):
        """When it returns, the event service has taken every event that it could."""
        self.event.process.stdin.close()
        self.event.process.wait(timeout=2 * DEADLINE_SECONDS)
        self.complaints.join()
        self.event.process.stderr.close()


class EventSource:
    """The events of a lane."""

    def __init__(self, lane):
        self.producer = HeldProducer("--topic", f"tnsnorq:Soak/tnsnorq:{lane.name}", "--tag",
                                     "number=onvif-source", "number:int")

    def send(self, numbers):
        self.producer.send(*(f"number={number}" for number in numbers))

    def close(self):
        self.producer.close()


class MessageSource:
    """The messages of a lane, by mosquitto_pub over one connection."""

    def __init__(self, lane):
        self.process = subprocess.Popen(
            ["mosquitto_pub", "-h", HOST, "-p", PORT, "-t", lane.name, "-q", str(lane.qos), "-l"],
            text=True, stdin=subprocess.PIPE, stderr=subprocess.DEVNULL)

    def send(self, numbers):
        self.process.stdin.write("".join(f"{number}\n" for number in numbers))
        self.process.stdin.flush()

    def give_up(self):
        """The broker is gone, and what is under way with it."""
        self.process.kill()
        self.process.wait()
        try:
            self.process.stdin.close()
        except BrokenPipeError:
            pass

    def close(self):
        """When it returns, the broker has every message."""
        self.process.stdin.close()
        assert self.process.wait(timeout=2 * DEADLINE_SECONDS) == 0


class Traffic:
    """Feeds every lane at a rate in numbers a second, from a thread of its own."""

    def __init__(self, lanes, rate):
        self.rate = rate
        self.lock = threading.Lock()  # of the sources
        self.sources = {lane: EventSource(lane) for lane in lanes if lane.direction == EVENTS}
        self.message_lanes = [lane for lane in lanes if lane.direction != EVENTS]
        self.open_messages()
        self.stopping = threading.Event()
        self.failure = None
        self.thread = threading.Thread(target=self._run, daemon=True)

    def start(self):
        self.thread.start()

    def open_messages(self):
        """The broker is there: messages flow (again)."""
        with self.lock:
            self.sources |= {lane: MessageSource(lane) for lane in self.message_lanes}

    def give_up_messages(self):
        """The broker is away: no messages until open_messages()."""
        with self.lock:
            for lane in self.message_lanes:
                self.sources.pop(lane).give_up()

    def _run(self):
        last, due = time.monotonic(), 0.0
        while not self.stopping.wait(TICK_SECONDS):
            now = time.monotonic()
            # After a stall of the machine the rate is kept, not the sum made up.
            due += min((now - last) * self.rate, 10 * TICK_SECONDS * self.rate)
            last = now
            count = int(due)
            due -= count
            with self.lock:
                for lane, source in self.sources.items():
                    self._send(lane, source, count)

    @staticmethod
    def _send(lane, source, count):
        numbers = range(lane.sent + 1, lane.sent + count + 1)
        lane.sent += count
        try:
            source.send(numbers)
        except BrokenPipeError:
            pass  # mosquitto_pub has noticed that the broker is gone; so will the episode

    def stop(self):
        self.stopping.set()
        if self.thread.is_alive():
            self.thread.join()

    def close(self):
        """When it returns, everything has been handed over."""
        for source in self.sources.values():
            source.close()
