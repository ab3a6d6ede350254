"""
What is promised about changes of the configuration, line by line of docs/delivery.md, while events
and messages flow and the changes come over the bus, by both doors.
"""

import subprocess
import threading

import pytest
from bridge import (HOST, PORT, Watcher, exit_statuses, item, log_of, publish, start_with,
                    times_subscribed, wait_for_subscription)
from publishing import event_filter, send_event, wait_for_connection
from stream import FILTER, Arrivals, Stream, gaps
from waiting import DEADLINE_SECONDS

# So slow that no neighbour drops any of it, on a slow machine neither.
RATE = 200
# Of the flow, between two changes.
UNDISTURBED = 50
ALARM = "tns1:Device/tnsnorq:Alarm"
DOOR = "tns1:Device/tnsnorq:Door"


@pytest.fixture(name="stream")
def streaming():
    stream = Stream(RATE)
    yield stream
    stream.close()


@pytest.fixture(autouse=True)
def service_and_its_neighbours_keep_up():
    yield
    assert exit_statuses() == []
    assert "does not keep up" not in log_of("eventd")
    assert "Too many queued events" not in log_of("tovrel")


def lost_runs(numbers, last):
    """
    The runs of numbers that are missing in a flow from 1 to last, whose end must be there. None may
    have come twice, or too early.
    """
    assert numbers[-UNDISTURBED:] == list(range(last - UNDISTURBED + 1, last + 1))
    return gaps([0, *numbers])


def assert_each_change_costs_one_run(stream, changes):
    """Makes each change as soon as events flow again behind the one before."""
    stream.run()
    arrivals = Arrivals()
    arrivals.wait_for(UNDISTURBED)
    for change in changes:
        change()
        # What is sent behind the answer may still be lost: the filters are activated afterwards.
        arrivals.wait_for_run(UNDISTURBED, stream.sent)
    last = stream.pause()
    arrivals.wait_for(last)
    missing = lost_runs(arrivals.first_times(), last)
    print("missing:", missing)
    assert arrivals.times_again() == 0
    assert len(missing) <= len(changes)


# events to MQTT

def test_e6_a_changed_setting_costs_a_stream_one_run_of_events(published, stream, client):
    published.start(event_filter(FILTER))
    assert_each_change_costs_one_run(stream, [
        lambda: client.done("set", "publication", data={"includeSerialNumberInPayload": True}),
        lambda: client.done("set", "publication", data={"topicPrefix": "none"}),
        lambda: client.done("set", "publication", data={"topicPrefix": "custom",
                                                        "customTopicPrefix": "site/7"}),
        lambda: client.done("set", "publication", data={"includeTopicNamespaces": False}),
        lambda: client.done("set", "publication", data={"includeTopicNamespaces": False})])


def test_e6_a_changed_filter_costs_a_stream_one_run_of_events(published, stream, client):
    published.start(event_filter(FILTER), event_filter("onvif:Device/norq:Alarm"))
    assert_each_change_costs_one_run(stream, [
        lambda: client.done("set", "publication", "eventFilter", "0", data={"retain": "all"}),
        lambda: client.done("import", data={"publication": {"eventFilter": [
            {"id": "7", "topicFilter": "onvif:B"}]}}),
        lambda: client.done("set", "publication", "eventFilter", "7", data={"retain": "all"}),
        lambda: client.done("remove", "publication", "eventFilter", "7"),
        lambda: client.done("remove", "publication", "eventFilter", "1"),
        lambda: client.done("add", "publication", "eventFilter", data={"topicFilter": "onvif:A"})])


def test_e6_replaced_filters_cost_a_stream_one_run_of_events(published, stream, client):
    published.start(event_filter(FILTER))
    exported = client.done("get", "publication")
    exported["eventFilter"] = [{"id": "0", "topicFilter": FILTER, "qos": "QOS_1",
                                "retain": "none"}]
    def import_all():
        client.done("import", data={"publication": exported}, options={"importType": "replace"})
    def set_all():
        assert client.call(f"SetEventToMQTTConfig {FILTER}") == "ok 0"
    assert_each_change_costs_one_run(stream, [import_all, set_all, import_all, set_all, set_all])


def test_e6_what_waits_for_the_broker_is_discarded_with_a_change(published, relay, client):
    published.start(event_filter("onvif:Device/norq:Alarm//."))
    relay.cut()
    wait_for_connection(False)
    send_event("--topic", ALARM, "number:int=1")
    client.done("set", "publication", data={"topicPrefix": "none"})
    relay.open()
    published.wait_until_subscribed()
    send_event("--topic", ALARM, "number:int=2")
    told = [message.document["Data"]["number"] for message in published.all_so_far()]
    assert told == [2]


def test_e6_of_a_removed_filter_nothing_is_published_any_more(published, client):
    published.start(event_filter("onvif:Device/norq:Alarm"), event_filter("onvif:Device/norq:Door"))
    client.done("remove", "publication", "eventFilter", "0")
    published.wait_until_subscribed()
    send_event("--topic", ALARM)
    send_event("--topic", DOOR)
    assert [message.document["Topic"] for message in published.all_so_far()] == [
        "onvif:Device/norq:Door"]


# MQTT to events

class Flow:
    """Publishes the numbers 1, 2, 3, ... on a topic at RATE a second, over one connection."""

    def __init__(self, topic):
        self.process = subprocess.Popen(
            ["mosquitto_pub", "-h", HOST, "-p", PORT, "-t", topic, "-q", "1", "-l"], text=True,
            stdin=subprocess.PIPE)
        self.sent = 0
        self.stopping = threading.Event()
        self.thread = threading.Thread(target=self._feed)
        self.thread.start()

    def _feed(self):
        while not self.stopping.wait(1 / RATE):
            self.sent += 1
            self.process.stdin.write(f"{self.sent}\n")
            self.process.stdin.flush()

    def close(self):
        """The last number; when it returns, the broker has every message."""
        self.stopping.set()
        self.thread.join()
        if self.process.returncode is None:
            self.process.stdin.close()
            assert self.process.wait(timeout=DEADLINE_SECONDS) == 0
        return self.sent


@pytest.fixture(name="flow")
def flowing():
    flow = Flow("flow")
    yield flow
    flow.close()


def events_until(events, wanted):
    """The events up to one that is wanted."""
    told = []
    while not told or not wanted(told[-1]):
        told.append(events.next())
    return told


def test_m7_changed_items_cost_a_flow_one_run_and_bring_retained_messages_again(
        events, client, flow):
    publish("kept", "value", "-r")
    start_with(item(0, "flow"), item(1, "kept"), Watcher.END_ITEM)
    exported = client.done("get", options={"omitReadOnly": True})
    changes = [
        lambda: client.done("import", data={"subscription": [{"id": "2", "topicFilter": "other"}]}),
        lambda: client.done("set", "subscription", "2", data={"topicFilter": "third"}),
        lambda: client.done("remove", "subscription", "2"),
        lambda: client.done("import", data=exported, options={"importType": "replace"}),
        lambda: client.call(f"SetMQTTToEventConfig kept flow {Watcher.END_TOPIC}")]
    told = events_until(events, lambda event: event.topic == "kept")
    for change in changes:
        change()
        told += events_until(events, lambda event: event.topic == "kept")
        sent = flow.sent
        told += events_until(events, lambda event: event.topic == "flow" and
                             int(event.payload) >= sent + UNDISTURBED)
    last = flow.close()
    told += events.all_so_far()
    assert [event.payload for event in told if event.topic == "kept"] == (
        ["value"] * (1 + len(changes)))
    numbers = [int(event.payload) for event in told if event.topic == "flow"]
    # It flowed before anything was subscribed.
    missing = lost_runs(numbers, last)
    print("missing:", missing)
    assert len(missing) <= 1 + len(changes)


def told_to_a_new_watcher(*messages):
    """What a new watcher is told: what is kept for it, and of messages that are sent after that."""
    watcher = Watcher()
    try:
        for message in messages:
            publish("a/b", message)
        return [event.payload for event in watcher.all_so_far()]
    finally:
        watcher.close()


def test_m8_a_last_value_is_kept_until_the_items_are_changed(client):
    start_with(item(0, "a/b", stateful=True), Watcher.END_ITEM)
    for change in (
            lambda: client.done("import", data={"subscription": [{"id": "7", "topicFilter": "c"}]}),
            lambda: client.done("set", "subscription", "7", data={"topicFilter": "d"}),
            lambda: client.done("remove", "subscription", "7"),
            lambda: client.done("add", "subscription", data={"topicFilter": "e"})):
        assert told_to_a_new_watcher("first", "last") == ["first", "last"]
        assert told_to_a_new_watcher() == ["last"]
        before = times_subscribed(Watcher.END_TOPIC)
        change()
        wait_for_subscription(Watcher.END_TOPIC, before)
        assert told_to_a_new_watcher() == []
