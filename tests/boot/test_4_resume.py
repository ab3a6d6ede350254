"""What is configured in the last moment of a service that ends itself does not lie dormant."""

import time

import pytest
from service import END_SECONDS, ITEMS, PUBLICATION, UNIT
from waiting import wait_until

# Five seconds, and up to one more by the way in which timers are gathered.
LONGEST_LIFE_SECONDS = 7


def configure_while_ending(service, topic_filter):
    """
    Makes a service end itself while the call that configures it waits for it: it is stopped before
    its end is due and goes on behind it. It handles one call in a turn of its main loop, so its end
    is due with the first call, and the change comes while it gives its name back.
    """
    assert service.items() == []
    due = time.monotonic() + LONGEST_LIFE_SECONDS
    ending = service.main_pid()
    service.signal_process("STOP", ending)
    caller = service.guest.start("caller", "add", topic_filter)
    assert caller.stdout.readline() == "sent\n"
    wait_until(lambda: time.monotonic() >= due, "the end of the service is due")
    service.signal_process("CONT", ending)
    assert caller.communicate(timeout=END_SECONDS)[0] == "0\n", "the change was accepted"
    wait_until(lambda: service.main_pid() != ending, "the service has ended")
    log = service.log(f"--unit={UNIT}", f"_PID={ending}")
    assert "Name released - quitting main loop" in log
    return ending


@pytest.fixture(name="dormant")
def without_the_remedy(guest, unconfigured):
    """The service of a unit that does not look behind it."""
    guest.shell("mkdir -p /run/systemd/system/tovrel.service.d"
                " && printf '[Unit]\\nOnSuccess=\\n' >/run/systemd/system/tovrel.service.d/no.conf"
                " && systemctl daemon-reload")
    yield unconfigured
    guest.shell("rm -r /run/systemd/system/tovrel.service.d && systemctl daemon-reload")


def test_a_change_accepted_while_the_service_ends_starts_it_again(guest, unconfigured):
    ended = configure_while_ending(unconfigured, "last/moment")
    unconfigured.wait_for_other_process(than=ended)
    unconfigured.wait_for_state("active")
    assert "starting it again" in unconfigured.log("--unit=tovrel-resume.service")
    assert "last/moment" in guest.run("cat", ITEMS)
    # Nobody has called it: it is there for what was configured.
    assert unconfigured.items() == ["last/moment"]


def test_without_the_remedy_the_change_would_lie_dormant(guest, dormant):
    configure_while_ending(dormant, "last/moment")
    dormant.wait_for_state("inactive")
    assert "last/moment" in guest.run("cat", ITEMS)
    # A boot would bring it to life, and so does this.
    dormant.start()
    assert dormant.items() == ["last/moment"]


def test_a_service_that_found_nothing_to_do_is_not_started_again(unconfigured):
    runs = unconfigured.resume_runs()
    assert unconfigured.items() == []
    unconfigured.wait_for_state("inactive")
    unconfigured.wait_for_resume(runs)
    assert unconfigured.state() == "inactive"


def test_settings_without_a_filter_are_nothing_to_do(guest, unconfigured):
    runs = unconfigured.resume_runs()
    unconfigured.set_event_filters()
    assert "[common]" in guest.run("cat", PUBLICATION)
    unconfigured.wait_for_state("inactive")
    unconfigured.wait_for_resume(runs)
    assert unconfigured.state() == "inactive"


@pytest.mark.parametrize("path, damage", [(ITEMS, "half a record"),
                                          (PUBLICATION, "[0]\\ntopicFilter=onvif:A")])
def test_a_damaged_file_does_not_make_it_start_for_ever(guest, unconfigured, path, damage):
    runs = unconfigured.resume_runs()
    starts = unconfigured.log(f"--unit={UNIT}").count("tovrel starting")
    guest.shell(f"printf '{damage}\\n' >{path} && chown tovrel:tovrel {path}")
    unconfigured.start()
    # It looks as if there were something to do: it is given one more try.
    unconfigured.wait_for_resume(runs)
    unconfigured.wait_for_state("inactive")
    unconfigured.wait_for_resume(runs + 1)
    assert unconfigured.state() == "inactive"
    assert unconfigured.log(f"--unit={UNIT}").count("tovrel starting") == starts + 2


def test_a_service_that_was_told_to_stop_stays_so(unconfigured):
    unconfigured.set_items("a/b")
    runs = unconfigured.resume_runs()
    unconfigured.stop()
    unconfigured.wait_for_resume(runs)
    assert unconfigured.state() == "inactive"
