"""
Starts of the service before its broker is there. Run inside a sandbox of its own:

    late_broker.py broker|name ROUNDS

"broker": nothing listens at the broker's address at first. "name": the name of the broker is not
known at first. Each round starts the service anew and ends when messages have flowed in both
directions. Prints a line for each round: the seconds until the service was connected.
"""

import contextlib
import re
import sys
import time
from pathlib import Path

from bridge import HOST, PORT, Watcher, call_service, configure, control, item, publish
from publishing import HeldEvent, configure_publication, event_filter
from stream import GrowingLog
from waiting import wait_until

HOSTS = Path("/etc/hosts")
NAME = "broker.example"
# The longest distance of two attempts to reach the broker.
BACK_OFF_SECONDS = 30
FAILED_ATTEMPT = "MQTT: cannot connect"


class LateBroker:
    """The broker itself comes late."""

    def go_away(self):
        control("kill", "broker")

    def appear(self):
        control("start", "broker")


class LateName:
    """The broker is there, but nobody knows it by its name."""

    def __init__(self):
        Path("/etc/nsswitch.conf").write_text("hosts: files\n", encoding="ascii")
        Path("/etc/norq/mqtt.conf").write_text(f"[broker]\nhost={NAME}\nport={PORT}\n",
                                               encoding="ascii")

    def go_away(self):
        HOSTS.write_text("127.0.0.1 localhost\n", encoding="ascii")

    def appear(self):
        HOSTS.write_text(f"127.0.0.1 localhost\n{HOST} {NAME}\n", encoding="ascii")


class RoundOfBroker:
    """What the broker logs in one round."""

    def __init__(self):
        self.log = GrowingLog("broker")
        self.log.new_lines()
        self.lines = []

    def wait_for(self, pattern):
        wait_until(lambda: self._has(pattern), f"the broker logs {pattern}", BACK_OFF_SECONDS)

    def _has(self, pattern):
        self.lines += self.log.new_lines()
        return any(re.search(pattern, line) for line in self.lines)


def play(number, late, event, events):
    """One round; the seconds from the appearance of the broker until the service is connected."""
    broker, service_log = RoundOfBroker(), GrowingLog("tovrel")
    service_log.new_lines()
    late.go_away()
    # A property: the service gets its value as soon as it has subscribed its filter.
    event.send(f"number={number}")
    call_service()
    service_log.wait_for(FAILED_ATTEMPT)

    begin = time.monotonic()
    late.appear()
    broker.wait_for(r"\tlate/# \(QoS 0\)$")
    seconds = time.monotonic() - begin
    publish(f"late/{number}", "message")
    broker.wait_for(rf"Received PUBLISH from \S+-tovrel .*/\$source/number/{number}'")
    assert events.next().topic == f"late/{number}"
    control("kill", "tovrel")
    return seconds


def main(kind, rounds):
    configure(item(0, "late/#"))
    configure_publication(event_filter("norq:Late", qos=0))
    late = {"broker": LateBroker, "name": LateName}[kind]()
    with (contextlib.closing(Watcher()) as events,
          contextlib.closing(HeldEvent("--topic", "tnsnorq:Late", "--property", "number", "--tag",
                                       "number=onvif-source", "number:int")) as event):
        for number in range(1, rounds + 1):
            print(f"connected after {play(number, late, event, events):.2f} s", flush=True)


if __name__ == "__main__":
    main(sys.argv[1], int(sys.argv[2]))
