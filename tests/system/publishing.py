"""What the cases inside the sandbox do to see device events published."""

import itertools
import json
import subprocess
from dataclasses import dataclass
from pathlib import Path

import jsonschema
from bridge import ETC, HOST, PORT, call_service, times_subscribed, wait_for_subscription
from lines import ProcessLines
from waiting import DEADLINE_SECONDS

PUBLICATION = ETC / "event_to_mqtt_v2.conf"
LEGACY_PUBLICATION = ETC / "event_to_mqtt.conf"
EVERY_QOS = {0, 1, 2}
EVENT_SCHEMA = Path(__file__).parents[2] / "docs" / "event-json.schema.json"
EVENT_DOCUMENTS = jsonschema.Draft7Validator(json.loads(EVENT_SCHEMA.read_text(encoding="utf-8")))


# configuration

def escaped(text):
    """A text as the value of a key file."""
    text = text.replace("\\", "\\\\").replace("\n", "\\n").replace("\t", "\\t")
    return "\\s" + text[1:] if text.startswith(" ") else text


def key_file(common, filters):
    """The text of a publication file: the common settings, and a group for each filter by its id."""
    lines = ["[common]", *(f"{key}={escaped(value)}" for key, value in common.items())]
    for identifier, keys in filters.items():
        lines += [f"[{identifier}]", *(f"{key}={escaped(value)}" for key, value in keys.items())]
    return "".join(f"{line}\n" for line in lines)


def event_filter(topic_filter, *, qos=1, retain="none"):
    """An event filter as it stands in the file."""
    return {"topicFilter": topic_filter, "qos": str(qos), "retain": retain}


def settings(*, prefix="default", custom="", append=True, namespaces=True, serial=False):
    """The common settings as they stand in the file, those of a fresh service by default."""
    return {"topicPrefixSetting": prefix, "customTopicPrefix": custom,
            "appendEventTopic": str(append).lower(),
            "includeTopicNamespaces": str(namespaces).lower(),
            "includeSerialNumberInPayload": str(serial).lower()}


def configure_publication(*filters, **common):
    """
    Writes the publication file: settings as for settings(), the filters in their order, which is
    that in which the service subscribes them, and behind them those of the end events.
    """
    width = len(str(len(filters)))
    groups = {f"{number:0{width}}": each for number, each in enumerate(filters)}
    PUBLICATION.write_text(key_file(settings(**common), groups | END_FILTERS), encoding="utf-8")


def set_serial_number(text):
    with open("/etc/norq/device.conf", "w", encoding="utf-8") as facts:
        facts.write(f"[device]\nserial={text}\n")


# events

def send_event(*arguments, fails=False):
    """
    Sends an event from another process, by the arguments of "norq-event send". When it returns, the
    event service has taken the event. With fails, what the tool says about its failure.
    """
    done = subprocess.run(["norq-event", "send", *arguments], timeout=2 * DEADLINE_SECONDS,
                          stderr=subprocess.PIPE, text=True)
    assert (done.returncode == 1) == fails and done.returncode in (0, 1), done.stderr
    return done.stderr


def wait_for_event(*conditions):
    """
    Waits for an event, as "norq-event watch" takes the conditions. The last value of a property
    counts as well. When it returns, all clients get what is sent from now on behind that event.
    """
    subprocess.run(["norq-event", "watch", "--count", "1", "--timeout", str(DEADLINE_SECONDS),
                    *conditions], check=True, stdout=subprocess.DEVNULL)


def wait_for_connection(connected):
    """Waits until the service's MQTT client has announced that it is connected, or that not."""
    wait_for_event("--topic", "tns1:Device/tnsnorq:MQTT/ClientStatus",
                   "--match", f"connected={connected:d}")


class HeldEvent:
    """A process that declares an event and sends it, by lines as "norq-event send" takes them."""

    def __init__(self, *arguments):
        self.process = subprocess.Popen(["norq-event", "send", "--hold", *arguments], text=True,
                                        stdin=subprocess.PIPE, stderr=subprocess.PIPE)
        said = self.process.stderr.readline()
        assert said == "holding\n", said + self.process.stderr.read()

    def send(self, *lines):
        """Hands lines over; their events are sent in this order, and soon."""
        self.process.stdin.write("".join(f"{line}\n" for line in lines))
        self.process.stdin.flush()

    def close(self):
        """When it returns, the event service has taken every event; the declaration is gone."""
        _, said = self.process.communicate(timeout=2 * DEADLINE_SECONDS)
        assert self.process.returncode == 0, said


# The end events: one for each QoS, because messages of one QoS may overtake those of another. Their
# ids are behind all numbers, so the service subscribes them last.
END_TOPIC = "tnsnorq:EndOfTest"
END_FILTERS = {f"end{qos}": event_filter("norq:EndOfTest", qos=qos) for qos in EVERY_QOS}


# messages

@dataclass(frozen=True)
class Message:
    """One message as a subscriber gets it, with the retain flag as the service set it."""

    topic: str
    payload: str
    qos: int
    retain: bool

    @property
    def document(self):
        """The payload, which must be an event document as the schema has it."""
        document = json.loads(self.payload)
        EVENT_DOCUMENTS.validate(document)
        return document

    @property
    def end_number(self):
        """The number of the end event that it tells, or None for any other message."""
        if f'"Topic":"{END_TOPIC.replace("tnsnorq", "norq")}"' not in self.payload:
            return None
        return self.document["Data"]["number"]

    @property
    def is_initial(self):
        """Whether it tells a value that the event service had kept for new consumers."""
        return self.document.get("PropertyOperation") == "Initialized"


class MessageWatcher:
    """A mosquitto_sub that misses no message from now on, and gets the retained ones first."""

    def __init__(self, topic_filter="#", qos=2):
        before = times_subscribed(topic_filter)
        # With MQTT 3.1.1 the broker would hide the retain flag from those that are there in time.
        # Under load it sends more at once than version 5 allows by default, and the subscriber ends.
        self.subscriber = ProcessLines(
            "mosquitto_sub", "-h", HOST, "-p", PORT, "-t", topic_filter, "-q", str(qos), "-F", "%j",
            "-V", "mqttv5", "--retain-as-published", "-D", "connect", "receive-maximum", "65535")
        wait_for_subscription(topic_filter, before)

    def next(self):
        """The next message; fails the test when none comes in time."""
        told = json.loads(self.subscriber.next("a message"))
        return Message(told["topic"], told["payload"], told["qos"], bool(told["retain"]))

    def until_ends(self, is_awaited, qos_of_ends):
        """All messages before the awaited end events have come with each QoS; no end events."""
        messages = []
        missing = set(qos_of_ends)
        while missing:
            message = self.next()
            if message.end_number is None:
                messages.append(message)
            elif is_awaited(message):
                missing.discard(message.qos)
        return messages

    def close(self):
        self.subscriber.close()


class Published:
    """
    All that the service publishes, as a stock subscriber of QoS 2 gets it. The service must be
    configured by configure_publication().
    """

    def __init__(self):
        self.watcher = MessageWatcher()
        self.end = HeldEvent("--property", "number", "--topic", END_TOPIC, "number:int=0")
        self.numbers = itertools.count(1)
        self.before = []

    def wait_until_subscribed(self):
        """
        Waits until the service has subscribed all its filters at the event service once (more) and
        is connected. Other messages that come until then are kept for all_so_far().
        """
        self.before += self.watcher.until_ends(lambda message: message.is_initial, EVERY_QOS)

    def mark_end(self):
        """Sends an end event behind all events so far; its number."""
        number = next(self.numbers)
        self.end.send(f"number={number}")
        return number

    def all_so_far(self):
        """The messages of all events that were sent up to now, in the order of their arrival."""
        number = self.mark_end()
        messages = self.before + self.watcher.until_ends(
            lambda message: message.end_number == number, EVERY_QOS)
        self.before = []
        return messages

    def seen_by_late_subscriber(self, qos=2):
        """What a subscriber gets that comes only now."""
        late = MessageWatcher(qos=qos)
        try:
            number = self.mark_end()
            return late.until_ends(lambda message: message.end_number == number,
                                   {min(qos, each) for each in EVERY_QOS})
        finally:
            late.close()

    def start(self, *filters, **common):
        """Configures the filters and settings, and starts the service."""
        configure_publication(*filters, **common)
        call_service()
        self.wait_until_subscribed()

    def close(self):
        self.end.close()
        self.watcher.close()
