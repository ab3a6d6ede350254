"""What the unit's settings really keep the service from doing."""

import pytest
from sandbox import ALLOWED, DONE, REFUSED, RIGHTS, Sandbox, privileged


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


@pytest.fixture(name="sandbox", scope="module")
def sandbox_with_a_probe(guest, service):
    sandbox = Sandbox(guest, service)
    sandbox.prepare()
    yield sandbox
    sandbox.clean_up()


def test_the_service_can_do_what_it_needs(sandbox):
    answers = sandbox.probe()
    assert {what for what, answer in answers.items() if answer == DONE} == ALLOWED


@pytest.mark.parametrize("what", REFUSED)
def test_the_service_cannot(sandbox, what):
    assert sandbox.probe()[what] == REFUSED[what].answer


@pytest.mark.parametrize("what", REFUSED)
def test_it_is_the_unit_that_keeps_the_service_from(sandbox, what):
    refusal = REFUSED[what]
    assert sandbox.probe(*refusal.without)[what] == refusal.answer_without


@pytest.mark.parametrize("what", RIGHTS)
def test_the_service_cannot_even_with_the_right_to(sandbox, what):
    assert sandbox.probe(*privileged(RIGHTS[what]))[what] == REFUSED[what].answer


def test_nothing_that_was_tried_went_unjudged(sandbox):
    assert set(sandbox.probe()) == ALLOWED | set(REFUSED)
