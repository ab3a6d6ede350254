"""
The device services are there but answer nothing: the service waits for them as long as sd-bus does,
does without what it asked for, and has lost no call that came meanwhile.
"""

import signal
import time

import pytest
from bridge import (Watcher, assert_order, exit_statuses, item, log_of, publish,
                    set_device_topic_prefix, signal_neighbour, start_with)
from bus_clients import ConfigurationClient, request_text
from configuration_api import checked_answer
from publishing import configure_publication, event_filter, send_event, set_serial_number
from waiting import DEADLINE_SECONDS

BUS_LIMIT_SECONDS = 25
ALARM = "tns1:Device/tnsnorq:Alarm"


@pytest.fixture(name="silence")
def silent_device_services():
    """Lets the device services fall silent; called with False, lets them speak again."""
    def be_silent(silent):
        signal_neighbour("deviced", signal.SIGSTOP if silent else signal.SIGCONT)
    yield be_silent
    be_silent(False)


@pytest.fixture(name="clients")
def two_clients():
    clients = ConfigurationClient(), ConfigurationClient()
    yield clients
    for client in clients:
        client.close()


def reply_after_the_limit(client, begin):
    """The next reply of a client, which comes once sd-bus has given the neighbour up."""
    reply = client.reply(BUS_LIMIT_SECONDS + DEADLINE_SECONDS)
    assert time.monotonic() - begin >= BUS_LIMIT_SECONDS - 1
    return reply


def test_a_serial_number_that_nobody_tells_is_done_without(silence, clients, published):
    set_serial_number("ACCC8E123456")
    configure_publication(event_filter("onvif:Device/norq:Alarm"), serial=True)
    silence(True)
    begin = time.monotonic()
    clients[0].send("SetMQTTToEventConfig a/b", "GetMQTTToEventConfig")
    assert reply_after_the_limit(clients[0], begin) == "ok 0"
    assert clients[0].reply() == "ok a/b"
    assert "err: failed to call method!: Connection timed out" in log_of("tovrel")

    silence(False)
    published.wait_until_subscribed()
    send_event("--topic", ALARM)
    told = [message.document for message in published.all_so_far()]
    assert [document["SerialNumber"] for document in told] == ["no_serial"]
    assert exit_statuses() == []


def test_a_device_topic_prefix_that_nobody_tells_is_empty(silence, clients, events):
    set_device_topic_prefix("devices/d1")
    start_with(item(0, "a/b"), Watcher.END_ITEM)
    assert clients[0].done("get")["deviceTopicPrefix"] == "devices/d1"

    silence(True)
    begin = time.monotonic()
    request = request_text("get")
    clients[0].send(f"HandleRequest {request}", "Sync")
    assert clients[0].reply().startswith("ok "), "the request is with the service"
    clients[1].send("GetMQTTToEventConfig", "SetEventToMQTTConfig onvif:A")
    publish("a/b", "meanwhile")
    answer = reply_after_the_limit(clients[0], begin).removeprefix("ok ")
    assert checked_answer(request, answer)["data"]["deviceTopicPrefix"] == ""
    assert clients[1].reply() == f"ok a/b {Watcher.END_TOPIC}"
    assert clients[1].reply() == "ok 0"
    assert_order(log_of("tovrel"),
                 "warning: Could not retrieve Device Topic Prefix: Connection timed out")
    assert [event.payload for event in events.all_so_far()] == ["meanwhile"]

    # The answer that comes too late is nobody's; the next one counts.
    silence(False)
    assert clients[0].done("get")["deviceTopicPrefix"] == "devices/d1"
    assert exit_statuses() == []
