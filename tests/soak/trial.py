"""The bridge under traffic: what the schedule does to it, and the wait until all flows again."""

import os
import signal
import time
from contextlib import contextmanager

from arrivals import Arrivals
from bridge import call_service, control, exit_statuses, publish, service_pid
from bus_clients import ConfigurationClient, request_text
from causes import Cause, Episode
from configuration import MARK_EVENT, MARK_TOPIC, new_lanes, write_files
from expected_log import OVERFLOW
from ledger import EVENTS, MESSAGES
from resources import Incarnation
from traffic import HeldProducer, Traffic
from waiting import wait_until

# Far more than anything takes: the MQTT client's attempts are up to 30 s apart.
SETTLE_SECONDS = 240
KILLED = 128 + signal.SIGKILL


class Trial:
    """The service, its traffic, and the record of all that happened."""

    def __init__(self, rate):
        self.lanes = new_lanes()
        self.episodes = []
        self.incarnations = []
        self.kills = 0
        self.steps_made = 0
        self.failures = []  # in words: what ended it early
        self.connections_before = 0  # the episode
        write_files()
        self._keep_mark_message()
        self.mark = HeldProducer("--property", "number", "--topic", MARK_EVENT, "number:int=0")
        self.client = ConfigurationClient()
        self.arrivals = Arrivals(self.lanes)
        self.broker = self.arrivals.broker
        self.traffic = Traffic(self.lanes, rate)

    @staticmethod
    def _keep_mark_message():
        """A broker that was killed has forgotten it."""
        publish(MARK_TOPIC, "mark", "-r", "-q", "1")

    # what happens

    @contextmanager
    def episode(self, name):
        """Within it anything may happen; at its end all flows again."""
        episode = Episode(name, self.lanes)
        self.episodes.append(episode)
        self.arrivals.belong_to(episode)
        self.connections_before = self.broker.connections
        self.broker.marks_published.clear()
        self.broker.marks_handed.clear()
        yield episode
        self.settle(episode)

    def start_service(self, episode):
        call_service()
        self.incarnations.append(Incarnation(service_pid()))
        self.incarnations[-1].take_sample()
        episode.happens(Cause.START)

    def kill_service(self, episode):
        os.kill(self.incarnations[-1].pid, signal.SIGKILL)
        self.kills += 1
        self.wait_until(lambda: len(exit_statuses()) == self.kills, "the service is gone")
        episode.happens(Cause.KILL)

    @contextmanager
    def broker_away(self, episode, plan):
        control(plan.broker_ends_by, "broker")
        self.traffic.give_up_messages()
        self.arrivals.empty_broker_log()
        episode.happens(Cause.BROKER)
        yield
        time.sleep(plan.broker_away)
        control("start", "broker")
        self._keep_mark_message()
        self.traffic.open_messages()

    @contextmanager
    def event_service_away(self, episode, plan):
        control(plan.event_service_ends_by, "eventd")
        episode.happens(Cause.EVENT_SERVICE)
        yield
        time.sleep(plan.event_service_away)
        control("start", "eventd")

    def change(self, episode, step):
        step.call(self.client)
        self._has_changed(episode, step)

    def _has_changed(self, episode, step):
        self.steps_made += 1
        for cause in step.causes:
            episode.happens(cause)

    def kill_during(self, episode, step, delay):
        """Calls for a change and kills the service some time behind the call."""
        operation, *path, data = step.request
        self.client.send(f"HandleRequest {request_text(operation, *path, data=data)}")
        time.sleep(delay)
        self.kill_service(episode)
        reply = self.client.reply()
        assert reply.startswith(("ok ", "error org.freedesktop.DBus.Error.NoReply")), reply
        self._has_changed(episode, step)

    # waiting

    def wait_until(self, condition, what):
        def checked():
            self.arrivals.check()
            return condition()
        wait_until(checked, what, SETTLE_SECONDS)

    def settle(self, episode):
        """Waits until the service has subscribed what it must, and every lane flows behind that."""
        causes = {cause for cause, _ in episode.causes}
        self._wait_for_marks(causes)
        reached = {lane: lane.sent for lane in self.lanes}
        if self.traffic.thread.is_alive():
            self.wait_until(lambda: all(lane.first_behind(reached[lane]) for lane in self.lanes),
                            f"everything flows after '{episode.name}'")
            reached = {lane: lane.first_behind(reached[lane]) - 1 for lane in self.lanes}
        if self._has_overflowed():
            episode.happens(Cause.OVERFLOW)
        episode.settled(reached)
        assert service_pid() == self.incarnations[-1].pid, "the service has ended by itself"
        assert exit_statuses() == [KILLED] * self.kills, exit_statuses()

    def _wait_for_marks(self, causes):
        """A new connection brings the marks that are due; without one they just come once more."""
        is_reconnected = bool(causes & {Cause.START, Cause.BROKER})
        newest = self.connections_before + is_reconnected
        if is_reconnected:
            self.wait_until(lambda: self.broker.connections >= newest, "the service is connected")
        if causes & {Cause.START, Cause.BROKER, Cause.MESSAGES_CHANGED}:
            self._wait_for_mark(self.broker.marks_handed, newest, f"mark of {MESSAGES}")
        if causes & {Cause.START, Cause.EVENT_SERVICE, Cause.EVENTS_CHANGED}:
            self._make_up_for_a_dropped_mark()
            self._wait_for_mark(self.broker.marks_published, newest, f"mark of {EVENTS}")

    def _has_overflowed(self):
        episode = self.episodes[-1]
        self.arrivals.belong_to(episode)  # whose lines are all there now
        return any(OVERFLOW in line for _, line in episode.lines)

    def _make_up_for_a_dropped_mark(self):
        """
        The mark was among the first that waited for the broker. When the queue has overflowed,
        what brought the mark about is long done, so that another one tells the same.
        """
        if self._has_overflowed():
            self.mark.send("number=0")

    def _wait_for_mark(self, marks, newest, what):
        self.wait_until(lambda: any(number >= newest for number in marks), what)

    def leave_alone(self, seconds, sample_every=5):
        """Lets the traffic flow, and looks at the service meanwhile."""
        end = time.monotonic() + seconds
        while True:
            self.arrivals.check()
            self.incarnations[-1].take_sample()
            rest = end - time.monotonic()
            if rest <= 0:
                return
            time.sleep(min(rest, sample_every))

    def finish(self):
        """Stops the traffic, and waits for what is under way as long as there is reason to."""
        self.traffic.stop()
        self.traffic.close()
        self.wait_until(lambda: all(lane.highest >= lane.sent for lane in self.lanes),
                        "the last of each lane arrives")

    def abandon(self, failure):
        """Ends early, and keeps what is known by now."""
        self.failures.append(f"ended early, in '{self.episodes[-1].name}': {failure}")
        self.traffic.stop()
        self.arrivals.stop()

    def close(self):
        self.arrivals.close()
        self.client.close()
        self.mark.close()
