"""Takes down what arrives: at the broker by its own log, on the device by a watcher of events."""

import os
import queue
import re
import threading

from bridge import LOGS, Event, Watcher
from configuration import MARK_EVENT, MARK_TOPIC
from ledger import EVENTS
from stream import GrowingLog

TICK_SECONDS = 0.05
SERVICES = ("tovrel", "eventd", "deviced")
MARK_LEVEL = MARK_EVENT.partition(":")[2]


class EmptiedLog(GrowingLog):
    """A log that grows by so much in an hour that it is emptied while its service does not run."""

    def empty(self):
        """Empties the log; its last lines, which may be cut."""
        lines = self.new_lines()
        os.truncate(self.path, 0)
        self.position, self.rest = 0, b""
        return lines


class Broker:
    """What the broker got of the service, and handed to it, line by line of the broker's log."""

    PUBLISH = re.compile(r"Received PUBLISH from \S+-tovrel \(d\d, q(\d), r\d, m(\d+), '(.*)', ")
    NUMBER = re.compile(r"/Soak/(?:[^/]*/)?(Q\d)/\$source/number/(\d+)$|"
                        rf"/(?:norq/)?{MARK_LEVEL}$")
    COMPLETED = re.compile(r"Received PUBREL from \S+-tovrel \(Mid: (\d+)\)")
    CONNECTED = re.compile(r"New client connected from \S+ as \S+-tovrel ")
    HANDED_MARK = re.compile(rf"Sending PUBLISH to \S+-tovrel \(.*'{MARK_TOPIC}'")

    def __init__(self, lanes):
        self.lanes = {lane.name: lane for lane in lanes if lane.direction == EVENTS}
        self.incomplete = {}  # messages of QoS 2 by their id: (lane, number)
        self.connections = 0
        # In which connections the marks of the directions came.
        self.marks_published = []
        self.marks_handed = []

    def take(self, line):
        if "-tovrel" not in line:
            return
        if found := self.PUBLISH.search(line):
            self._published(*found.groups())
        elif found := self.COMPLETED.search(line):
            if complete := self.incomplete.pop(found[1], None):
                complete[0].arrive(complete[1])
        elif self.HANDED_MARK.search(line):
            self.marks_handed.append(self.connections)
        elif self.CONNECTED.search(line):
            self.connections += 1
            self.incomplete.clear()

    def _published(self, qos, message_id, topic):
        found = self.NUMBER.search("/" + topic)
        assert found, f"what is published on {topic}?"
        if not found[1]:
            self.marks_published.append(self.connections)
            return
        lane, number = self.lanes[found[1]], int(found[2])
        assert int(qos) == lane.qos, f"{topic} has QoS {qos}"
        if lane.qos == 2:
            self.incomplete[message_id] = lane, number
        else:
            lane.arrive(number)


class Arrivals:
    """Reads all there is to read, in a thread of its own, until it is closed."""

    def __init__(self, lanes):
        self.lock = threading.Lock()  # of the logs
        self.message_lanes = {lane.name: lane for lane in lanes if lane.direction != EVENTS}
        self.broker_log = EmptiedLog("broker")
        self.broker = Broker(lanes)
        self.logs = {name: GrowingLog(name) for name in SERVICES}
        for log in self.logs.values():
            log.new_lines()  # what was there before all
        self.episode = None
        self.watcher = Watcher()
        self.complaints = threading.Thread(target=self.watcher.watching.process.stderr.read,
                                           daemon=True)
        self.complaints.start()
        self.failure = None
        self.stopping = threading.Event()
        self.thread = threading.Thread(target=self._run, daemon=True)
        self.thread.start()

    def belong_to(self, episode):
        """From now on the lines of the services' logs belong to this episode."""
        with self.lock:
            if self.episode:
                self._take_service_lines()
            self.episode = episode

    def empty_broker_log(self):
        """To be called while the broker does not run."""
        with self.lock:
            for line in self.broker_log.empty():
                self.broker.take(line)

    def _run(self):
        try:
            while not self.stopping.wait(TICK_SECONDS):
                with self.lock:
                    self._take_all()
        except Exception as failure:  # whatever it is, the main thread has to know
            self.failure = failure
            raise

    def _take_all(self):
        for line in self.broker_log.new_lines():
            self.broker.take(line)
        if self.episode:
            self._take_service_lines()
        self._take_events()

    def _take_service_lines(self):
        for name, log in self.logs.items():
            self.episode.lines += [(name, line) for line in log.new_lines() if line]

    def _take_events(self):
        while True:
            try:
                line = self.watcher.watching.lines.get_nowait()
            except queue.Empty:
                return
            assert line is not None, "the watcher has ended"
            event = Event(line)
            if event.topic != MARK_TOPIC:
                self._arrived(event)

    def _arrived(self, event):
        lane = self.message_lanes[event.topic]
        kind = "Stateful" if lane.name == "soak/state" else "Stateless"
        assert event.kind == kind, event
        # A property's last value is given to whoever subscribes, marked so.
        if event.document.get("PropertyOperation") != "Initialized":
            lane.arrive(int(event.payload))

    def check(self):
        if self.failure:
            raise AssertionError("reading what arrives has failed") from self.failure

    def stop(self):
        self.stopping.set()
        self.thread.join()

    def close(self):
        """Takes all there is by now, and ends."""
        self.stop()
        with self.lock:
            self._take_all()
        self.watcher.close()
        self.check()
