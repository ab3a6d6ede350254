"""The bridge as it stands on a device, and its events, whatever broker its settings name."""

import collections
import configparser
import itertools
import queue
import time
from pathlib import Path

from bridge import ETC, Event, Watcher, call_service, configure, control, item, log_of
from bridge import service_pid
from brokers.process import HOST
from publishing import HeldEvent, configure_publication, wait_for_connection
from waiting import DEADLINE_SECONDS, wait_until

SETTINGS = Path("/etc/norq/mqtt.conf")
EVENT = "tnsnorq:Interoperability"
FILTER = "norq:Interoperability//."
# The payload of messages that only find out whether they arrive.
PROBE = "probe"


class Device:
    """
    The service with its settings. Each one has a client id and topics of its own, so that nothing
    a broker keeps of one reaches another.
    """

    numbers = itertools.count(1)

    def __init__(self, broker):
        self.name = f"device{next(self.numbers)}"
        self.prefix = f"devices/{self.name}"
        self.topic = f"site/{self.name}"
        self.settings = {
            "client": {"device-topic-prefix": self.prefix},
            "broker": {"host": HOST, "port": broker.port, "client-id": self.name},
        }
        if broker.highest_qos < 2:
            self.set("broker", maximum_qos=broker.highest_qos)
        self.log_begin = 0
        self.forget_log()

    # settings

    def set(self, group, **values):
        """Sets keys of a group of the settings, with "_" for "-"."""
        keys = self.settings.setdefault(group, {})
        keys.update({key.replace("_", "-"): str(value) for key, value in values.items()})

    def use_tls(self, broker, authority, identity=None, **values):
        self.set("broker", port=broker.tls_port)
        self.set("tls", ca_file=authority.root.certificate, **values)
        if identity:
            self.set("tls", cert_file=identity.certificate, key_file=identity.key)

    def keep_session(self):
        self.set("broker", clean_session="false")

    # running

    def start(self, *items, filters=(), **publication):
        """
        Starts the service with items and event filters. An item of its own, the last one, tells
        when the broker has them all.
        """
        parser = configparser.ConfigParser(interpolation=None)
        parser.read_dict(self.settings)
        with SETTINGS.open("w", encoding="utf-8") as file:
            parser.write(file, space_around_delimiters=False)
        configure(*items, item(255, self.probe_topic))
        if filters:
            configure_publication(*filters, **{"namespaces": False, **publication})
        call_service()

    def again(self):
        """Starts the service once more, with what it was started with before."""
        call_service()

    def wait_until_connected(self, connected=True):
        wait_for_connection(connected)

    @property
    def log(self):
        """What the service has logged for this device."""
        return log_of("tovrel")[self.log_begin:]

    def wait_for_log(self, text):
        wait_until(lambda: text in self.log, f"the service logs '{text}'")

    def forget_log(self):
        self.log_begin = len(log_of("tovrel"))

    def end(self):
        """Ends the service, which takes no leave of the broker."""
        control("stop", "tovrel")

    def close(self):
        if service_pid():
            self.end()
        for path in ETC.iterdir():
            path.unlink()

    # messages to events

    @property
    def probe_topic(self):
        return f"{self.topic}/probe"

    def wait_until_listening(self, client, events):
        """Waits until messages of a client become events."""
        for number in itertools.count():
            assert number < DEADLINE_SECONDS * 4, "no message becomes an event"
            client.publish(self.probe_topic, PROBE)
            if events.has_probe(self.probe_topic, 0.25):
                return


class Events(Watcher):
    """All events that the service makes of messages, from before its start; no probes."""

    def __init__(self):
        super().__init__()
        self.before = collections.deque()

    def has_probe(self, topic, seconds):
        """Waits for an event of this topic; what else comes is kept."""
        deadline = time.monotonic() + seconds
        while (left := deadline - time.monotonic()) > 0:
            try:
                event = Event(self.watching.lines.get(timeout=left))
            except queue.Empty:
                return False
            if event.topic == topic:
                return True
            self.before.append(event)
        return False

    def next(self):
        return self.before.popleft() if self.before else super().next()

    def until(self, payload):
        """The events up to the one with this payload, but without it."""
        events = []
        while (event := self.next()).payload != payload:
            if event.payload != PROBE:
                events.append(event)
        return events

    def payloads_until_all(self, payloads):
        """The payloads that arrive, up to the last one of a set."""
        missing, arrived = set(payloads), []
        while missing:
            payload = self.next().payload
            if payload != PROBE:
                arrived.append(payload)
                missing.discard(payload)
        return arrived

    def payloads_until(self, payload):
        return [event.payload for event in self.until(payload)]


class NumberedEvents:
    """A producer on the device, whose events bear numbers; the event 0 is a property's value."""

    TOPIC = "event/Interoperability/Number"

    def __init__(self, *items):
        self.event = HeldEvent("--property", "number", "--topic", f"{EVENT}/Number", "number:int=0",
                               *items)

    def send(self, numbers):
        self.event.send(*(f"number={number}" for number in numbers))

    def close(self):
        self.event.close()


def number_in(message):
    """The number that a message of NumberedEvents bears."""
    return message.document["Data"]["number"]


def numbers_until(subscriber, last):
    """The numbers of the messages up to the first one that bears the last number."""
    messages = subscriber.until(lambda message: number_in(message) == last)
    return [number_in(message) for message in messages]
