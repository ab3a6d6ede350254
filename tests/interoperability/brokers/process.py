"""A broker as a process of the sandbox, whatever its maker."""

import os
import random
import signal
import socket
import subprocess
from abc import ABC, abstractmethod
from pathlib import Path

from waiting import DEADLINE_SECONDS, wait_until

HOST = "127.0.0.1"
USER, PASSWORD = "device", "right password"


def free_port():
    """A port that nobody has, below the range from which the kernel serves outgoing connections."""
    while True:
        port = random.randrange(10000, 32000)
        with socket.socket() as probe:
            try:
                probe.bind((HOST, port))
            except OSError:
                continue
            return port


class Broker(ABC):
    """
    One broker with a plain listener and one with TLS. Whoever gives no user may connect; whoever
    gives one needs its password. What the class attributes say differs from maker to maker, and
    tests hold it against what they see.
    """

    name = ""
    # What the broker grants to a subscription of QoS 2, and does with messages of QoS 2.
    highest_qos = 2
    # Its own word for being ready.
    ready_text = ""
    makes_levels_of_dots = False
    retained_reach_wildcards = True
    speaks_mqtt_5 = False
    # Whether messages that come in just then may overtake those that waited.
    new_overtake_kept = False
    # Whether sessions and retained messages outlive the process.
    survives_restarts = True
    start_seconds = DEADLINE_SECONDS

    def __init__(self, certificates):
        self.certificates = certificates
        self.folder = Path(os.environ["SANDBOX_DIR"], f"{self.name}-tried")
        self.folder.mkdir()
        self.log = Path(os.environ["SANDBOX_LOG_DIR"], f"{self.name}-tried.log")
        self.log.touch()
        self.port = free_port()
        self.tls_port = free_port()
        self.demands_certificate = True
        self.process = None

    @abstractmethod
    def command(self):
        """Writes the broker's configuration; the words that start it."""

    @abstractmethod
    def version(self):
        """The version as the product tells it."""

    def environment(self):
        return dict(os.environ)

    def log_text(self):
        return self.log.read_text(encoding="utf-8", errors="replace")

    def start(self):
        """Starts it on its ports with what it kept; returns when it is ready."""
        before = len(self.log_text())
        with self.log.open("ab") as output:
            # A process group of its own, so that none of the processes it starts is left behind.
            self.process = subprocess.Popen(self.command(), env=self.environment(), cwd=self.folder,
                                            stdin=subprocess.DEVNULL, stdout=output, stderr=output,
                                            start_new_session=True)
        wait_until(lambda: self.process.poll() is not None or
                   self.ready_text in self.log_text()[before:],
                   f"{self.name} is ready", self.start_seconds)
        assert self.process.poll() is None, f"{self.name} did not start: {self.log_text()[-5000:]}"

    def stop(self):
        """Asks it to end, as its operator would, and waits for that."""
        self.process.terminate()
        self.process.wait(timeout=self.start_seconds)

    def kill(self):
        """Ends it as a crash would."""
        os.killpg(self.process.pid, signal.SIGKILL)
        self.process.wait(timeout=DEADLINE_SECONDS)

    def demand_certificate(self, demanded):
        """Whether a client needs a certificate on the port with TLS; a change is a restart."""
        if self.demands_certificate != demanded:
            self.stop()
            self.demands_certificate = demanded
            self.start()
