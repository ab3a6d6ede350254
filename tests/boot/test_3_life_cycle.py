"""Start, end and return of the service under systemd."""

import pytest
from service import ITEMS, RESUME, UNIT
from waiting import wait_until

# How long the service is called without a pause, and how often it ends itself at least meanwhile.
CALLS_SECONDS = 33
ENDS = 4
# "Well below the 25 seconds after which clients give up": what a client may notice.
SLOWEST_CALL_MILLISECONDS = 10_000


def test_the_service_ends_itself_and_is_left_alone(unconfigured):
    unconfigured.start()
    restarts = unconfigured.show("NRestarts")
    unconfigured.wait_for_state("inactive")
    assert unconfigured.show("Result") == "success"
    assert unconfigured.show("ExecMainCode") == "1", "it has exited"
    assert unconfigured.show("ExecMainStatus") == "0"
    assert unconfigured.show("NRestarts") == restarts


def test_a_call_starts_the_service_and_so_does_the_next_after_its_end(unconfigured):
    assert unconfigured.items() == []
    first = unconfigured.main_pid()
    assert first > 0
    unconfigured.wait_for_state("inactive")
    assert unconfigured.items() == []
    assert unconfigured.main_pid() not in (0, first)


def test_no_call_fails_however_often_the_service_ends_itself(guest, unconfigured):
    output = guest.run("caller", "often", str(CALLS_SECONDS))
    answered, failed, services, slowest = (int(word) for word in output.split())
    print(f"{answered} calls answered by {services} services, the slowest in {slowest} ms")
    assert failed == 0
    assert services > ENDS
    assert answered > 100 * services
    assert slowest < SLOWEST_CALL_MILLISECONDS
    assert unconfigured.show("Result") == "success"


def test_a_killed_service_comes_back_with_its_configuration(guest, unconfigured):
    unconfigured.set_items("a/b", "c/#")
    before = unconfigured.main_pid()
    guest.run("systemctl", "kill", "--signal=KILL", UNIT)
    # Without a call to its name, which would start it anyway.
    unconfigured.wait_for_other_process(than=before)
    assert unconfigured.show("NRestarts") == "1"
    unconfigured.wait_for_state("active")
    assert unconfigured.items() == ["a/b", "c/#"]


def test_a_service_without_the_bus_is_started_until_the_bus_is_there(guest, unconfigured):
    unconfigured.set_items("a/b")
    before = unconfigured.main_pid()
    resumed = resumptions(unconfigured)
    guest.run("systemctl", "restart", "dbus.service")
    unconfigured.wait_for_other_process(than=before)
    wait_until(lambda: unconfigured.items() == ["a/b"], "the service answers again")
    # Not by what looks behind an end with success.
    wait_until(lambda: not unconfigured.is_resume_due(), f"{RESUME} is through")
    assert resumptions(unconfigured) == resumed


def resumptions(service):
    return service.log(f"--unit={RESUME}").count("starting it again")


@pytest.mark.parametrize("configured", [True, False])
def test_at_boot_the_service_starts_and_stays_if_it_has_something_to_do(guest, unconfigured,
                                                                       configured):
    if configured:
        unconfigured.set_items("at/boot")
    guest.reboot()
    assert unconfigured.starts() == 1, "by the boot, not by a call"
    if not configured:
        unconfigured.wait_for_state("inactive")
        assert unconfigured.show("Result") == "success"
        return
    assert unconfigured.state() == "active"
    assert unconfigured.items() == ["at/boot"]
    assert guest.run("stat", "--format=%a %U:%G", ITEMS).strip() == "640 tovrel:tovrel"
