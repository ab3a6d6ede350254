"""Messages sent by mosquitto_pub arrive as device events in another process."""

import subprocess

from bridge import (DEADLINE_SECONDS, Event, Watcher, declarations, item, log_of, publish,
                    publish_lines, set_device_topic_prefix, start_with)

END = Watcher.END_ITEM
NOT_UTF8 = b"\xff"


def payload_made_of(events, payload):
    """The payload of the one event that a message makes."""
    start_with(item(0, "a/b"), END)
    publish("a/b", payload)
    made = events.all_so_far()
    assert len(made) == 1, made
    assert made[0].topic == "a/b"
    return made[0].payload


def test_a_message_becomes_a_stateless_event(events):
    start_with(item(0, "building/+/temperature"), END)
    publish("building/2/temperature", "21.5")
    (event,) = events.all_so_far()
    assert event.kind == "Stateless"
    assert event.topic == "building/2/temperature"
    assert event.payload == "21.5"
    assert event.device_prefix is False
    assert "PropertyOperation" not in event.document


def test_a_message_of_a_stateful_item_becomes_a_property_event(events):
    start_with(item(0, "building/door", stateful=True), END)
    publish("building/door", "open")
    (event,) = events.all_so_far()
    assert event.kind == "Stateful"
    assert (event.topic, event.payload) == ("building/door", "open")
    assert "PropertyOperation" in event.document


def test_m8_the_last_value_of_a_stateful_item_is_given_to_a_late_watcher(events):
    start_with(item(0, "building/door", stateful=True), END)
    publish("building/door", "open")
    publish("building/door", "closed")
    assert [event.payload for event in events.all_so_far()] == ["open", "closed"]
    late = subprocess.run(
        ["norq-event", "watch", "--json", "--topic", "tnsnorq:MQTT/Message/Stateful", "--count",
         "1", "--timeout", str(DEADLINE_SECONDS)],
        check=True, stdout=subprocess.PIPE, text=True)
    assert Event(late.stdout).payload == "closed"


def test_m3_a_payload_of_5000_bytes_is_cut_to_1024(events):
    payload = "".join(chr(ord("a") + i % 26) for i in range(5000))
    assert payload_made_of(events, payload) == payload[:1024]


def test_a_payload_of_1024_bytes_is_whole(events):
    assert payload_made_of(events, "x" * 1024) == "x" * 1024


def test_m3_a_payload_is_cut_by_characters_not_by_bytes(events):
    assert payload_made_of(events, "é" * 1500) == "é" * 1024


def test_m3_a_payload_of_the_longest_characters_is_cut_to_1024(events):
    # The two letters in front put the end of a character at byte 50.
    assert payload_made_of(events, "ab" + "😀" * 1500) == "ab" + "😀" * 1022


def test_m4_a_payload_that_is_not_utf8_at_its_start_arrives_empty(events):
    assert payload_made_of(events, b"x" * 20 + NOT_UTF8 + b"x" * 200) == ""
    assert "Payload doesn't contain valid utf-8 data" in log_of("tovrel")


def test_m4_a_character_that_the_fiftieth_byte_cuts_makes_the_payload_empty(events):
    assert payload_made_of(events, "x" * 49 + "é" + "x" * 100) == ""
    assert "Payload doesn't contain valid utf-8 data" in log_of("tovrel")


def test_m3_a_payload_ends_where_its_utf8_ends(events):
    assert payload_made_of(events, b"x" * 100 + NOT_UTF8 + b"y" * 100) == "x" * 100


def test_an_empty_payload_arrives_empty(events):
    assert payload_made_of(events, "") == ""


def test_a_payload_with_a_nul_at_its_start_arrives_empty(events):
    assert payload_made_of(events, b"ab\0cd") == ""


def test_any_text_arrives_as_it_was_sent(events):
    text = 'ü 漢 😀 a "quoted" \\ line\n\tsecond {"json": [1, null]} and more ü 漢 😀 \x7f'
    assert payload_made_of(events, text) == text


def test_m1_matching_several_items_makes_one_event_of_each_kind(events):
    start_with(item(0, "a/+"), item(1, "a/b"), item(2, "a/b/#"), item(3, "a/b", stateful=True), END)
    publish("a/b", "once")
    made = events.all_so_far()
    assert sorted(event.kind for event in made) == ["Stateful", "Stateless"]
    assert {event.payload for event in made} == {"once"}


def test_m6_a_stateful_item_with_a_wildcard_makes_no_event(events):
    start_with(item(0, "a/#", stateful=True), END)
    publish("a/b", "nothing")
    assert events.all_so_far() == []


def test_a_message_that_no_item_matches_makes_no_event(events):
    start_with(item(0, "a/b"), END)
    publish("a/c", "nothing")
    assert events.all_so_far() == []


def test_m5_a_long_topic_is_cut_to_1024_characters(events):
    topic = "a/" + "t" * 1500
    start_with(item(0, "a/#"), END)
    publish(topic, "long")
    (event,) = events.all_so_far()
    assert event.topic == topic[:1024]


def test_a_topic_outside_ascii_arrives_as_it_is(events):
    start_with(item(0, "gebäude/#"), END)
    publish("gebäude/tür/漢", "auf")
    (event,) = events.all_so_far()
    assert event.topic == "gebäude/tür/漢"


def test_a_message_below_the_device_prefix_says_so_and_has_the_topic_without_it(events):
    set_device_topic_prefix("devices/d1")
    start_with(item(0, "light/#", prefix=True), END,
               subscribed_as=["devices/d1/light/#", Watcher.END_TOPIC])
    publish("devices/d1/light/switch", "on")
    publish("light/switch", "elsewhere")
    (event,) = events.all_so_far()
    assert (event.topic, event.payload, event.device_prefix) == ("light/switch", "on", True)


def test_a_retained_message_arrives_when_the_service_starts(events):
    publish("a/kept", "from before", "-r")
    start_with(item(0, "a/kept"), END)
    assert [event.payload for event in events.all_so_far()] == ["from before"]


def arrivals_at_qos(events, qos):
    start_with(item(0, "burst", qos=qos), END)
    sent = [f"message {number}" for number in range(500)]
    publish_lines("burst", sent, "-q", str(qos))
    return sent, [event.payload for event in events.all_so_far()]


def test_m2_messages_arrive_in_order_at_qos_0(events):
    sent, arrived = arrivals_at_qos(events, 0)
    assert arrived == sent


def test_m2_messages_arrive_once_each_and_in_order_at_qos_1(events):
    sent, arrived = arrivals_at_qos(events, 1)
    assert arrived == sent


def test_m2_messages_arrive_once_each_and_in_order_at_qos_2(events):
    sent, arrived = arrivals_at_qos(events, 2)
    assert arrived == sent


def test_concrete_topics_are_declared_and_wildcards_are_not():
    start_with(item(0, "stateless/concrete"), item(1, "stateless/+"),
               item(2, "stateful/concrete", stateful=True), item(3, "stateful/#", stateful=True))
    assert declarations() == [
        ("Stateful", "stateful/#", True),
        ("Stateful", "stateful/concrete", True),
        ("Stateless", "stateless/concrete", False),
        ("Stateless", None, False),
    ]
