"""Device events sent by another process arrive at a stock subscriber as the settings ask."""

import configparser

import pytest
from bridge import call_service, set_device_topic_prefix
from publishing import (END_FILTERS, LEGACY_PUBLICATION, PUBLICATION, event_filter, key_file,
                        send_event, set_serial_number, settings)

SERIAL_NUMBER = "B8A44F0012AB"
BETA = event_filter("onvif:Device/norq:Beta//.", retain="property")

# A property event with a source and a state, to which cases add what they are about.
EXAMPLE_ITEMS = ("--property", "state", "--tag", "index=onvif-source", "index:int=1",
                 "state:bool=true")
EXAMPLE = ("--topic", "tns1:Device/tnsnorq:Beta/Gamma", *EXAMPLE_ITEMS)


@pytest.fixture(autouse=True)
def device():
    set_serial_number(SERIAL_NUMBER)
    set_device_topic_prefix("devices/d1")


def message_of(published, *event):
    """The one message that an event becomes."""
    send_event(*event)
    (message,) = published.all_so_far()
    return message


def example_message(published, **common):
    """The message of the example event under the given settings."""
    published.start(BETA, **common)
    message = message_of(published, *EXAMPLE)
    assert (message.qos, message.retain) == (1, True)
    document = message.document
    del document["UtcTime"]
    assert document == {"Topic": "onvif:Device/norq:Beta/Gamma", "PropertyOperation": "Changed",
                        "Source": {"index": 1}, "Data": {"state": True}}
    return message


def topics(published, *events):
    """The topics of the documents of the events that are published."""
    for event in events:
        send_event("--topic", event)
    return [message.document["Topic"] for message in published.all_so_far()]


# settings

def test_the_topic_carries_event_topic_namespaces_and_source(published):
    assert example_message(published).topic == (
        "devices/d1/event/tns:onvif/Device/tns:norq/Beta/Gamma/$source/index/1")


def test_the_namespaces_can_be_left_out(published):
    assert example_message(published, namespaces=False).topic == (
        "devices/d1/event/Device/Beta/Gamma/$source/index/1")


def test_a_custom_prefix_takes_the_place_of_the_devices(published):
    message = example_message(published, prefix="custom", custom="site/unit1", namespaces=False)
    assert message.topic == "site/unit1/Device/Beta/Gamma/$source/index/1"


def test_an_empty_custom_prefix_means_the_devices(published):
    message = example_message(published, prefix="custom", custom="", append=False)
    assert message.topic == "devices/d1/event"


def test_without_the_event_topic_only_the_prefix_remains(published):
    message = example_message(published, prefix="custom", custom="site/unit1", append=False)
    assert message.topic == "site/unit1"


def test_the_prefix_setting_none_means_the_default(published):
    message = example_message(published, prefix="none", namespaces=False)
    assert message.topic == "devices/d1/event/Device/Beta/Gamma/$source/index/1"


def test_an_unknown_prefix_setting_means_the_default(published):
    message = example_message(published, prefix="Custom", custom="site/unit1", namespaces=False)
    assert message.topic == "devices/d1/event/Device/Beta/Gamma/$source/index/1"


def test_with_an_empty_device_prefix_the_topic_begins_with_event(published):
    set_device_topic_prefix("")
    message = example_message(published, namespaces=False)
    assert message.topic == "event/Device/Beta/Gamma/$source/index/1"


def test_the_payload_tells_the_serial_number_on_request(published):
    published.start(BETA, serial=True)
    assert message_of(published, *EXAMPLE).document["SerialNumber"] == SERIAL_NUMBER


# events

def test_a_stateless_event_is_told_from_a_property(published):
    published.start(BETA)
    message = message_of(published, "--topic", "tns1:Device/tnsnorq:Beta", "index:int=1")
    assert "PropertyOperation" not in message.document
    assert message.retain is False


def test_keys_follow_the_source(published):
    published.start(BETA, namespaces=False)
    message = message_of(published, *EXAMPLE, "--tag", "port=onvif-key", "port=front")
    assert message.topic == (
        "devices/d1/event/Device/Beta/Gamma/$source/index/1/$key/port/front")
    assert message.document["Key"] == {"port": "front"}


def test_a_key_without_a_source_stands_alone(published):
    published.start(BETA, namespaces=False)
    message = message_of(published, "--topic", "tns1:Device/tnsnorq:Beta",
                         "--tag", "port=onvif-key", "port=front")
    assert message.topic == "devices/d1/event/Device/Beta/$key/port/front"


def test_items_stand_in_the_order_of_their_names(published):
    published.start(BETA, namespaces=False)
    message = message_of(
        published, "--topic", "tns1:Device/tnsnorq:Beta", "b=2", "a10=1", "B=3", "a2:bool=true",
        *(word for name in ("b", "a10", "B", "a2") for word in ("--tag", f"{name}=onvif-source")),
        "--tag", "B=onvif-key", "--tag", "a10=onvif-key")
    assert message.topic == (
        "devices/d1/event/Device/Beta/$source/B/3/a10/1/a2/1/b/2/$key/B/3/a10/1")


# filters

def test_a_filter_selects_its_topic_alone(published):
    published.start(event_filter("onvif:Device/norq:Beta"))
    assert topics(published, "tns1:Device", "tns1:Device/tnsnorq:Beta",
                  "tns1:Device/tnsnorq:Beta/Gamma", "tns1:Device/tnsnorq:Betas",
                  "tns1:Device/Beta", "tns1:Device/other:Beta") == ["onvif:Device/norq:Beta"]


def test_a_filter_with_subtopics_selects_all_below_its_topic_as_well(published):
    published.start(BETA)
    assert topics(published, "tns1:Device", "tns1:Device/tnsnorq:Beta",
                  "tns1:Device/tnsnorq:Beta/Gamma", "tns1:Device/tnsnorq:Beta/tns1:Gamma/Delta",
                  "tns1:Device/tnsnorq:Betas") == [
        "onvif:Device/norq:Beta", "onvif:Device/norq:Beta/Gamma",
        "onvif:Device/norq:Beta/onvif:Gamma/Delta"]


def test_a_level_of_a_filter_is_in_the_namespace_of_the_level_before(published):
    published.start(event_filter("onvif:Device/Alpha/norq:Beta"))
    assert topics(published, "tns1:Device/tnsnorq:Alpha/Beta", "tns1:Device/Alpha/tnsnorq:Beta") == [
        "onvif:Device/Alpha/norq:Beta"]


def test_a_filter_names_the_vendors_namespace_in_short(published):
    published.start(event_filter("tns1:Device/tnsnorq:Beta"), event_filter("tns1:Device/norq:Short"))
    assert topics(published, "tns1:Device/tnsnorq:Beta", "tns1:Device/tnsnorq:Short") == [
        "onvif:Device/norq:Short"]


def test_any_other_namespace_keeps_its_name(published):
    published.start(event_filter("onvif:Device/vendor:Beta"))
    message = message_of(published, "--topic", "tns1:Device/vendor:Beta")
    assert message.topic == "devices/d1/event/tns:onvif/Device/tns:vendor/Beta"


# the former file

def test_a_legacy_file_is_taken_over_and_its_events_arrive(published):
    former = settings(prefix="custom", custom="site/unit1", namespaces=False)
    former["topicPrefix"] = former.pop("topicPrefixSetting")
    LEGACY_PUBLICATION.write_text(key_file(former, {
        "any name": event_filter("onvif:Device/norq:Beta//.", qos=2, retain="all"), **END_FILTERS}))
    call_service()
    published.wait_until_subscribed()
    message = message_of(published, "--topic", "tns1:Device/tnsnorq:Beta", "index:int=1")
    assert (message.topic, message.qos, message.retain) == ("site/unit1/Device/Beta", 2, True)
    assert not LEGACY_PUBLICATION.exists()
    saved = configparser.ConfigParser(interpolation=None)
    saved.optionxform = str
    saved.read(PUBLICATION)
    assert {group: dict(saved[group]) for group in saved.sections()} == {
        "common": settings(prefix="custom", custom="site/unit1", namespaces=False),
        "0": event_filter("onvif:Device/norq:Beta//.", qos=2, retain="all"),
        **{str(qos + 1): each for qos, each in enumerate(END_FILTERS.values())}}
