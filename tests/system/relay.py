"""A relay between the service and the broker, whose connections a test cuts."""

import re
import socket
import threading
import time
from contextlib import suppress
from pathlib import Path

from bridge import HOST, PORT
from waiting import wait_until

SETTINGS = Path("/etc/norq/mqtt.conf")

# The first bytes of packets that a test may want to get lost.
PUBLISH_QOS_0, PUBACK, PUBREC, PUBREL, PUBCOMP, DISCONNECT = 0x30, 0x40, 0x50, 0x62, 0x70, 0xE0


def whole_packets(data):
    """The whole MQTT packets at the start of the bytes, and the rest."""
    packets = []
    while (length := length_of_first(data)) is not None:
        packets.append(data[:length])
        data = data[length:]
    return packets, data


def length_of_first(data):
    """The length of the MQTT packet that the bytes begin with, or None when it is not whole yet."""
    length = 0
    for index, byte in enumerate(data[1:5]):
        length |= (byte & 0x7F) << (7 * index)
        if byte < 0x80:
            whole = 2 + index + length
            return whole if len(data) >= whole else None
    return None


class Relay:
    """
    Stands between the service and the broker: from its making on the settings name it as the
    broker, so it must be made before the service starts. Other clients go to the broker itself.
    """

    def __init__(self, broker_port=PORT):
        self.broker_port = broker_port
        self.lock = threading.Lock()  # of all below
        self.lets_through = True
        self.losing = frozenset()
        self.slow = frozenset()
        self.lost = 0
        self.sockets = []
        self.threads = []
        self.listener = socket.create_server((HOST, 0))
        self._start(self._accept)
        self.port = self.listener.getsockname()[1]
        SETTINGS.write_text(re.sub(r"(?m)^port=.*$", f"port={self.port}", SETTINGS.read_text()))

    def cut(self):
        """Ends the connection; from now on each new one is ended at once."""
        with self.lock:
            self.lets_through = False
            self._end_connections()

    def open(self):
        """Lets connections and all packets through."""
        with self.lock:
            self.losing = frozenset()
            self.lets_through = True

    def lose(self, *first_bytes):
        """From now on packets that begin with one of these bytes get lost."""
        with self.lock:
            self.losing = frozenset(first_bytes)
            self.lost = 0

    def slow_down(self, *first_bytes):
        """From now on packets that begin with one of these bytes take half a second."""
        with self.lock:
            self.slow = frozenset(first_bytes)

    def wait_for_lost(self, count):
        wait_until(lambda: self.lost >= count, f"{count} packets got lost")

    def passed(self, packet):
        """Called for each packet that has got through, on one of the relay's threads."""

    def close(self):
        with self.lock:
            self.lets_through = False
            self._end_connections()
        self.listener.shutdown(socket.SHUT_RDWR)
        self.threads[0].join()  # from here on there are no new ones
        for thread in self.threads[1:]:
            thread.join()
        for each in [self.listener, *self.sockets]:
            each.close()

    def _start(self, function, *arguments):
        self.threads.append(threading.Thread(target=function, args=arguments))
        self.threads[-1].start()

    def _end_connections(self):
        for each in self.sockets:
            with suppress(OSError):  # the other side may have been quicker
                each.shutdown(socket.SHUT_RDWR)

    def _accept(self):
        with suppress(OSError):  # the end of the listener
            while True:
                client, _ = self.listener.accept()
                with self.lock:
                    self._let_through(client)

    def _let_through(self, client):
        if not self.lets_through:
            client.close()
            return
        try:
            broker = socket.create_connection((HOST, self.broker_port))
        except ConnectionRefusedError:
            client.close()
            return
        self.sockets += [client, broker]
        self._start(self._pump, client, broker)
        self._start(self._pump, broker, client)

    def _pump(self, source, sink):
        rest = b""
        with suppress(OSError):
            while data := source.recv(65536):
                packets, rest = whole_packets(rest + data)
                for packet in packets:
                    if packet[0] in self.slow:
                        time.sleep(0.5)
                    if not self._loses(packet):
                        sink.sendall(packet)
                        self.passed(packet)
        with suppress(OSError):
            sink.shutdown(socket.SHUT_RDWR)

    def _loses(self, packet):
        with self.lock:
            if packet[0] not in self.losing:
                return False
            self.lost += 1
            return True
