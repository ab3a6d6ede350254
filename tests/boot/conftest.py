"""The guest that all cases share, from the bare system on: they are run in the order they stand in."""

import os
import shutil
import sys
from pathlib import Path

# Waiting is the same here as in the system tests.
sys.path.append(str(Path(__file__).parents[1] / "system"))

import pytest
from base import make_base
from guest import Guest
from scratch import scratch_root
from service import Service

FOLDER = Path(os.environ["REAL_SYSTEMD_FOLDER"])
PACKAGES = Path(os.environ["REAL_SYSTEMD_PACKAGES"])
PROGRAMS = ("caller", "probe")


def packages():
    """All that scripts/package has made, but for the debug symbols."""
    return [path for path in PACKAGES.glob("*.deb") if "-dbgsym" not in path.name]


@pytest.fixture(name="guest", scope="session")
def bare_guest():
    """A clean Debian, up, with the packages in /root/packages."""
    base = make_base(FOLDER, list(PACKAGES.glob("tovrel_*.deb")))
    console = FOLDER / "console"
    console.unlink(missing_ok=True)
    with scratch_root(base, FOLDER) as root:
        (root / "root/packages").mkdir()
        for package in packages():
            shutil.copy(package, root / "root/packages")
        for program in PROGRAMS:
            shutil.copy(FOLDER / program, root / "usr/local/bin")
        guest = Guest(root, console)
        try:
            guest.boot()
            yield guest
        finally:
            guest.shut_down()


@pytest.fixture(name="service", scope="session")
def service_of_the_guest(guest):
    return Service(guest)


@pytest.fixture(name="unconfigured")
def service_with_nothing_to_do(service):
    """Nothing is configured, and the service does not run; it is so again afterwards."""
    service.forget_everything()
    yield service
    service.forget_everything()
