"""What all cases share: one broker a run, and the device and the clients of each case."""

import json
import sys
from pathlib import Path

FOLDER = Path(__file__).parent
sys.path[:0] = [str(FOLDER), str(FOLDER.parent / "system"), str(FOLDER.parent / "support")]

import pytest
from bridge import LOGS, log_of
from brokers import BROKERS
from certificates import Certificates
from clients import CLIENTS
from device import Device, Events, NumberedEvents
from observations import Observations
from tap import Tap


def pytest_addoption(parser):
    parser.addoption("--broker", choices=sorted(BROKERS), required=True)
    parser.addoption("--results", type=Path, help="the folder that gets what was observed")


@pytest.fixture(name="certificates", scope="session")
def making_certificates(tmp_path_factory):
    return Certificates(tmp_path_factory.mktemp("certificates"))


@pytest.fixture(name="broker", scope="session")
def running_broker(request, certificates):
    """The broker that the command line names."""
    broker = BROKERS[request.config.getoption("--broker")](certificates)
    broker.start()
    request.config.observations.version(broker.name, broker.version())
    yield broker
    broker.stop()


@pytest.fixture(name="client", params=list(CLIENTS.values()), ids=["mosquitto_clients", "mqtt_js"])
def one_client(request, broker):
    """Clients of each maker in turn."""
    client = request.param(broker.port)
    request.config.observations.version(client.name, client.version())
    yield client
    client.close()


@pytest.fixture(name="device")
def one_device(broker):
    device = Device(broker)
    yield device
    device.close()


@pytest.fixture(name="events")
def watching_events():
    """A watcher of the events that messages become, from before the service's start."""
    events = Events()
    yield events
    events.close()


@pytest.fixture(name="numbers")
def producing_events():
    """A producer of numbered events."""
    numbers = NumberedEvents()
    yield numbers
    numbers.close()


@pytest.fixture(name="tap")
def tapping(broker, device):
    """What passes between the device and the broker, which the test can interrupt."""
    tap = Tap(broker.port)
    device.set("broker", port=tap.port)
    yield tap
    tap.close()


@pytest.fixture(name="observe")
def observing(request):
    """Notes what the broker does, for the table, when the test passes."""
    return lambda text: request.node.user_properties.append(("observed", text))


def pytest_configure(config):
    config.observations = Observations(config.getoption("--broker"))


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    """Takes the result for the table, and adds the logs to the report of a failure."""
    outcome = yield
    report = outcome.get_result()
    item.config.observations.take(item, report)
    if report.failed:
        for path in sorted(LOGS.glob("*.log")):
            report.sections.append((path.name, log_of(path.stem)[-8000:]))


def pytest_sessionfinish(session):
    folder = session.config.getoption("--results")
    if folder:
        observations = session.config.observations
        (folder / f"{observations.broker}.json").write_text(
            json.dumps(observations.document(), indent=1, ensure_ascii=False), encoding="utf-8")
