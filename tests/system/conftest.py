"""For all system tests: the watcher, and what holds at the end of each."""

import sys
from pathlib import Path

# For what tests of all kinds share, and first: what is imported below may need it.
sys.path.append(str(Path(__file__).parents[1] / "support"))

import pytest
from bridge import ETC, LOGS, Watcher, log_of
from bus_clients import ConfigurationClient
from publishing import Published
from relay import Relay

# What no service may have said in any test, whatever else it was about.
DEFECTS = ("AddressSanitizer", "LeakSanitizer", "ThreadSanitizer", "runtime error:", "CRITICAL",
           "err: GLib", "double free", "terminate called")


@pytest.fixture(name="events")
def watching_events():
    """A watcher of the bridge's events that misses none from now on."""
    watcher = Watcher()
    yield watcher
    watcher.close()


@pytest.fixture(name="published")
def watching_messages():
    """A subscriber of all that the service publishes, from before its start."""
    published = Published()
    yield published
    published.close()


@pytest.fixture(name="relay")
def relaying():
    """A relay through which the service will reach the broker; the service must not run yet."""
    relay = Relay()
    yield relay
    relay.close()


@pytest.fixture(name="client")
def one_connection():
    """A client of the service with a connection of its own."""
    client = ConfigurationClient()
    yield client
    client.close()


@pytest.fixture(name="folder_on_a_disk")
def putting_the_folder_on_a_disk(tmp_path):
    """Flushing takes its time there, and so the save; the sandbox's own folder is in memory."""
    ETC.rmdir()
    ETC.symlink_to(tmp_path)


@pytest.fixture(autouse=True)
def no_defect_in_the_logs():
    """Fails a test in whose sandbox a service reported a defect."""
    yield
    for path in LOGS.glob("*.log"):
        found = [line for line in log_of(path.stem).splitlines()
                 if any(defect in line for defect in DEFECTS)]
        assert not found, f"{path.name}: {found}"


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport():
    """Adds the services' logs to the report of a test that failed."""
    outcome = yield
    report = outcome.get_result()
    if report.failed:
        for path in sorted(LOGS.glob("*.log")):
            report.sections.append((path.name, log_of(path.stem)[-20000:]))
