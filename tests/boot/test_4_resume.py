"""What is configured in the last moment of a service that ends itself does not lie dormant."""

import time

import pytest
from service import END_SECONDS, ITEMS, PUBLICATION, RESUME, UNIT
from waiting import wait_until

# Five seconds, and up to one more by the way in which timers are gathered.
LONGEST_LIFE_SECONDS = 7
DROP_INS = f"/run/systemd/system/{UNIT}.d"


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
    assert "Name released - quitting main loop" in service.said(f"_PID={ending}")
    return ending


def masked_runs(service):
    """How often an end of the service was not looked behind because that is switched off."""
    return service.log(f"--unit={UNIT}").count(f"Unit {RESUME} is masked")


@pytest.fixture(name="dormant")
def without_the_remedy(guest, unconfigured):
    """The service when nothing looks behind it."""
    guest.run("systemctl", "mask", "--runtime", RESUME)
    yield unconfigured
    guest.run("systemctl", "unmask", "--runtime", RESUME)


@pytest.fixture(name="lame")
def without_an_mqtt_client(guest, unconfigured):
    """The service with a system that refuses what its MQTT client needs first."""
    guest.shell(f"mkdir -p {DROP_INS} && printf '[Service]\nSystemCallFilter=~eventfd eventfd2\n'"
                f" >{DROP_INS}/lame.conf && systemctl daemon-reload")
    yield unconfigured
    heal(guest)


def heal(guest):
    guest.shell(f"rm -rf {DROP_INS} && systemctl daemon-reload")


def test_a_change_accepted_while_the_service_ends_starts_it_again(guest, unconfigured):
    ended = configure_while_ending(unconfigured, "last/moment")
    unconfigured.wait_for_other_process(than=ended)
    unconfigured.wait_for_state("active")
    assert "starting it again" in unconfigured.log(f"--unit={RESUME}")
    assert "last/moment" in guest.run("cat", ITEMS)
    # Nobody has called it: it is there for what was configured.
    assert unconfigured.items() == ["last/moment"]


def test_without_the_remedy_the_change_would_lie_dormant(guest, dormant):
    runs, masked = dormant.resume_runs(), masked_runs(dormant)
    configure_while_ending(dormant, "last/moment")
    wait_until(lambda: masked_runs(dormant) > masked, "the remedy was asked for, and is not there",
               END_SECONDS)
    assert dormant.state() == "inactive"
    assert dormant.resume_runs() == runs
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
    starts = unconfigured.starts()
    guest.shell(f"printf '{damage}\\n' >{path} && chown tovrel:tovrel {path}")
    unconfigured.start()
    # It looks as if there were something to do: it is given one more try.
    unconfigured.wait_for_resume(runs)
    unconfigured.wait_for_state("inactive")
    unconfigured.wait_for_resume(runs + 1)
    assert unconfigured.state() == "inactive"
    assert unconfigured.starts() == starts + 2


def test_a_service_that_was_told_to_stop_stays_so(unconfigured):
    unconfigured.set_items("a/b")
    runs = unconfigured.resume_runs()
    unconfigured.stop()
    unconfigured.wait_for_resume(runs)
    assert unconfigured.state() == "inactive"


def test_a_service_without_an_mqtt_client_is_started_once_more_and_left_alone(guest, lame):
    starts = lame.starts()
    guest.shell(f"printf '0\\na/b\\n0\\n1\\n0\\n' >{ITEMS} && chown tovrel:tovrel {ITEMS}")
    # It may have gone before it counts as started.
    guest.try_run("systemctl", "start", UNIT)
    wait_until(lambda: lame.starts() == starts + 2 and lame.is_at_rest(), "it was tried once more",
               END_SECONDS)
    assert (lame.show("Result"), lame.show("ExecMainStatus"), lame.show("NRestarts")) == (
        "success", "0", "0")
    assert lame.starts() == starts + 2
    assert lame.said("--priority=err").count("Failed to init: ") == 2

    heal(guest)
    assert lame.items() == ["a/b"], "the next call finds it well"


@pytest.mark.parametrize("settings", ["no key file", "[broker]\\nport=many"])
def test_bad_settings_of_the_mqtt_client_are_told_and_do_not_end_the_service(guest, unconfigured,
                                                                           settings):
    guest.shell(f"printf '{settings}\\n' >/etc/norq/mqtt.conf")
    try:
        starts = unconfigured.starts()
        unconfigured.set_items("a/b")
        process = unconfigured.main_pid()
        warnings = unconfigured.said(f"_PID={process}", "--priority=warning")
        assert "/etc/norq/mqtt.conf" in warnings
        assert unconfigured.state() == "active"
        assert unconfigured.starts() == starts + 1
    finally:
        guest.run("rm", "/etc/norq/mqtt.conf")
