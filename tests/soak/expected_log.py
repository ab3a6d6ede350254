"""Every line that the services may log, and how often each cause lets them."""

import collections
import re
from dataclasses import dataclass

from causes import Cause

ANY_NUMBER = None
OVERFLOW = "Too many queued events, dropping the oldest one"
NOT_SENT = "Could not send stateless MQTT event: "


@dataclass(frozen=True, eq=False)
class Expected:
    """Lines of one kind: a pattern for the whole line, and for each cause the most there may be."""

    log: str
    kind: str
    pattern: str
    most: dict

    def matches(self, log, line):
        return log == self.log and re.fullmatch(self.pattern, line) is not None

    def allowed(self, causes):
        """How many lines the causes allow together, or None for any number."""
        numbers = [self.most[cause] for cause in causes if cause in self.most]
        return ANY_NUMBER if ANY_NUMBER in numbers else sum(numbers)


def once(log, text, *causes):
    """A line with this text, once for each of the causes."""
    return Expected(log, text, re.escape(text), {cause: 1 for cause in causes})


def client_lines(log, client):
    """What a client of the event service says when that goes and returns."""
    lost = f"Client '{client}' lost the event service"
    back = f"The event service is there again for client '{client}'"
    return (Expected(log, lost, rf"\S+: warning: {lost}: .+", {Cause.EVENT_SERVICE: 1}),
            Expected(log, back, rf"\S+: info: {back}", {Cause.EVENT_SERVICE: 1}))


EXPECTED = (
    once("tovrel", "tovrel: info: tovrel starting", Cause.START),
    once("tovrel", "tovrel: info: Created dbus handler", Cause.START),
    once("tovrel", "tovrel: info: Created event producer", Cause.START),
    once("tovrel", "tovrel: info: Created consumer handler", Cause.START),
    Expected("tovrel", "MQTT: connected", r"tovrel: info: MQTT: connected to \S+",
             {Cause.START: 1, Cause.BROKER: 1}),
    Expected("tovrel", "MQTT: disconnected", r"tovrel: warning: MQTT: disconnected from \S+: .+",
             {Cause.BROKER: 1}),
    # Once for a run of failures; a service that is started meanwhile has a run of its own.
    Expected("tovrel", "MQTT: cannot connect",
             r"tovrel: warning: MQTT: cannot connect to \S+: .+; trying again until it works",
             {Cause.BROKER: 1, Cause.KILL: 1}),
    once("tovrel", f"tovrel: info: {OVERFLOW}", Cause.OVERFLOW),
    Expected("tovrel", NOT_SENT, rf"tovrel: err: {NOT_SENT}.*",
             {Cause.EVENT_SERVICE: ANY_NUMBER}),
    Expected("tovrel", "Setting topic prefix setting",
             r"tovrel: info: Setting topic prefix setting to (default|custom|none)",
             {Cause.EVENTS_CHANGED: 1}),
    Expected("tovrel", "Trying to remove filter",
             r"tovrel: info: Trying to remove filter with id: \S+", {Cause.EVENTS_CHANGED: 1}),
    # By the shell that stands in for the service manager.
    Expected("tovrel", "Killed", r"\S+: line \d+: +\d+ Killed +.*", {Cause.KILL: 1}),
    *client_lines("tovrel", "tovrel"),
    *client_lines("tovrel", "Tovrel"),
    *client_lines("tovrel", "mqtt-client"),
    once("eventd", "norq-eventd: info: The event service is ready", Cause.EVENT_SERVICE),
    *client_lines("deviced", "norq-deviced"),
)


def judge_log(episodes):
    """How many lines of each kind there are, and in words those that nobody expected."""
    counts, found = collections.Counter(), []
    for episode in episodes:
        causes = [cause for cause, _ in episode.causes]
        here = collections.Counter()
        for log, line in episode.lines:
            expected = next((each for each in EXPECTED if each.matches(log, line)), None)
            if expected is None:
                found.append(f"{log} logs in or after '{episode.name}': {line}")
                continue
            here[expected] += 1
            counts[f"{log}: {expected.kind}"] += 1
        for expected, count in here.items():
            allowed = expected.allowed(causes)
            if allowed is not ANY_NUMBER and count > allowed:
                found.append(f"{expected.log} logs {count} times, not {allowed}, in or after "
                             f"'{episode.name}': {expected.kind}")
    return counts, found
