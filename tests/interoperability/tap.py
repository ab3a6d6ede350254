"""The relay of the system tests with an ear: it counts the packets that pass."""

from collections import Counter

from relay import PUBACK, PUBCOMP, Relay
from waiting import wait_until

PUBLISH, PINGRESP = 0x30, 0xD0


class Tap(Relay):
    """Between the service and a broker; cut() and open() interrupt them."""

    def __init__(self, broker_port):
        self.seen = Counter()
        super().__init__(broker_port)

    def passed(self, packet):
        with self.lock:
            self.seen[packet[0]] += 1

    def published(self, qos):
        """How many messages of this QoS have passed, in both directions, repetitions included."""
        with self.lock:
            return sum(count for first, count in self.seen.items()
                       if first & 0xF0 == PUBLISH and (first >> 1) & 3 == qos)

    def qos_published(self):
        """Each QoS that messages have passed with."""
        return {qos for qos in (0, 1, 2) if self.published(qos)}

    def wait_until_confirmed(self):
        """Waits until a message of QoS 1 or 2 is through, whoever sent it."""
        wait_until(lambda: self.seen[PUBACK] + self.seen[PUBCOMP] > 0, "a message is confirmed")

    def wait_for(self, first_byte, count):
        wait_until(lambda: self.seen[first_byte] >= count,
                   f"{count} packets of kind {first_byte:#x} have passed")
