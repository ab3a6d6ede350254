"""What the cases inside the sandbox do with the bridge and its neighbours."""

import json
import os
import re
import subprocess
from pathlib import Path

from lines import ProcessLines
from waiting import DEADLINE_SECONDS, wait_until

HOST = os.environ.get("SANDBOX_MQTT_HOST")
PORT = os.environ.get("SANDBOX_MQTT_PORT")
LOGS = Path(os.environ.get("SANDBOX_LOG_DIR", "/nonexistent"))
ETC = Path("/etc/tovrel")
ITEMS = ETC / "subscriptions_v2.conf"
LEGACY_ITEMS = ETC / "subscriptions.conf"


# configuration

def item(identifier, topic_filter, *, prefix=False, qos=0, stateful=False):
    """An MQTT-to-event item as it stands in the file."""
    return f"{identifier}\n{topic_filter}\n{prefix:d}\n{qos}\n{stateful:d}\n"


def configure(*items):
    ITEMS.write_text("".join(items))


def set_device_topic_prefix(prefix):
    with open("/etc/norq/mqtt.conf", "a", encoding="utf-8") as settings:
        settings.write(f"\n[client]\ndevice-topic-prefix={prefix}\n")


# the service

def call_service():
    """Calls the service on the bus, which starts it when it does not run."""
    subprocess.run(
        ["gdbus", "call", "--system", "--dest", "com.norq.Tovrel1", "--object-path",
         "/com/norq/Tovrel1", "--method", "org.freedesktop.DBus.Peer.Ping"],
        check=True, stdout=subprocess.PIPE, timeout=DEADLINE_SECONDS)


def start_with(*items, subscribed_as=None):
    """
    Configures the items, starts the service, and waits until the broker has their subscriptions:
    the items' filters, unless they are given as the broker is to see them.
    """
    configure(*items)
    filters = subscribed_as or [text.split("\n")[1] for text in items]
    before = [times_subscribed(topic_filter) for topic_filter in filters]
    call_service()
    for topic_filter, times in zip(filters, before):
        wait_for_subscription(topic_filter, times)


def control(*words):
    subprocess.run(["sandbox-service", *words], check=True, timeout=2 * DEADLINE_SECONDS)


def signal_neighbour(name, number):
    """Sends a signal to "bus", "broker", "eventd" or "deviced"."""
    pid = Path(os.environ["SANDBOX_DIR"], f"{name}.pid").read_text(encoding="ascii")
    os.kill(int(pid), number)


def service_pid():
    """The process id of the running service, or None."""
    status = subprocess.run(["sandbox-service", "status"], check=True, stdout=subprocess.PIPE,
                            text=True).stdout
    found = re.search(r"^tovrel: running, process (\d+)$", status, re.MULTILINE)
    return int(found[1]) if found else None


def kill_service():
    """Ends the service as a crash would, and waits until it is gone."""
    subprocess.run(["kill", "-KILL", str(service_pid())], check=True)
    wait_until(lambda: service_pid() is None, "the service is gone")


def log_of(name):
    path = LOGS / f"{name}.log"
    return path.read_text(encoding="utf-8", errors="replace") if path.exists() else ""


def exit_statuses():
    """The exit status of each run of the service that has ended."""
    path = LOGS / "tovrel.exits"
    return [int(line) for line in path.read_text().split()] if path.exists() else []


def wait_for_end_of_service():
    """The exit status of the service, once it has ended for the first time."""
    return wait_until(exit_statuses, "the service has ended")[0]


def wait_for_log(text):
    wait_until(lambda: text in log_of("tovrel"), f"the service logs '{text}'")


def assert_order(text, *parts):
    """Each part stands in the text, behind the one before."""
    position = 0
    for part in parts:
        found = text.find(part, position)
        assert found >= 0, f"'{part}' is missing or too early in:\n{text}"
        position = found + len(part)


# the broker

def times_subscribed(topic_filter):
    """How often a filter was subscribed, by the broker's own log."""
    return len(re.findall(rf"^\d+: \t{re.escape(topic_filter)} \(QoS \d\)$", log_of("broker"),
                          re.MULTILINE))


def wait_for_subscription(topic_filter, times_before=0):
    wait_until(lambda: times_subscribed(topic_filter) > times_before,
               f"the broker has seen the subscription of {topic_filter}")


def publish(topic, payload, *options):
    """Sends one message with mosquitto_pub; payload is bytes or text."""
    if isinstance(payload, str):
        payload = payload.encode()
    content = ["-s"] if payload else ["-n"]
    subprocess.run(["mosquitto_pub", "-h", HOST, "-p", PORT, "-t", topic, *content, *options],
                   input=payload, check=True, timeout=DEADLINE_SECONDS)


def publish_lines(topic, lines, *options):
    """Sends one message for each line, all over one connection."""
    subprocess.run(["mosquitto_pub", "-h", HOST, "-p", PORT, "-t", topic, "-l", *options],
                   input="".join(f"{line}\n" for line in lines), text=True, check=True,
                   timeout=DEADLINE_SECONDS)


# events

class Event:
    """One event of the bridge, as norq-event prints it."""

    def __init__(self, line):
        self.document = json.loads(line)
        self.kind = re.fullmatch(r"tnsnorq:MQTT/(?:tnsnorq:)?Message/(?:tnsnorq:)?(\w+)",
                                 self.document["Topic"])[1]
        self.topic = self.document["Source"]["mqtt-topic"]
        self.device_prefix = self.document["Source"]["device-prefix"]
        self.payload = self.document["Data"]["mqtt-payload"]

    def __repr__(self):
        return json.dumps(self.document)


class Watcher:
    """A process that watches the bridge's events: another one than the bridge, by norq-event."""

    END_TOPIC = "end-of-test/messages"
    # A message of QoS 2 arrives last of all that were sent before it, whatever their QoS.
    END_ITEM = item(255, END_TOPIC, qos=2)

    def __init__(self):
        self.watching = ProcessLines("norq-event", "watch", "--json", "--topic",
                                     "tnsnorq:MQTT/Message//.")
        assert self.watching.process.stderr.readline() == "watching\n"

    def next(self):
        """The next event; fails the test when none comes in time."""
        return Event(self.watching.next("an event"))

    def all_so_far(self):
        """
        All events up to now, in their order: a message sent behind the others brings the last one.
        The service must be configured with END_ITEM.
        """
        publish(self.END_TOPIC, "end", "-q", "2")
        events = []
        while True:
            event = self.next()
            if event.topic == self.END_TOPIC:
                return events
            events.append(event)

    def close(self):
        self.watching.close()


def events_of(topic):
    """
    The kinds and topics of the events that a message on a topic becomes, with a watcher of its own.
    The service must be configured with END_ITEM, or with the like by another door.
    """
    watcher = Watcher()
    try:
        publish(topic, "x")
        return [(event.kind, event.topic) for event in watcher.all_so_far()]
    finally:
        watcher.close()


def declarations():
    """What the service has declared: (kind, fixed topic or None, whether a property) each."""
    document = subprocess.run(["norq-event", "list", "--json"], check=True, text=True,
                              stdout=subprocess.PIPE, timeout=DEADLINE_SECONDS).stdout
    found = []
    for declaration in json.loads(document):
        if declaration["client"] == "tovrel":
            values = {key["key"]: key.get("value") for key in declaration["keys"]}
            found.append((values["topic2"], values["mqtt-topic"], declaration["property"]))
    return sorted(found, key=str)
