"""mosquitto, as Debian packages it."""

import os
import re
import subprocess

from brokers.process import HOST, PASSWORD, USER, Broker
from waiting import DEADLINE_SECONDS


class Mosquitto(Broker):
    """Keeps sessions and retained messages in a file, which it writes when it ends."""

    name = "mosquitto"
    ready_text = " running\n"
    speaks_mqtt_5 = True

    def environment(self):
        # An ordinary user's PATH has no sbin.
        return {**os.environ, "PATH": os.environ["PATH"] + ":/usr/sbin"}

    def command(self):
        passwords = self.folder / "passwords"
        subprocess.run(["mosquitto_passwd", "-b", "-c", str(passwords), USER, PASSWORD], check=True,
                       timeout=DEADLINE_SECONDS)
        configuration = self.folder / "mosquitto.conf"
        configuration.write_text(f"""\
user root
allow_anonymous true
password_file {passwords}
persistence true
persistence_location {self.folder}/
log_dest stderr
listener {self.port} {HOST}
listener {self.tls_port} {HOST}
cafile {self.certificates.trusted.root.certificate}
certfile {self.certificates.broker.certificate}
keyfile {self.certificates.broker.key}
require_certificate {str(self.demands_certificate).lower()}
""", encoding="utf-8")
        return ["mosquitto", "-c", str(configuration)]

    def version(self):
        return "mosquitto " + re.search(r"mosquitto version (\S+) running", self.log_text())[1]
