"""What is promised about messages as events, line by line of docs/delivery.md, across outages."""

import signal

from bridge import (Watcher, assert_order, call_service, control, declarations, item, log_of,
                    publish, publish_lines, signal_neighbour, start_with, times_subscribed,
                    wait_for_log, wait_for_subscription)
from publishing import wait_for_connection
from relay import DISCONNECT, PUBREL, SETTINGS
from waiting import wait_until

END = Watcher.END_ITEM


def test_m9_a_message_while_the_event_service_is_away_becomes_no_event():
    start_with(item(0, "a/b"), END)
    declared = declarations()
    control("kill", "eventd")
    publish("a/b", "lost")
    wait_for_log("Could not send stateless MQTT event: ")
    control("start", "eventd")
    wait_until(lambda: declarations() == declared, "the declarations have come back")
    events = Watcher()
    try:
        publish("a/b", "found")
        assert [event.payload for event in events.all_so_far()] == ["found"]
    finally:
        events.close()


def arrived_after_a_break(events, relay, clean_session):
    """The payloads of the events of messages that were sent while the service was cut off."""
    with SETTINGS.open("a", encoding="utf-8") as broker:
        broker.write(f"clean-session={str(clean_session).lower()}\n")
    start_with(item(0, "a/b", qos=2), END)
    relay.cut()
    wait_for_connection(False)
    for qos in range(3):
        publish("a/b", f"of QoS {qos}", "-q", str(qos))
    before = times_subscribed(Watcher.END_TOPIC)
    relay.open()
    wait_for_subscription(Watcher.END_TOPIC, before)
    return [event.payload for event in events.all_so_far()]


def test_m11_a_persistent_session_keeps_messages_while_the_connection_is_down(events, relay):
    assert arrived_after_a_break(events, relay, False) == ["of QoS 1", "of QoS 2"]


def test_m11_a_clean_session_keeps_no_messages_while_the_connection_is_down(events, relay):
    assert arrived_after_a_break(events, relay, True) == []


def cut_off_in_the_middle(relay, topic, payload):
    """The broker hands over a message of QoS 2; its release gets lost with the connection."""
    relay.lose(PUBREL)
    publish(topic, payload, "-q", "2")
    relay.wait_for_lost(1)
    relay.cut()
    wait_for_connection(False)


def events_behind_the_break(events, relay):
    """The payloads of what comes next, and of two messages that are sent then."""
    before = times_subscribed(Watcher.END_TOPIC)
    relay.open()
    wait_for_subscription(Watcher.END_TOPIC, before)
    publish("a/b", "new", "-q", "2")
    publish("a/b", "newer", "-q", "2")
    return [event.payload for event in events.all_so_far()]


def test_m11_a_message_that_a_clean_session_has_lost_does_not_take_the_place_of_another(events,
                                                                                        relay):
    start_with(item(0, "a/b", qos=2), END)
    cut_off_in_the_middle(relay, "a/b", "old")
    assert events_behind_the_break(events, relay) == ["new", "newer"]


def test_m11_a_message_that_a_lost_session_has_lost_does_not_take_the_place_of_another(events,
                                                                                       relay):
    with SETTINGS.open("a", encoding="utf-8") as broker:
        broker.write("clean-session=false\n")
    start_with(item(0, "a/b", qos=2), END)
    cut_off_in_the_middle(relay, "a/b", "old")
    # It saves nothing, not even sessions.
    control("kill", "broker")
    control("start", "broker")
    # The next connection would overtake it, did the service not wait for the end of this one.
    relay.slow_down(DISCONNECT)
    assert events_behind_the_break(events, relay) == ["new", "newer"]
    # It begins twice, and takes leave in between, lest the broker publishes its last will.
    assert_order(log_of("broker"), "running", "running", "-tovrel (p2, c0",
                 "Received DISCONNECT from norq-", "-tovrel (p2, c0")


def test_m11_a_persistent_session_completes_what_the_connection_has_cut_off(events, relay):
    with SETTINGS.open("a", encoding="utf-8") as broker:
        broker.write("clean-session=false\n")
    start_with(item(0, "a/b", qos=2), END)
    cut_off_in_the_middle(relay, "a/b", "old")
    assert events_behind_the_break(events, relay) == ["old", "new", "newer"]


def test_m12_what_was_received_and_is_no_event_yet_is_lost_with_a_crash(events):
    start_with(item(0, "a/b", qos=1), END)
    before = times_subscribed(Watcher.END_TOPIC)
    # More than the way to an event service that takes nothing holds.
    signal_neighbour("eventd", signal.SIGSTOP)
    publish_lines("a/b", [f"{number:01000}" for number in range(3000)], "-q", "1")
    wait_until(lambda: log_of("broker").count("Received PUBACK from norq-") == 3000,
               "the service has received every message")
    control("kill", "tovrel")
    signal_neighbour("eventd", signal.SIGCONT)
    call_service()
    wait_for_subscription(Watcher.END_TOPIC, before)
    told = [int(event.payload) for event in events.all_so_far()]
    assert told == list(range(len(told)))
    assert len(told) < 3000
