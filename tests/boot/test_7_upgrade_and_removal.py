"""What becomes of the service and its configuration when packages come and go."""

import re
import subprocess

import pytest
from conftest import PACKAGES
from lines import ProcessLines
from service import ITEMS, UNIT
from waiting import wait_until

HIGHER = "99"


@pytest.fixture(name="higher_version", scope="module")
def package_of_a_higher_version(guest, tmp_path_factory):
    """The same package under a higher version, in the guest."""
    folder = tmp_path_factory.mktemp("higher") / "tovrel"
    package = next(PACKAGES.glob("tovrel_*.deb"))
    subprocess.run(["dpkg-deb", "--raw-extract", str(package), str(folder)], check=True)
    control = folder / "DEBIAN/control"
    lines = [f"Version: {HIGHER}" if line.startswith("Version:") else line
             for line in control.read_text(encoding="utf-8").splitlines()]
    control.write_text("\n".join(lines) + "\n", encoding="utf-8")
    path = f"/root/tovrel_{HIGHER}.deb"
    subprocess.run(["dpkg-deb", "--root-owner-group", "-Znone", "--build", str(folder),
                    str(guest.path(path))], check=True, stdout=subprocess.DEVNULL)
    return path


def installed_version(guest):
    return guest.run("dpkg-query", "--show", "--showformat=${Version}", "tovrel")


def test_an_upgrade_restarts_the_services_and_keeps_the_configuration(guest, unconfigured,
                                                                     higher_version):
    guest.shell("printf '[broker]\\nhost=localhost\\n' >/etc/norq/mqtt.conf")
    unconfigured.set_items("kept/in/upgrades")
    saved = guest.run("cat", ITEMS)
    units = (UNIT, "norq-eventd.service", "norq-deviced.service")
    before = [unconfigured.show("MainPID", unit) for unit in units]
    lower = installed_version(guest)

    guest.run("apt", "install", "-y", f".{higher_version.removeprefix('/root')}")

    assert installed_version(guest) == HIGHER != lower
    for unit, process in zip(units, before):
        assert unconfigured.show("ActiveState", unit) == "active"
        assert unconfigured.show("MainPID", unit) not in ("0", process)
    assert guest.run("cat", ITEMS) == saved
    assert guest.run("stat", "--format=%a %U:%G", ITEMS).strip() == "640 tovrel:tovrel"
    assert unconfigured.items() == ["kept/in/upgrades"]
    assert "localhost" in guest.run("cat", "/etc/norq/mqtt.conf")


def test_a_removal_ends_the_services_and_keeps_the_configuration(guest, service):
    service.set_items("kept/in/removals")
    guest.run("apt", "remove", "-y", "tovrel")
    for unit in (UNIT, "norq-eventd.service", "norq-deviced.service"):
        assert service.show("ActiveState", unit) == "inactive"
        assert service.show("LoadState", unit) == "not-found"
    assert "kept/in/removals" in guest.run("cat", ITEMS)
    refused = guest.try_run("busctl", "--system", "call", "com.norq.Tovrel1", "/com/norq/Tovrel1",
                            "com.norq.Tovrel1", "GetMQTTToEventConfig")
    assert refused.returncode != 0
    assert guest.run("systemctl", "--failed", "--quiet", "--no-legend") == ""


def test_what_is_installed_again_finds_its_configuration(guest, service):
    guest.shell("cd packages && apt install -y ./tovrel_*.deb")
    assert service.state() == "active"
    assert service.items() == ["kept/in/removals"]


@pytest.fixture(name="client", scope="module")
def client_of_the_event_service(guest):
    """A program of the operator's that goes on through removal and purge, and the lines it writes."""
    watch = "exec norq-event watch --topic tnsnorq:Door//. 2>&1"
    client = ProcessLines(*guest.entered(["sh", "-c", watch]))
    assert client.next("the beginning") == "watching\n"
    yield client
    guest.end(client.process)
    client.close()


def programs_that_run(guest):
    """Of the packages', those that are removed already included."""
    programs = guest.shell("readlink /proc/[0-9]*/exe || true").splitlines()
    return sorted(program for program in programs if re.search("tovrel|norq", program))


def test_a_client_that_is_still_there_does_not_keep_the_services_alive(guest, service, client):
    service.set_items("kept/in/removals")
    guest.run("apt", "remove", "-y", "tovrel")
    assert "lost the event service" in client.next("the loss")
    assert programs_that_run(guest) == ["/usr/bin/norq-event (deleted)"]
    for unit in (UNIT, "norq-eventd.service", "norq-deviced.service"):
        assert service.show("ActiveState", unit) == "inactive"
    assert guest.run("systemctl", "--failed", "--quiet", "--no-legend") == ""


def test_a_client_finds_the_services_again_that_are_installed_again(guest, service, client):
    guest.shell("cd packages && apt install -y ./tovrel_*.deb")
    service.wait_for_state("active")

    def is_reached():
        guest.run("norq-event", "send", "--topic", "tnsnorq:Door/Front", "open:bool=true")
        return client.has_line()

    wait_until(is_reached, "the client has an event")
    assert "Door/Front" in client.next("the event")


def test_a_purge_removes_the_configuration_and_leaves_what_is_the_operators(guest, client):
    guest.shell("echo certificate >/etc/norq/broker-ca.pem")
    guest.run("apt", "purge", "-y", "tovrel")
    assert guest.run("ls", "/etc/norq").split() == ["broker-ca.pem"]
    left = guest.shell("find / \\( -path /proc -o -path /sys -o -path /root -o -path /var/cache"
                       " -o -path /var/log \\) -prune"
                       " -o \\( -name '*tovrel*' -o -name '*norq*' \\) -print")
    assert left == "/etc/norq\n"
    assert programs_that_run(guest) == ["/usr/bin/norq-event (deleted)"]
    assert client.process.poll() is None
    assert guest.run("systemctl", "list-units", "--all", "--no-legend", "tovrel*", "norq*") == ""
    assert guest.run("systemctl", "--failed", "--quiet", "--no-legend") == ""


def test_the_users_stay_for_the_files_they_may_have_left(guest):
    for user in ("tovrel", "norq"):
        guest.run("getent", "passwd", user)


def test_the_libraries_for_other_programs_come_and_go_alone(guest):
    guest.shell("cd packages && apt install -y --no-install-recommends ./libnorq-*0_[0-9]*.deb")
    assert "libnorq-event.so.0 " in guest.run("ldconfig", "--print-cache")
    guest.run("apt", "purge", "-y", "libnorq-*")
    assert "libnorq" not in guest.run("ldconfig", "--print-cache")
