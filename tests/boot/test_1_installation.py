"""A clean Debian gets the packages by the command of the README."""

import re

import pytest
from service import UNITS

HIGHEST_EXPOSURE = 1.2


def test_one_pattern_names_all_that_apt_needs(guest):
    guest.shell("cd packages && apt install -y ./tovrel_*.deb")
    assert guest.run("dpkg-query", "--show", "--showformat=${db:Status-Status}", "tovrel") == "installed"


def test_the_services_were_started_without_a_failure(guest, service):
    for unit in ("norq-eventd.service", "norq-deviced.service"):
        assert service.show("ActiveState", unit) == "active"
        assert service.show("NRestarts", unit) == "0"
    assert service.show("Result") == "success"
    assert service.show("NRestarts") == "0"
    assert service.log("--priority=err", *(f"--unit={unit}" for unit in UNITS)) == ""
    assert guest.run("systemctl", "--failed", "--quiet", "--no-legend") == ""


def test_the_services_start_at_boot_too(guest):
    for unit in ("tovrel.service", "norq-eventd.service", "norq-deviced.service"):
        assert guest.run("systemctl", "is-enabled", unit).strip() == "enabled"


@pytest.mark.parametrize("path, wanted", [
    ("/etc/tovrel", "750 tovrel:tovrel directory"),
    ("/etc/norq", "755 root:root directory"),
    ("/usr/libexec/tovrel", "755 root:root regular file"),
    ("/usr/libexec/tovrel-resume", "755 root:root regular file"),
    ("/usr/libexec/norq-eventd", "755 root:root regular file"),
    ("/usr/libexec/norq-deviced", "755 root:root regular file"),
    ("/usr/bin/tovrelctl", "755 root:root regular file"),
    ("/usr/bin/norq-event", "755 root:root regular file"),
    ("/usr/lib/systemd/system/tovrel.service", "644 root:root regular file"),
    ("/usr/share/dbus-1/interfaces/com.norq.Tovrel1.xml", "644 root:root regular file"),
    ("/usr/share/dbus-1/system.d/com.norq.Tovrel1.conf", "644 root:root regular file"),
    ("/usr/share/dbus-1/system-services/com.norq.Tovrel1.service", "644 root:root regular file"),
    ("/usr/share/man/man8/tovrel.8.gz", "644 root:root regular file"),
    ("/usr/share/bash-completion/completions/tovrelctl", "644 root:root regular file"),
])
def test_a_file_has_its_owner_and_mode(guest, path, wanted):
    assert guest.run("stat", "--format=%a %U:%G %F", path).strip() == wanted


def test_what_was_installed_is_what_was_packaged(guest):
    assert guest.run("dpkg", "--verify", "tovrel") == ""


@pytest.mark.parametrize("user", ["tovrel", "norq"])
def test_nobody_can_log_in_as_a_service(guest, user):
    entry = guest.run("getent", "passwd", user).strip().split(":")
    assert entry[6] == "/usr/sbin/nologin"
    assert guest.run("getent", "shadow", user).split(":")[1].startswith("!")


@pytest.mark.parametrize("name", ["com.norq.Tovrel1", "com.norq.EventService1",
                                  "com.norq.BasicDeviceInfo1", "com.norq.MQTTMessagingService1"])
def test_no_other_user_can_take_the_name_of_a_service(guest, name):
    taken = guest.try_run("runuser", "-u", "nobody", "--", "busctl", "--system", "call",
                          "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                          "RequestName", "su", name, "4")
    assert "denied" in taken.stderr


@pytest.mark.parametrize("unit", UNITS)
def test_a_unit_is_sound_and_closed_off(guest, unit):
    assert guest.run("systemd-analyze", "verify", "--man=no", unit) == ""
    verdict = guest.run("systemd-analyze", "security", "--no-pager", unit)
    exposure = re.search(r"Overall exposure level for \S+: ([0-9.]+)", verdict)[1]
    print(unit, exposure)
    assert float(exposure) <= HIGHEST_EXPOSURE, verdict
