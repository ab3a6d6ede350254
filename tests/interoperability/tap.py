"""The relay of the system tests with an ear: it counts the packets that pass."""

from collections import Counter

from relay import PUBACK, PUBCOMP, Relay
from waiting import wait_until

PUBLISH, PINGRESP = 0x30, 0xD0


def topic_in(packet):
    """The topic of a PUBLISH packet."""
    begin = 1
    while packet[begin] & 0x80:  # of the packet's length
        begin += 1
    begin += 1
    length = int.from_bytes(packet[begin:begin + 2], "big")
    return packet[begin + 2:begin + 2 + length].decode()


class Tap(Relay):
    """Between the service and a broker; cut() and open() interrupt them."""

    def __init__(self, broker_port):
        self.packets = Counter()  # by their first byte
        self.qos_of_topics = {}
        super().__init__(broker_port)

    def passed(self, packet):
        with self.lock:
            self.packets[packet[0]] += 1
            if packet[0] & 0xF0 == PUBLISH:
                qos = (packet[0] >> 1) & 3
                self.qos_of_topics.setdefault(topic_in(packet), set()).add(qos)

    def qos_of(self, topic):
        """Each QoS that messages of a topic have passed with, in both directions."""
        with self.lock:
            return set(self.qos_of_topics.get(topic, ()))

    def wait_until_confirmed(self):
        """Waits until a message of QoS 1 or 2 is through, whoever sent it."""
        wait_until(lambda: self.packets[PUBACK] + self.packets[PUBCOMP] > 0,
                   "a message is confirmed")

    def wait_for(self, first_byte, count):
        wait_until(lambda: self.packets[first_byte] >= count,
                   f"{count} packets of kind {first_byte:#x} have passed")
