"""The neighbours of the service go away and come back, and messages flow again."""

import pytest
from bridge import (Watcher, call_service, configure, control, declarations, exit_statuses, item,
                    publish, service_pid, start_with, times_subscribed, wait_for_subscription)
from waiting import wait_until

END = Watcher.END_ITEM
FLOWS = item(0, "a/b")


@pytest.fixture(autouse=True)
def service_survives():
    """None of this ends the service."""
    yield
    assert exit_statuses() == []
    assert service_pid() is not None


def assert_messages_flow():
    watcher = Watcher()
    try:
        publish("a/b", "flows")
        assert [event.payload for event in watcher.all_so_far()] == ["flows"]
    finally:
        watcher.close()


def restart_broker(how):
    times = times_subscribed(Watcher.END_TOPIC)
    control(how, "broker")
    control("start", "broker")
    wait_for_subscription(Watcher.END_TOPIC, times)


def test_a_broker_that_comes_after_the_service_is_found():
    control("stop", "broker")
    configure(FLOWS, END)
    call_service()
    assert times_subscribed(Watcher.END_TOPIC) == 0
    control("start", "broker")
    wait_for_subscription(Watcher.END_TOPIC)
    assert_messages_flow()


def test_a_broker_that_is_restarted_is_found_again():
    start_with(FLOWS, END)
    restart_broker("stop")
    assert_messages_flow()


def test_a_broker_that_was_killed_is_found_again():
    start_with(FLOWS, END)
    restart_broker("kill")
    assert_messages_flow()


def test_a_restarted_event_service_gets_the_declarations_again():
    start_with(FLOWS, item(1, "door", stateful=True), END)
    declared = declarations()
    assert len(declared) == 4
    control("kill", "eventd")
    control("start", "eventd")
    wait_until(lambda: declarations() == declared, "the declarations have come back")
    assert_messages_flow()


def test_messages_while_the_event_service_is_away_do_no_harm():
    start_with(FLOWS, END)
    control("kill", "eventd")
    for number in range(100):
        publish("a/b", f"lost {number}")
    control("start", "eventd")
    wait_until(lambda: len(declarations()) == 3, "the declarations have come back")
    # What was still on its way may arrive now; what is sent from here on must.
    watcher = Watcher()
    try:
        publish("a/b", "found")
        assert watcher.all_so_far()[-1].payload == "found"
    finally:
        watcher.close()


def test_restarting_the_device_services_does_no_harm():
    start_with(FLOWS, END)
    control("restart", "deviced")
    assert_messages_flow()
