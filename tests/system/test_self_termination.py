"""
Calls that arrive while the service ends itself because nothing is configured.

The cases with clients that call all the time live through ENDS ends each, more than twenty in all.
"""

import json
import signal
import os
import time

import pytest
from bridge import (ITEMS, Watcher, assert_order, call_service, exit_statuses, log_of, publish,
                    signal_neighbour, wait_for_end_of_service, wait_for_subscription)
from bus_clients import ConfigurationClient, PersistentClient, request_text
from configuration_api import checked_answer
from publishing import PUBLICATION, key_file, settings
from service_state import wait_until_idle
from waiting import wait_until

ENDS = 6
CLIENTS = 3
# Five seconds, and up to one more by the way in which GLib gathers timers.
LONGEST_LIFE_SECONDS = 7
DEFAULT_PUBLICATION = {"topicPrefix": "default", "customTopicPrefix": "", "appendEventTopic": True,
                       "includeTopicNamespaces": True, "includeSerialNumberInPayload": False,
                       "eventFilter": []}

GET_ITEMS = ("GetMQTTToEventConfig", "ok")
GET_FILTERS = ("GetEventToMQTTConfig", "ok")
SET_ITEMS = ("SetMQTTToEventConfig", "ok 0")
SET_FILTERS = ("SetEventToMQTTConfig", "ok 0")


def request(wanted, *operation_and_path, **members):
    """A request and the reply to it, which holds this data."""
    text = request_text(*operation_and_path, **members)
    answer = json.dumps({"data": wanted}, separators=(",", ":"))
    checked_answer(text, answer)
    return f"HandleRequest {text}", f"ok {answer}"


LIST_ITEMS = request([], "listKeys", "subscription")
GET_PUBLICATION = request(DEFAULT_PUBLICATION, "get", "publication")
SET_PUBLICATION = request(None, "set", "publication", data={"customTopicPrefix": ""})
IMPORT_NOTHING = request(None, "import", data={}, options={"importType": "replace"})


def survive_ends(*exchanges):
    """
    Several clients make these calls, which configure nothing, while the service ends itself ENDS
    times. Each call must be answered as it says, and each end must have met calls.
    """
    clients = [PersistentClient(ENDS, *exchanges) for _ in range(CLIENTS)]
    try:
        results = [client.result(seconds=250) for client in clients]
    finally:
        for client in clients:
            client.close()
    print(*results, sep="\n")
    for counts, failures in results:
        assert failures == []
        assert counts["ends"] == [ENDS]
        assert len(counts["by-successor"]) == ENDS
    # While the name is free, a new client may call and so bring the next service at any moment:
    # each end has met calls of at least one client.
    for met in zip(*(counts["by-successor"] for counts, _ in results)):
        assert sum(met) > 0
    wait_until(lambda: len(exit_statuses()) >= ENDS, "the last ends have been noted")
    assert set(exit_statuses()) == {0}
    assert log_of("tovrel").count("Name released - quitting main loop") >= ENDS


def test_no_call_of_the_listing_methods_is_lost_while_the_service_ends_itself():
    survive_ends(GET_ITEMS, GET_FILTERS)


def test_no_call_of_the_replacing_methods_is_lost_while_the_service_ends_itself():
    survive_ends(SET_ITEMS, SET_FILTERS, GET_ITEMS)


def test_no_reading_request_is_lost_while_the_service_ends_itself():
    survive_ends(LIST_ITEMS, GET_PUBLICATION)


def test_no_writing_request_is_lost_while_the_service_ends_itself():
    survive_ends(SET_PUBLICATION, IMPORT_NOTHING, GET_PUBLICATION, SET_ITEMS, LIST_ITEMS)


# what is configured in the very moment

class HeldService:
    """
    A service with nothing to do that is stopped before its end and resumed behind it, so that it
    finds its end and the calls that have come meanwhile at once. It handles one call in each turn of
    its main loop: its end is due in the turn of the first call, the others arrive while it gives its
    name back.
    """

    def __init__(self):
        self.client = ConfigurationClient()
        assert self.client.call("GetMQTTToEventConfig") == "ok"
        self.pid = self.client.service_pid()
        self.resumes_at = time.monotonic() + LONGEST_LIFE_SECONDS
        os.kill(self.pid, signal.SIGSTOP)
        # Passed on to the service, which cannot answer.
        self.client.send("GetMQTTToEventConfig")

    def replies_while_ending(self, *calls):
        """The replies to calls that arrive while the name is given back."""
        self.client.send(*calls, "Sync")
        assert self.client.reply().startswith("ok "), "the bus has passed on the calls"
        wait_until(lambda: time.monotonic() >= self.resumes_at, "the end of the service is due")
        assert exit_statuses() == []
        os.kill(self.pid, signal.SIGCONT)
        assert self.client.reply() == "ok"
        return [self.client.reply() for _ in calls]


@pytest.fixture(name="held")
def held_service():
    held = HeldService()
    yield held
    held.client.close()


def assert_kept_while_ending(held, exchange, file, listing, wanted):
    """A call that configures something is answered, saved, and counts in the next service."""
    call, reply = exchange
    assert held.replies_while_ending(call) == [reply]
    saved = file.read_bytes()
    assert wait_for_end_of_service() == 0
    assert_order(log_of("tovrel"), "Releasing DBus name", "Could not remove termination task",
                 "Name released - quitting main loop")
    assert held.client.call(listing) == wanted
    assert held.client.service_pid() not in (None, held.pid)
    assert file.read_bytes() == saved


def test_items_set_while_the_service_ends_are_saved(held):
    assert_kept_while_ending(held, ("SetMQTTToEventConfig a/b c/d", "ok 0"), ITEMS,
                             "GetMQTTToEventConfig", "ok a/b c/d")


def test_filters_set_while_the_service_ends_are_saved(held):
    assert_kept_while_ending(held, ("SetEventToMQTTConfig onvif:A", "ok 0"), PUBLICATION,
                             "GetEventToMQTTConfig", "ok onvif:A")


def test_items_imported_while_the_service_ends_are_saved(held):
    exchange = request(None, "import", data={"subscription": [{"id": "3", "topicFilter": "a/b"}]})
    assert_kept_while_ending(held, exchange, ITEMS, "GetMQTTToEventConfig", "ok a/b")


def test_filters_added_while_the_service_ends_are_saved(held):
    exchange = request({"id": "0", "topicFilter": "onvif:A", "qos": "QOS_0", "retain": "property"},
                       "add", "publication", "eventFilter", data={"topicFilter": "onvif:A"})
    assert_kept_while_ending(held, exchange, PUBLICATION, "GetEventToMQTTConfig", "ok onvif:A")


def test_an_item_set_while_the_service_ends_works_in_the_next_service(held, events):
    assert held.replies_while_ending(f"SetMQTTToEventConfig a/b {Watcher.END_TOPIC}") == ["ok 0"]
    assert wait_for_end_of_service() == 0
    call_service()
    wait_for_subscription(Watcher.END_TOPIC)
    publish("a/b", "heard")
    assert [event.payload for event in events.all_so_far()] == ["heard"]


def test_as_many_calls_as_a_connection_may_have_open_are_answered_while_the_service_ends(held):
    listing, wanted = LIST_ITEMS
    replies = held.replies_while_ending(*[listing, "GetEventToMQTTConfig"] * 60)
    assert replies == [wanted, "ok"] * 60
    assert wait_for_end_of_service() == 0


def test_replies_that_the_bus_takes_late_are_not_lost_with_the_end_of_the_service():
    # More than any socket holds, so that most replies have to wait in the service.
    PUBLICATION.write_text(key_file(settings(custom="x" * 1_000_000), {}), encoding="ascii")
    held = HeldService()
    held.client.send(*["GetEventToMQTTConfig"] * 40, "Sync")
    assert held.client.reply().startswith("ok "), "the bus has passed on the calls"
    wait_until(lambda: time.monotonic() >= held.resumes_at, "the end of the service is due")
    signal_neighbour("bus", signal.SIGSTOP)
    os.kill(held.pid, signal.SIGCONT)
    wait_until_idle(held.pid)
    signal_neighbour("bus", signal.SIGCONT)
    assert [held.client.reply() for _ in range(41)] == ["ok"] * 41
    assert wait_for_end_of_service() == 0
    held.client.close()
