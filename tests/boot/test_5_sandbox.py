"""What the unit's settings really keep the service from doing."""

import re

import pytest
from service import UNIT
from waiting import wait_until

PROBE = "/usr/local/bin/probe"
SETTINGS = "/run/systemd/system/tovrel.service.d/probe.conf"

# What the service needs. All else that the probe tries is refused.
ALLOWED = {"write in /etc/tovrel", "read the password of the broker", "local socket",
           "internet socket", "internet socket 6"}
REFUSED = {
    "write in /etc": "Read-only file system",
    "write in /etc/norq": "Read-only file system",
    "write in /usr/lib": "Read-only file system",
    "write in /var/lib": "Read-only file system",
    # Open to everybody but for the sandbox.
    "write in /var/lib/open": "Read-only file system",
    "write in /run/open": "Read-only file system",
    "write in /dev/shm": "Read-only file system",
    "write in /dev/mqueue": "Read-only file system",
    "write in /tmp": "Read-only file system",
    "write in /var/tmp": "Read-only file system",
    "write in /run": "Read-only file system",
    "write in /root": "Permission denied",
    "write in /home": "Permission denied",
    "read the passwords of users": "Permission denied",
    "look at the first process": "No such file or directory",
    "read the kernel's log": "No such file or directory|Operation not permitted",
    "run /bin/true": "Permission denied",
    "run /bin/sh": "Permission denied",
    "run /usr/bin/busctl": "Permission denied",
    "raw socket": "Operation not permitted",
    "netlink socket": "Address family not supported by protocol",
    "packet socket": "Address family not supported by protocol",
    "memory to write and run": "Operation not permitted",
    "new user namespace": "Operation not permitted",
    "new mount namespace": "Operation not permitted",
    "mount": "Operation not permitted",
    "become root": "Operation not permitted|Invalid argument",
    "real time": "Operation not permitted",
    "set-user-id file": "Operation not permitted",
    "host name": "Operation not permitted",
    "clock": "Operation not permitted",
    "load a module": "Operation not permitted",
}


@pytest.fixture(name="answers", scope="module")
def answers_to_the_probe(guest, service):
    """
    What each try comes to. The probe lies over the service's program and is started by the same
    unit: a setting added for it says no more than that it owns no name on the bus.
    """
    service.forget_everything()
    guest.shell("umask 027; printf '[broker]\\nhost=localhost\\n' >/etc/norq/mqtt.conf"
                " && chgrp norq /etc/norq/mqtt.conf")
    guest.shell("mkdir /run/open /var/lib/open && chmod 777 /run/open /var/lib/open")
    guest.shell(f"mkdir -p $(dirname {SETTINGS})"
                " && printf '[Unit]\\nOnSuccess=\\n[Service]\\nType=exec\\nExecStart=\\n"
                "Restart=no\\nExecStart=/usr/libexec/tovrel /etc/tovrel\\n"
                f"BindReadOnlyPaths={PROBE}:/usr/libexec/tovrel\\n' >{SETTINGS}"
                " && systemctl daemon-reload")
    try:
        service.start()
        wait_until(lambda: service.state() in ("inactive", "failed"), "the probe has ended")
        assert service.show("Result") == "success", service.log(f"--unit={UNIT}")
        lines = service.log(f"_SYSTEMD_INVOCATION_ID={service.show('InvocationID')}").splitlines()
    finally:
        guest.shell(f"rm {SETTINGS} /etc/norq/mqtt.conf && systemctl daemon-reload")
        service.stop()
    answers = dict(line.rsplit(": ", 1) for line in lines if re.search(r": \w", line))
    assert "load a module" in answers, lines
    return answers


def test_the_service_can_do_what_it_needs(answers):
    assert {what for what, answer in answers.items() if answer == "done"} == ALLOWED


@pytest.mark.parametrize("what", REFUSED)
def test_the_service_cannot(answers, what):
    assert re.fullmatch(REFUSED[what], answers[what])


def test_nothing_that_was_tried_went_unjudged(answers):
    assert set(answers) == ALLOWED | set(REFUSED)


@pytest.mark.parametrize("unit, user, groups", [
    ("tovrel.service", "tovrel", {"tovrel", "norq"}),
    ("norq-eventd.service", "norq", {"norq"}),
    ("norq-deviced.service", "norq", {"norq"}),
])
def test_a_running_service_has_no_rights(guest, service, unit, user, groups):
    guest.run("systemctl", "start", unit)
    process = service.show("MainPID", unit)
    status = dict(line.split(":\t", 1) for line in
                  guest.run("cat", f"/proc/{process}/status").splitlines() if ":\t" in line)
    number = guest.run("id", "-u", user).strip()
    assert status["Uid"].split() == [number] * 4
    names = {guest.run("getent", "group", group).split(":")[0] for group in status["Groups"].split()}
    assert names | {user} == groups
    for capabilities in ("CapInh", "CapPrm", "CapEff", "CapBnd", "CapAmb"):
        assert int(status[capabilities], 16) == 0
    assert status["NoNewPrivs"] == "1"
    assert status["Seccomp"] == "2"
