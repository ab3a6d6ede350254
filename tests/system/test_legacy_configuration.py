"""The legacy methods, called by stock clients, configure the running service."""

import re
import subprocess
import xml.etree.ElementTree as ElementTree
from pathlib import Path

import pytest
from bridge import (ITEMS, Watcher, events_of, exit_statuses, kill_service,
                    set_device_topic_prefix, wait_for_end_of_service, wait_for_log,
                    wait_for_subscription)
from publishing import PUBLICATION, MessageWatcher, send_event
from waiting import DEADLINE_SECONDS

SHIPPED = Path(__file__).parents[2] / "data" / "com.norq.Tovrel1.xml"
BUS_NAME = "com.norq.Tovrel1"
OBJECT_PATH = "/com/norq/Tovrel1"
OWN_INTERFACES = ("com.norq.Tovrel1", "com.norq.Mirel.Backend1")
ITEM_SIGNATURE = "a(sbib)"
PUBLICATION_SIGNATURE = "ssbbba(ssi)"
END = (Watcher.END_TOPIC, "false", "0", "false")


def busctl(method, signature="", *arguments):
    """What busctl prints of the reply, and the end of what it says of an error."""
    parts = [signature, *map(str, arguments)] if signature else []
    done = subprocess.run(["busctl", "--system", "call", BUS_NAME, OBJECT_PATH, BUS_NAME, method,
                           *parts], text=True, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                          timeout=2 * DEADLINE_SECONDS)
    return (done.stdout + done.stderr).strip()


def gdbus(method, *arguments):
    """What gdbus prints of the reply."""
    done = subprocess.run(["gdbus", "call", "--system", "--dest", BUS_NAME, "--object-path",
                           OBJECT_PATH, "--method", f"{BUS_NAME}.{method}", *arguments],
                          text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          timeout=2 * DEADLINE_SECONDS)
    return done.stdout.strip()


def set_items(*items):
    flat = [field for each in items for field in each]
    return busctl("SetMQTTToEventConfig", ITEM_SIGNATURE, len(items), *flat)


def set_filters(filters, settings="'default' '' true false false"):
    words = [word.strip("'") for word in settings.split(" ")]
    return gdbus("SetEventToMQTTConfig", *words, filters)


def declared(root):
    """All that an introspection document says of our interfaces, without the order of its parts."""
    return {interface.get("name"): sorted(described(member) for member in interface)
            for interface in root.iter("interface") if interface.get("name") in OWN_INTERFACES}


def described(element):
    """An element with its attributes and, in their order, those that it holds."""
    return (element.tag, sorted(element.attrib.items()), [described(inner) for inner in element])


@pytest.fixture(name="listener")
def stock_subscriber():
    """A mosquitto_sub for everything, ready."""
    watcher = MessageWatcher()
    yield watcher
    watcher.close()


def test_the_running_object_is_the_one_that_is_documented():
    told = subprocess.run(["gdbus", "introspect", "--system", "--xml", "--dest", BUS_NAME,
                           "--object-path", OBJECT_PATH], check=True, stdout=subprocess.PIPE,
                          timeout=DEADLINE_SECONDS).stdout
    live = declared(ElementTree.fromstring(told))
    assert live == declared(ElementTree.parse(SHIPPED).getroot())
    assert {name: len(members) for name, members in live.items()} == {
        "com.norq.Tovrel1": 4, "com.norq.Mirel.Backend1": 1}


def test_items_take_effect_at_once_and_replace_the_former_ones():
    assert set_items(("a/b", "false", 1, "true"), END) == "i 0"
    wait_for_subscription(Watcher.END_TOPIC)
    assert events_of("a/b") == [("Stateful", "a/b")]
    assert set_items(("c/+", "false", 0, "false"), END) == "i 0"
    wait_for_subscription("c/+")
    assert events_of("a/b") == []
    assert events_of("c/d") == [("Stateless", "c/d")]


def test_items_are_listed_as_they_were_set_in_the_order_of_ids_as_texts():
    topics = [f"t{number}" for number in range(12)]
    assert set_items(*((topic, "true", 2, "false") for topic in topics)) == "i 0"
    assert gdbus("GetMQTTToEventConfig") == "([" + ", ".join(
        f"('t{number}', true, 2, false)"
        for number in (0, 1, 10, 11, 2, 3, 4, 5, 6, 7, 8, 9)) + "],)"


def test_items_survive_a_crash():
    assert set_items(("a/b", "false", 0, "false"), END) == "i 0"
    kept = ITEMS.read_bytes()
    kill_service()
    assert busctl("GetMQTTToEventConfig").startswith('a(sbib) 2 "a/b" false 0 false')
    assert ITEMS.read_bytes() == kept
    wait_for_subscription(Watcher.END_TOPIC, 1)
    assert events_of("a/b") == [("Stateless", "a/b")]


@pytest.mark.parametrize("topic, stateful, log", [
    ("", "false", "Cannot create MQTT to Event configuration - Invalid topic"),
    ("a/+", "true", "Cannot produce stateful event with wildcard in MQTT topic"),
    ("a#", "false", None)])
def test_a_rejected_item_changes_nothing(topic, stateful, log):
    assert set_items(("kept", "false", 0, "false")) == "i 0"
    before = ITEMS.read_bytes()
    assert set_items(("new", "false", 0, "false"), (topic, "false", 0, stateful)) == "i -1"
    if log:
        wait_for_log(log)
    assert ITEMS.read_bytes() == before
    assert busctl("GetMQTTToEventConfig") == 'a(sbib) 1 "kept" false 0 false'


def test_items_that_cannot_be_stored_change_nothing():
    assert set_items(("kept", "false", 0, "false")) == "i 0"
    ITEMS.unlink()
    ITEMS.mkdir()
    assert set_items(("new", "false", 0, "false")) == "i -2"
    assert busctl("GetMQTTToEventConfig") == 'a(sbib) 1 "kept" false 0 false'


@pytest.mark.parametrize("method, expected", [
    ("SetMQTTToEventConfig", "a(sbib)"), ("GetMQTTToEventConfig", ""),
    ("SetEventToMQTTConfig", "ssbbba(ssi)"), ("GetEventToMQTTConfig", "")])
def test_a_call_with_other_arguments_is_refused(method, expected):
    assert busctl(method, "i", 1) == (
        f"Call failed: Invalid arguments 'i' to call com.norq.Tovrel1.{method}(), "
        f"expecting '{expected}'.")


def test_a_topic_has_1_to_1024_characters():
    longest = "\N{GREEK SMALL LETTER ALPHA}" * 1024
    assert set_items((longest, "false", 0, "false")) == "i 0"
    assert set_items((longest + "a", "false", 0, "false")) == "i -1"
    assert busctl("GetMQTTToEventConfig").startswith('a(sbib) 1 "')
    assert longest in ITEMS.read_text(encoding="utf-8").split("\n")


def test_a_wildcard_is_for_stateless_items_alone():
    assert set_items(("a/+/b", "false", 0, "false")) == "i 0"
    assert set_items(("a/+/b", "false", 0, "true")) == "i -1"
    assert busctl("GetMQTTToEventConfig") == 'a(sbib) 1 "a/+/b" false 0 false'


def test_more_items_than_ids_are_an_error():
    answer = set_items(*((f"t{number}", "false", 0, "false") for number in range(257)))
    assert "No available IDs" in answer
    assert busctl("GetMQTTToEventConfig") == "a(sbib) 0"


def test_filters_take_effect_at_once_and_replace_the_former_ones(listener):
    set_device_topic_prefix("devices/d1")
    assert set_filters("[('onvif:One', 'all', 2)]") == "(0,)"
    wait_for_one(listener, "tns1:One", "devices/d1/event/One")
    assert set_filters("[('onvif:Two', 'none', 0)]",
                       "'custom' 'site/7' true false false") == "(0,)"
    wait_for_one(listener, "tns1:Two", "site/7/Two")
    send_event("--topic", "tns1:One")
    send_event("--topic", "tns1:Two")
    assert listener.next().topic == "site/7/Two"


def wait_for_one(listener, event_topic, message_topic):
    """A property event that is kept comes, however long the filters take to be subscribed."""
    process = subprocess.Popen(["norq-event", "send", "--hold", "--no-input", "--property", "state",
                                "--topic", event_topic, "state:bool=true"],
                               stderr=subprocess.DEVNULL)
    try:
        assert listener.next().topic == message_topic
    finally:
        process.terminate()
        process.wait(timeout=DEADLINE_SECONDS)


def test_the_publication_is_listed_as_it_was_set_and_survives_a_crash():
    assert set_filters("[('tns1:A//.', 'sometimes', 1), ('', 'none', 7)]",
                       "'other' 'x/y' false true true") == "(0,)"
    listed = ("('other', 'x/y', false, true, true, "
              "[('tns1:A//.', 'property', 1), ('', 'none', 7)])")
    assert gdbus("GetEventToMQTTConfig") == listed
    wait_for_log("Invalid retain policy using 'property'")
    kept = PUBLICATION.read_bytes()
    kill_service()
    assert gdbus("GetEventToMQTTConfig") == listed
    assert PUBLICATION.read_bytes() == kept


def test_filters_that_cannot_be_stored_count_until_the_service_ends():
    assert set_filters("[('onvif:Kept', 'none', 0)]") == "(0,)"
    PUBLICATION.unlink()
    PUBLICATION.mkdir()
    assert set_filters("[('onvif:New', 'none', 0)]") == "(0,)"
    wait_for_log("Could not save event-to-MQTT configurations to file: ")
    assert "onvif:New" in gdbus("GetEventToMQTTConfig")


def test_more_filters_than_ids_end_the_service_and_leave_the_files_as_they_were():
    assert set_filters("[('onvif:Kept', 'none', 0)]") == "(0,)"
    before = PUBLICATION.read_bytes()
    too_many = "[" + ", ".join("('a', 'none', 0)" for _ in range(257)) + "]"
    assert re.search("Error", set_filters(too_many))
    assert wait_for_end_of_service() == 1
    wait_for_log("Exception when starting tovrel: No available IDs, could not start")
    assert PUBLICATION.read_bytes() == before
    assert "onvif:Kept" in gdbus("GetEventToMQTTConfig")


def test_the_service_ends_when_its_configuration_is_emptied_and_comes_back_when_it_is_filled():
    assert set_items(("a/b", "false", 0, "false")) == "i 0"
    assert set_filters("[]") == "(0,)"
    assert set_items() == "i 0"
    assert wait_for_end_of_service() == 0
    assert set_items(("a/b", "false", 0, "false"), END) == "i 0"
    wait_for_subscription("a/b", 1)
    assert events_of("a/b") == [("Stateless", "a/b")]
    assert len(exit_statuses()) == 1
