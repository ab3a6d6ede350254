"""A certificate authority for one run, with what brokers and the device need to trust each other."""

import subprocess
from dataclasses import dataclass
from pathlib import Path

from waiting import DEADLINE_SECONDS

BROKER_NAMES = "subjectAltName=DNS:localhost,IP:127.0.0.1"
OTHER_NAMES = "subjectAltName=DNS:elsewhere.example"


def openssl(*words, **options):
    subprocess.run(["openssl", *words], check=True, timeout=DEADLINE_SECONDS, text=True,
                   stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, **options)


@dataclass(frozen=True)
class Identity:
    """A certificate and its key, as PEM files."""

    certificate: Path
    key: Path


class Authority:
    """Signs certificates; all files are in a folder of its own."""

    def __init__(self, folder, name):
        self.folder = folder
        folder.mkdir()
        self.root = Identity(folder / "ca.pem", folder / "ca.key")
        openssl("req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1",
                "-nodes", "-days", "2", "-subj", f"/CN={name}", "-keyout", str(self.root.key),
                "-out", str(self.root.certificate))

    def sign(self, name, extension=None):
        """A new key and its certificate with this common name."""
        made = Identity(self.folder / f"{name}.pem", self.folder / f"{name}.key")
        request = self.folder / f"{name}.csr"
        openssl("req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
                "-subj", f"/CN={name}", "-keyout", str(made.key), "-out", str(request))
        extensions = ["-extfile", "/dev/stdin"] if extension else []
        openssl("x509", "-req", "-in", str(request), "-CA", str(self.root.certificate),
                "-CAkey", str(self.root.key), "-CAcreateserial", "-days", "2", *extensions,
                "-out", str(made.certificate), input=extension)
        return made


class Certificates:
    """The two authorities of a run: the one that everybody trusts, and one that nobody does."""

    def __init__(self, folder):
        self.trusted = Authority(folder / "trusted", "test authority")
        self.stranger = Authority(folder / "stranger", "strange authority")
        self.broker = self.trusted.sign("broker", BROKER_NAMES)
        self.device = self.trusted.sign("device")
        self.strange_device = self.stranger.sign("device")
