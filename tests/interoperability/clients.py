"""MQTT clients of other makers, each with the same few things to do."""

import json
import queue
import re
import subprocess
import time

from brokers.process import HOST
from lines import ProcessLines
from npm import FOLDER, node, version_of
from publishing import Message
from waiting import DEADLINE_SECONDS

MQTT_3_1_1, MQTT_5 = 4, 5


class Subscriber:
    """One subscription over a connection of its own. When made, the broker has granted it."""

    # Set by the subclasses: the process, and the QoS that the broker granted.
    lines = None
    granted = None

    def message_in(self, line):
        """The message that a line tells of, or None when it tells of something else."""
        told = json.loads(line) if line.startswith("{") else {}
        if "topic" not in told:
            return None
        return Message(told["topic"], told["payload"], told["qos"], bool(told["retain"]))

    def next(self, seconds=DEADLINE_SECONDS):
        """The next message; fails the test when none comes in time."""
        while True:
            message = self.message_in(self.lines.next("a message", seconds))
            if message:
                return message

    def until(self, is_last, seconds=DEADLINE_SECONDS):
        """
        All messages up to the first one for which the condition holds, with it. Fails the test when
        that does not come in time, whatever else comes.
        """
        deadline = time.monotonic() + seconds
        messages = [self.next()]
        while not is_last(messages[-1]):
            assert time.monotonic() < deadline, f"{len(messages)} messages, but not the last one"
            messages.append(self.next())
        return messages

    def close(self):
        self.lines.close()


class MosquittoSubscriber(Subscriber):
    """A mosquitto_sub."""

    def __init__(self, port, topic_filter, qos):
        # It says what was granted with its next message, unless every line is written out at once.
        self.lines = ProcessLines("stdbuf", "-oL", "mosquitto_sub", "-h", HOST, "-p", str(port),
                                  "-V", "311", "-t", topic_filter, "-q", str(qos), "-d", "-F", "%j")
        while self.granted is None:
            found = re.match(r"Subscribed \(mid: \d+\): (\d+)", self.lines.next("the grant"))
            self.granted = int(found[1]) if found else None


class Client:
    """Publishes and subscribes at a broker, until it is closed."""

    # Whether it goes on when a broker confirms QoS 2 as if it were QoS 1.
    takes_wrong_confirmations = False

    def __init__(self, port):
        self.port = port
        self.connections = []

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        for connection in self.connections:
            connection.close()


class MosquittoClients(Client):
    """mosquitto_pub and mosquitto_sub."""

    name = "mosquitto_pub and mosquitto_sub"

    def publish(self, topic, *payloads, qos=0, retain=False, seconds=DEADLINE_SECONDS):
        """Publishes; returns when the broker has confirmed all. Several must be lines."""
        command = ["mosquitto_pub", "-h", HOST, "-p", str(self.port), "-V", "311", "-t", topic,
                   "-q", str(qos), *(["-r"] if retain else [])]
        if len(payloads) > 1:
            command, text = [*command, "-l"], "".join(f"{payload}\n" for payload in payloads)
        else:
            command, text = [*command, "-s" if payloads[0] else "-n"], payloads[0]
        subprocess.run(command, input=text.encode(), check=True, timeout=seconds,
                       stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def subscribe(self, topic_filter, qos=2):
        self.connections.append(MosquittoSubscriber(self.port, topic_filter, qos))
        return self.connections[-1]

    @staticmethod
    def version():
        told = subprocess.run(["mosquitto_pub", "--version"], stdout=subprocess.PIPE, text=True,
                              check=False)
        return re.sub(r"\.?\n.*", "", told.stdout, flags=re.DOTALL)


class MqttJsConnection(Subscriber):
    """A process with one connection of mqtt.js."""

    def __init__(self, port, protocol):
        self.lines = ProcessLines(*node(FOLDER / "mqtt_client.js"), str(port), str(protocol),
                                  stdin=subprocess.PIPE)
        self.waiting = queue.SimpleQueue()
        self._answer(DEADLINE_SECONDS)

    def order(self, seconds=DEADLINE_SECONDS, **words):
        """Gives an order; its result, once the broker has confirmed it."""
        self.lines.process.stdin.write(json.dumps(words) + "\n")
        self.lines.process.stdin.flush()
        return self._answer(seconds)

    def _answer(self, seconds):
        while True:
            line = self.lines.next("an answer", seconds)
            told = json.loads(line)
            if "done" in told:
                return told["done"]
            self.waiting.put(self.message_in(line))

    def next(self, seconds=DEADLINE_SECONDS):
        return super().next(seconds) if self.waiting.empty() else self.waiting.get()


class MqttJs(Client):
    """mqtt.js, from npm; a publisher and each subscriber have connections of their own."""

    name = "mqtt.js"
    takes_wrong_confirmations = True

    def __init__(self, port, protocol=MQTT_3_1_1):
        super().__init__(port)
        self.protocol = protocol
        self.publisher = None

    def connect(self):
        self.connections.append(MqttJsConnection(self.port, self.protocol))
        return self.connections[-1]

    def publish(self, topic, *payloads, qos=0, retain=False, seconds=DEADLINE_SECONDS):
        """Publishes; returns when the broker has confirmed all."""
        self.publisher = self.publisher or self.connect()
        self.publisher.order(seconds, do="publish", topic=topic, payloads=payloads, qos=qos,
                             retain=retain)

    def subscribe(self, topic_filter, qos=2):
        subscriber = self.connect()
        subscriber.granted = subscriber.order(do="subscribe", topic=topic_filter, qos=qos)
        return subscriber

    @staticmethod
    def version():
        return version_of("mqtt")


CLIENTS = {client.name: client for client in (MosquittoClients, MqttJs)}
