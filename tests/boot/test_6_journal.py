"""Log lines carry their priority."""

import pytest
from service import PUBLICATION, UNIT

ERROR, INFORMATION = "3", "6"


@pytest.fixture(name="log", scope="module")
def log_with_an_error(guest, service):
    """All entries of a service that found one file damaged, and ran on."""
    service.forget_everything()
    guest.shell(f"printf 'no key file\\n' >{PUBLICATION} && chown tovrel:tovrel {PUBLICATION}")
    service.start()
    process = service.main_pid()
    service.stop()
    service.forget_everything()
    return service.entries(f"_PID={process}")


def priorities(log, message):
    return {entry["PRIORITY"] for entry in log if message in entry["MESSAGE"]}


def test_an_error_has_the_priority_of_errors(log):
    assert priorities(log, "Failed to load event filters") == {ERROR}


def test_progress_has_the_priority_of_information(log):
    assert priorities(log, "tovrel starting") == {INFORMATION}


def test_the_errors_alone_are_shown_when_asked_for(service, log):
    errors = service.entries(f"--unit={UNIT}", "--priority=err")
    assert {entry["PRIORITY"] for entry in errors} <= {"0", "1", "2", ERROR}
    process = log[0]["_PID"]
    shown = [entry["MESSAGE"] for entry in errors if entry["_PID"] == process]
    assert shown == [entry["MESSAGE"] for entry in log if int(entry["PRIORITY"]) <= int(ERROR)]
    assert 0 < len(shown) < len(log)


def test_entries_belong_to_the_unit_of_the_service(log):
    assert {entry["_SYSTEMD_UNIT"] for entry in log} == {UNIT}


def test_a_line_is_told_once(log):
    messages = [entry["MESSAGE"] for entry in log]
    assert messages.count(next(text for text in messages if "tovrel starting" in text)) == 1
