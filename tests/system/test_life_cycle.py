"""When the service runs, how it ends, and what its exit status says."""

import os
import re
import subprocess
import time
from pathlib import Path

from bridge import (DEADLINE_SECONDS, Watcher, assert_order, call_service, configure, control, exit_statuses,
                    item, log_of, publish, service_pid, start_with, wait_for_end_of_service)
from waiting import wait_until

END = Watcher.END_ITEM
IDLE_LIMIT_SECONDS = 5


def run_another_service():
    """Runs the program itself beside the one that the bus may have started."""
    return subprocess.run([os.environ["SANDBOX_TOVREL"]], check=False, text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=DEADLINE_SECONDS,
                          env=os.environ | {"NORQ_LOG_STDERR": "1"})


def test_starting_is_told_step_by_step_in_the_log():
    start_with(END)
    assert_order(log_of("tovrel"), "tovrel starting", "Created dbus handler",
                 "Created event producer", "Created consumer handler")


def test_with_nothing_configured_the_service_ends_itself_after_five_seconds():
    started = time.monotonic()
    call_service()
    assert wait_for_end_of_service() == 0
    lasted = time.monotonic() - started
    # GLib gathers timeouts of whole seconds, by less than a second.
    assert IDLE_LIMIT_SECONDS - 1 <= lasted <= IDLE_LIMIT_SECONDS + 4, lasted
    assert_order(log_of("tovrel"), "Releasing DBus name", "Name released - quitting main loop")


def test_an_empty_file_of_items_is_nothing_configured():
    configure()
    call_service()
    assert wait_for_end_of_service() == 0


def test_with_an_item_configured_the_service_stays():
    start_with(END)
    pid = service_pid()
    still_there_until = time.monotonic() + IDLE_LIMIT_SECONDS + 2
    while time.monotonic() < still_there_until:
        assert service_pid() == pid
        time.sleep(0.2)
    assert exit_statuses() == []
    assert "Releasing DBus name" not in log_of("tovrel")


def test_a_call_brings_the_service_back_after_it_has_ended_itself(events):
    call_service()
    assert wait_for_end_of_service() == 0
    start_with(item(0, "a/b"), END)
    publish("a/b", "back again")
    assert [event.payload for event in events.all_so_far()] == ["back again"]


def test_no_call_is_lost_while_the_service_ends_itself():
    call_service()
    ends = 0
    deadline = time.monotonic() + IDLE_LIMIT_SECONDS + 3
    while time.monotonic() < deadline:
        call_service()
        ends = len(exit_statuses())
    assert ends >= 1
    assert set(exit_statuses()) == {0}


def test_a_second_service_finds_the_name_taken_and_ends_with_1(events):
    start_with(item(0, "a/b"), END)
    second = run_another_service()
    assert second.returncode == 1
    assert_order(second.stderr, "Failed getting service name: error: File exists",
                 "Exception when starting tovrel: Service name request failed: "
                 "error: File exists, could not start")
    publish("a/b", "still there")
    assert [event.payload for event in events.all_so_far()] == ["still there"]


def test_without_a_system_bus_the_service_ends_with_1():
    control("kill", "bus")
    result = run_another_service()
    assert result.returncode == 1
    assert_order(result.stderr, "Failed adding to open bus!",
                 "Exception when starting tovrel: Failed adding to open bus!, could not start")


def test_the_loss_of_the_system_bus_is_an_error_and_ends_the_service_with_1():
    start_with(END)
    lines = len(log_of("tovrel").splitlines())
    control("kill", "bus")
    assert wait_for_end_of_service() == 1
    said = log_of("tovrel").splitlines()[lines:]
    assert any(re.search(r"\b(err|error)\b", line) and "bus" in line.lower() for line in said), said


def test_the_service_does_not_handle_sigterm_while_it_works():
    start_with(END)
    control("stop", "tovrel")
    assert wait_for_end_of_service() == 128 + 15


def test_without_the_device_services_the_service_works_and_says_what_it_misses(events):
    control("stop", "deviced")
    start_with(item(0, "a/b"), END)
    assert "failed to call method!: " in log_of("tovrel")
    publish("a/b", "works")
    assert [event.payload for event in events.all_so_far()] == ["works"]


def context_switches(pid):
    """How often the threads of a process have woken up and gone to sleep again."""
    total = 0
    for thread in Path("/proc", str(pid), "task").iterdir():
        status = (thread / "status").read_text()
        total += int(re.search(r"^voluntary_ctxt_switches:\s+(\d+)$", status, re.MULTILINE)[1])
    return total


def test_an_idle_service_does_not_wake_up():
    start_with(END)
    pid = service_pid()
    # It has come to rest when a whole second brings no wake-up.
    def at_rest():
        before = context_switches(pid)
        time.sleep(1)
        return context_switches(pid) == before
    wait_until(at_rest, "the service has come to rest")

    seconds = 20
    before = context_switches(pid)
    time.sleep(seconds)
    wake_ups = context_switches(pid) - before
    print(f"wake-ups of the idle service in {seconds} s: {wake_ups} "
          f"({wake_ups * 60 / seconds:.1f} a minute, all threads together)")
    # A keepalive every 60 seconds may fall into the time: sent, answered, and looked at.
    assert wake_ups <= 6
