"""What is configured outlives the service; files of an older form are taken over."""

import os
import signal
import stat

import pytest
from bridge import (ETC, ITEMS, LEGACY_ITEMS, Watcher, call_service, control, declarations,
                    exit_statuses, item, log_of, publish, start_with, wait_for_end_of_service,
                    wait_for_log, wait_for_subscription)
from waiting import wait_until

END = Watcher.END_ITEM
LEGACY_END = f"{Watcher.END_TOPIC}\n0\n0\n0\n"


@pytest.fixture(autouse=True)
def nothing_but_configuration_in_the_folder():
    """No temporary file stays behind in the service's folder."""
    yield
    assert set(os.listdir(ETC)) <= {ITEMS.name, LEGACY_ITEMS.name}


def test_the_configuration_outlives_a_kill(events):
    start_with(item(0, "a/b"), END)
    before = ITEMS.read_text()
    control("kill", "tovrel")
    assert wait_for_end_of_service() == 128 + signal.SIGKILL
    start_with(item(0, "a/b"), END)
    publish("a/b", "after the kill")
    assert [event.payload for event in events.all_so_far()] == ["after the kill"]
    assert ITEMS.read_text() == before


def test_a_kill_takes_the_declarations_away_and_the_next_start_brings_them_back(events):
    start_with(item(0, "a/b", stateful=True), END)
    declared = declarations()
    control("kill", "tovrel")
    wait_until(lambda: declarations() == [], "the declarations of the killed service are gone")
    start_with(item(0, "a/b", stateful=True), END)
    assert declarations() == declared
    assert events.all_so_far() == []


def test_legacy_items_are_taken_over(events):
    LEGACY_ITEMS.write_text("a/b\n0\n1\n0\nbuilding/door\n0\n0\n1\n" + LEGACY_END)
    call_service()
    wait_for_subscription(Watcher.END_TOPIC)
    assert not LEGACY_ITEMS.exists()
    assert ITEMS.read_text() == (item(0, "a/b", qos=1) + item(1, "building/door", stateful=True) +
                                 item(2, Watcher.END_TOPIC))
    publish("a/b", "one")
    publish("building/door", "open")
    assert [(event.kind, event.payload) for event in events.all_so_far()] == [
        ("Stateless", "one"), ("Stateful", "open")]


def test_the_file_of_items_is_closed_to_others():
    LEGACY_ITEMS.write_text(LEGACY_END)
    call_service()
    wait_until(lambda: not LEGACY_ITEMS.exists(), "the legacy items are taken over")
    assert stat.S_IMODE(ITEMS.stat().st_mode) == 0o640


def test_a_legacy_item_with_an_invalid_filter_is_left_out():
    LEGACY_ITEMS.write_text("a/#/b\n0\n1\n0\n" + LEGACY_END)
    call_service()
    wait_for_subscription(Watcher.END_TOPIC)
    assert "Could not create new subscription: Invalid MQTT topic" in log_of("tovrel")
    assert ITEMS.read_text() == item(0, Watcher.END_TOPIC)


def test_a_legacy_file_that_ends_inside_an_item_is_kept(events):
    content = LEGACY_END + "a/b\n0\n"
    LEGACY_ITEMS.write_text(content)
    call_service()
    wait_for_subscription(Watcher.END_TOPIC)
    assert "Missing qos" in log_of("tovrel")
    assert LEGACY_ITEMS.read_text() == content
    assert not ITEMS.exists()
    assert events.all_so_far() == []


def test_the_whole_items_of_a_truncated_file_are_loaded(events):
    start_with(item(0, "a/b"), END, "7\nc/d\n0\n", subscribed_as=["a/b", Watcher.END_TOPIC])
    assert "Missing qos" in log_of("tovrel")
    publish("c/d", "not configured")
    publish("a/b", "configured")
    assert [event.topic for event in events.all_so_far()] == ["a/b"]


def test_a_filter_ends_at_its_first_blank(events):
    start_with(item(0, "a b/c"), END, subscribed_as=["a", Watcher.END_TOPIC])
    publish("a", "cut")
    assert [event.topic for event in events.all_so_far()] == ["a"]


def test_an_unreadable_file_means_that_nothing_is_configured():
    ITEMS.mkdir()
    call_service()
    wait_for_log("quitting main loop")
    assert wait_until(exit_statuses, "the service has ended") == [0]
    ITEMS.rmdir()


def test_many_items_are_subscribed():
    start_with(*(item(number, f"many/{number}") for number in range(256)))
