"""
The service is killed again and again while a call configures it: the next service has the
configuration from before or the one that the call asked for, and nothing else.
"""

import collections
import os
import signal
import time
from dataclasses import dataclass

import pytest
from bridge import ETC, ITEMS
from bus_clients import ConfigurationClient, request_text
from kill_time import KillTime, Moment
from publishing import PUBLICATION
from waiting import wait_until

pytestmark = pytest.mark.usefixtures("folder_on_a_disk")

KILLS = 60
# As many as there can be but one, so that a save takes its time and one more can be added.
COUNT = 255


# documents of the configuration, as they are exported

def items(mark):
    return sorted(({"id": str(number), "topicFilter": f"{mark}/{number}", "qos": "QOS_0",
                    "isStateData": False, "useDeviceTopicPrefix": False}
                   for number in range(COUNT)), key=lambda item: item["id"])


def publication(mark):
    filters = sorted(({"id": str(number), "topicFilter": f"onvif:{mark}/norq:{number}",
                       "qos": "QOS_0", "retain": "none"} for number in range(COUNT)),
                     key=lambda each: each["id"])
    return {"topicPrefix": "default", "customTopicPrefix": "", "appendEventTopic": True,
            "includeTopicNamespaces": True, "includeSerialNumberInPayload": False,
            "eventFilter": filters}


@dataclass
class Change:
    """
    A call, and what it makes of the document. The files are saved one behind the other, in the order
    of the steps; the last one is the whole.
    """

    call: str
    steps: list


def topics_in_order_of_numbers(collection):
    return [each["topicFilter"] for each in sorted(collection, key=lambda each: int(each["id"]))]


def change_items(document, mark):
    wanted = items(mark)
    return Change(f"SetMQTTToEventConfig {' '.join(topics_in_order_of_numbers(wanted))}",
                  [document | {"subscription": wanted}])


def change_filters(document, mark):
    wanted = publication(mark)
    words = topics_in_order_of_numbers(wanted["eventFilter"])
    return Change(f"SetEventToMQTTConfig {' '.join(words)}", [document | {"publication": wanted}])


def import_document(document, mark):
    wanted = {"subscription": items(mark), "publication": publication(mark)}
    text = request_text("import", data=wanted, options={"importType": "replace"})
    return Change(f"HandleRequest {text}",
                  [document | {"subscription": wanted["subscription"]}, wanted])


def set_item(document, mark):
    wanted = [each | ({"topicFilter": f"{mark}/set"} if each["id"] == "7" else {})
              for each in document["subscription"]]
    text = request_text("set", "subscription", "7", data={"topicFilter": f"{mark}/set"})
    return Change(f"HandleRequest {text}", [document | {"subscription": wanted}])


def set_prefix(document, mark):
    wanted = document["publication"] | {"customTopicPrefix": mark}
    text = request_text("set", "publication", data={"customTopicPrefix": mark})
    return Change(f"HandleRequest {text}", [document | {"publication": wanted}])


CHANGES = (change_items, change_filters, import_document, set_item, set_prefix)


# the service

def exported(client):
    """What the service has configured now; a call that starts it."""
    return client.done("get", options={"omitReadOnly": True})


def files():
    return [(path.stat().st_ino, path.stat().st_mtime_ns) if path.exists() else None
            for path in (ITEMS, PUBLICATION)]


def seconds_until_saved(client, change):
    """From the call to the end of its last save."""
    before, begin = files(), time.monotonic()
    client.send(change.call)
    seen = [begin]
    while not client.lines.has_line():
        if files() != before:
            before = files()
            seen.append(time.monotonic())
        time.sleep(0.0002)
    assert client.reply().startswith("ok")
    return seen[-1] - begin


def killed_during(client, change, seconds):
    """
    Whether the call was answered although the service was killed after some time: before that, or,
    where the bus got the call only behind it, by the successor that the bus has started.
    """
    pid = client.service_pid()
    client.send(change.call)
    time.sleep(seconds)
    os.kill(pid, signal.SIGKILL)
    reply = client.reply()
    assert reply.startswith(("ok", "error org.freedesktop.DBus.Error.NoReply ")), reply
    wait_until(lambda: client.service_pid() != pid, "the bus has seen the end")
    return reply.startswith("ok")


def moment_of(before, now, change, left_behind):
    if now == before and not left_behind:
        return Moment.BEFORE
    if now == change.steps[-1] and not left_behind:
        return Moment.AFTER
    return Moment.INTO


def temporary_files():
    return set(os.listdir(ETC)) - {ITEMS.name, PUBLICATION.name}


def test_a_kill_at_any_moment_of_a_call_leaves_the_configuration_before_or_behind_it(client):
    kill_times = {}
    fell = collections.Counter()
    document = {"subscription": items("first"), "publication": publication("first")}
    assert client.call(import_document(document, "first").call) == 'ok {"data":null}'
    for round_number in range(KILLS):
        make = CHANGES[round_number % len(CHANGES)]
        if make not in kill_times:
            change = make(document, "measured")
            kill_times[make] = KillTime(seconds_until_saved(client, change), 0.7)
            document = change.steps[-1]
        change = make(document, f"r{round_number}")
        answered = killed_during(client, change, kill_times[make].next())
        left_behind = temporary_files()

        now = exported(client)
        assert now in [document, *change.steps], f"round {round_number}, {make.__name__}"
        assert temporary_files() == set()
        if answered:
            assert now == change.steps[-1], "what was answered has been saved"
        moment = moment_of(document, now, change, left_behind)
        fell[moment] += 1
        kill_times[make].learn(moment)
        document = now
    print({moment.value: fell[moment] for moment in Moment})
    assert fell.total() == KILLS
    assert fell[Moment.BEFORE] and fell[Moment.AFTER], "the kills missed the saves"
