"""aedes, from npm."""

import json

from brokers.process import PASSWORD, USER, Broker
from npm import FOLDER, node, version_of


class Aedes(Broker):
    """A library that makes a broker of a few lines, aedes_broker.js. Keeps everything in memory."""

    name = "aedes"
    ready_text = "ready\n"
    new_overtake_kept = True
    survives_restarts = False

    def command(self):
        settings = {
            "port": self.port, "tlsPort": self.tls_port,
            "demandsCertificate": self.demands_certificate,
            "user": USER, "password": PASSWORD,
            "ca": str(self.certificates.trusted.root.certificate),
            "certificate": str(self.certificates.broker.certificate),
            "key": str(self.certificates.broker.key),
        }
        return [*node(FOLDER / "aedes_broker.js"), json.dumps(settings)]

    def version(self):
        return version_of("aedes")
