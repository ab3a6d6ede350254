"""The JSON configuration API of the running service, called by a stock client."""

import json
import subprocess

from bridge import (ITEMS, Watcher, events_of, exit_statuses, kill_service, service_pid,
                    set_device_topic_prefix, wait_for_end_of_service, wait_for_subscription)
from configuration_api import checked_answer
from publishing import PUBLICATION, HeldEvent, MessageWatcher
from waiting import DEADLINE_SECONDS

END = {"topicFilter": Watcher.END_TOPIC}


def answer_text_to(text):
    """The answer to a request text as it stands."""
    told = subprocess.run(
        ["busctl", "--system", "--json=short", "call", "com.norq.Tovrel1", "/com/norq/Tovrel1",
         "com.norq.Mirel.Backend1", "HandleRequest", "s", text],
        check=True, stdout=subprocess.PIPE, timeout=2 * DEADLINE_SECONDS).stdout
    return json.loads(told)["data"][0]


def answer_to(text):
    """The answer to a request text, checked together with it."""
    return checked_answer(text, answer_text_to(text))


def request(operation, *path, **members):
    """The answer to a request of tovrel's own API."""
    return answer_to(json.dumps(
        {"api": "tovrel", "version": 2, "operation": operation, "path": list(path)} | members))


def done(operation, *path, **members):
    """The data of the answer to a request that must succeed."""
    answer = request(operation, *path, **members)
    assert "data" in answer, answer
    return answer["data"]


def failed(operation, *path, **members):
    """The code and message of the answer to a request that must fail."""
    answer = request(operation, *path, **members)
    assert "error" in answer, answer
    return answer["error"]["code"], answer["error"]["message"]


def export():
    return done("get", options={"omitReadOnly": True})


def test_a_fresh_service_has_the_documented_document():
    set_device_topic_prefix("devices/d1")
    assert done("get") == {
        "deviceTopicPrefix": "devices/d1", "subscription": [],
        "publication": {"topicPrefix": "default", "customTopicPrefix": "",
                        "appendEventTopic": True, "includeTopicNamespaces": True,
                        "includeSerialNumberInPayload": False, "eventFilter": []}}


def test_an_item_is_added_changed_and_removed_with_effect_at_once():
    done("add", "subscription", data=END)
    item = done("add", "subscription", data={"topicFilter": "a/b"})
    assert item == {"id": "1", "topicFilter": "a/b", "qos": "QOS_0", "isStateData": False,
                    "useDeviceTopicPrefix": False}
    wait_for_subscription("a/b")
    assert events_of("a/b") == [("Stateless", "a/b")]
    assert done("set", "subscription", "1", data={"isStateData": True}) is None
    assert done("get", "subscription", "1")["isStateData"] is True
    assert events_of("a/b") == [("Stateful", "a/b")]
    assert done("remove", "subscription", "1") is None
    assert [each["id"] for each in done("listKeys", "subscription")] == ["0"]
    assert events_of("a/b") == []


def test_a_filter_is_added_changed_and_removed_with_effect_at_once():
    set_device_topic_prefix("devices/d1")
    listener = MessageWatcher()
    door = HeldEvent("--property", "state", "--topic", "tns1:Door", "state:bool=true")
    try:
        added = done("add", "publication", "eventFilter",
                     data={"topicFilter": "onvif:Door", "qos": "QOS_2", "retain": "all"})
        assert added == {"id": "0", "topicFilter": "onvif:Door", "qos": "QOS_2", "retain": "all"}
        message = listener.next()
        assert (message.topic, message.qos, message.retain) == (
            "devices/d1/event/tns:onvif/Door", 2, True)
        done("set", "publication", data={"topicPrefix": "custom", "customTopicPrefix": "site",
                                         "includeTopicNamespaces": False})
        assert listener.next().topic == "site/Door"
        done("set", "publication", "eventFilter", "0", data={"qos": "QOS_2", "retain": "none"})
        message = listener.next()
        assert (message.topic, message.qos, message.retain) == ("site/Door", 0, False)
        done("remove", "publication", "eventFilter", "0")
        assert done("listKeys", "publication", "eventFilter") == []
    finally:
        door.close()
        listener.close()


def test_an_exported_configuration_survives_a_crash_and_can_be_imported_as_it_stands():
    for number in range(3):
        done("add", "subscription", data={"topicFilter": f"t/{number}", "qos": "QOS_1"})
        done("add", "publication", "eventFilter", data={"topicFilter": f"onvif:T{number}"})
    exported = export()
    files = ITEMS.read_bytes(), PUBLICATION.read_bytes()
    kill_service()
    assert export() == exported
    done("import", data={"subscription": [{"id": "7", "topicFilter": "other"}]},
         options={"importType": "replace"})
    assert [each["id"] for each in done("listKeys", "subscription")] == ["7"]
    done("import", data=exported, options={"importType": "replace"})
    assert export() == exported
    assert (ITEMS.read_bytes(), PUBLICATION.read_bytes()) == files


def test_a_replacing_import_that_fails_leaves_the_configuration_reset():
    done("add", "subscription", data={"topicFilter": "a"})
    done("add", "publication", "eventFilter", data={"topicFilter": "onvif:A"})
    assert failed("import", data={"subscription": [{"id": "x"}]},
                  options={"importType": "replace"}) == (
        0, "Cannot import MQTT to event config - internal error")
    emptied = export()
    assert emptied["subscription"] == [] and emptied["publication"]["eventFilter"] == []


def test_256_items_of_each_kind_can_be_imported_and_the_257th_cannot_be_added():
    set_of_256 = [{"id": str(number), "topicFilter": f"t/{number}"} for number in range(256)]
    filters = [{"id": str(number), "topicFilter": f"onvif:T{number}"} for number in range(256)]
    done("import", data={"subscription": set_of_256, "publication": {"eventFilter": filters}})
    assert failed("add", "subscription", data={"topicFilter": "n"}) == (
        7, "Cannot add MQTT to event config - too many created")
    assert failed("add", "publication", "eventFilter", data={"topicFilter": "n"}) == (
        7, "Too many event-to-MQTT configurations")
    assert len(done("listKeys", "subscription")) == 256


def test_requests_about_what_is_not_there_fail_with_their_texts():
    assert failed("get", "subscription", "0") == (2, "Subscription does not exist")
    assert failed("set", "subscription", "0", data={}) == (2, "Subscription does not exist")
    assert failed("remove", "subscription", "0") == (2, "Cannot remove item - it does not exist")
    for operation, verb in (("get", "get"), ("remove", "remove")):
        assert failed(operation, "publication", "eventFilter", "0") == (
            2, f"Cannot {verb} item - it does not exist.")
    assert failed("set", "publication", "eventFilter", "0", data={}) == (
        2, "Cannot set item - it does not exist.")
    assert failed("set", "subscription", "0", property="id", data={"id": "1"}) == (
        9, "Set operation not defined for root.subscription[].id")
    assert failed("add", "subscription", data={}) == (
        5, "Add item to root.subscription[]: Missing required property topicFilter")


def test_hostile_requests_are_answered_and_the_service_lives_on():
    assert "error" in answer_to("")
    pid = service_pid()
    for text in ("null", "[" * 100_000, '{"api":"tovrel"}', '{"api":1}',
                 '{"api":"tovrel","api":"tovrel"}', '"' + "x" * 100_000 + '"'):
        assert "error" in answer_to(text)
    assert service_pid() == pid


def test_the_service_ends_when_the_last_item_is_removed_and_comes_back_for_the_next_request():
    done("add", "subscription", data={"topicFilter": "a"})
    done("remove", "subscription", "0")
    assert wait_for_end_of_service() == 0
    assert done("listKeys", "subscription") == []
    assert exit_statuses() == [0]
