"""Events that nobody would think up arrive whole or are refused; the service lives on in any case."""

import pytest
from bridge import exit_statuses, log_of, service_pid, set_device_topic_prefix
from publishing import event_filter, send_event

ODD = "tns1:Device/tnsnorq:Odd"
SOURCE = ("--tag", "name=onvif-source")
PREFIX = "d/event/Device"
WILDCARDS = "The topic contains a wildcard"


@pytest.fixture(autouse=True)
def service_survives():
    """None of this ends the service."""
    set_device_topic_prefix("d")
    yield
    assert exit_statuses() == []
    assert service_pid() is not None


def messages_of(published, *event, **common):
    """What an event becomes; with the short form of the topic unless told otherwise."""
    published.start(event_filter("onvif:Device//."), **({"namespaces": False} | common))
    send_event(*event)
    messages = published.all_so_far()
    # What else is below the filter: the MQTT client's own status.
    return [message for message in messages if "ClientStatus" not in message.document["Topic"]]


def message_of(published, *event, **common):
    (message,) = messages_of(published, *event, **common)
    return message


def assert_refused(published, code, reason, *event, **common):
    """The event is not published, the log says so once, and the next one is published."""
    assert messages_of(published, *event, **common) == []
    said = [line for line in log_of("tovrel").splitlines() if "when publishing" in line]
    assert said == [f"tovrel: info: Got response code {code} when publishing MQTT message: {reason}"]


def from_key(*levels, namespace="tns1"):
    """The arguments for a topic of these levels, whatever characters they have."""
    return [f"topic{index}@{namespace}={level}" for index, level in enumerate(levels)]


# characters

def test_a_level_with_blanks_keeps_them(published):
    message = message_of(published, *from_key("Device", " a  b "))
    assert message.topic == f"{PREFIX}/ a  b "
    assert message.document["Topic"] == "onvif:Device/ a  b "


def test_a_filter_with_blanks_selects_its_topic(published):
    published.start(event_filter("onvif:Device/ a  b "))
    send_event(*from_key("Device", " a  b "))
    send_event(*from_key("Device", "a b"))
    (message,) = published.all_so_far()
    assert message.document["Topic"] == "onvif:Device/ a  b "


def test_characters_of_four_bytes_arrive_in_topic_items_and_payload(published):
    message = message_of(published, *from_key("Device", "😀𝄞"), "--tag", "𐍈=onvif-source", "𐍈=🜚",
                         "text=😀")
    assert message.topic == f"{PREFIX}/😀𝄞/$source/𐍈/🜚"
    assert message.document["Source"] == {"𐍈": "🜚"}
    assert message.document["Data"] == {"text": "😀"}


def test_a_filter_with_characters_of_four_bytes_selects_its_topic(published):
    published.start(event_filter("onvif:Device/😀"))
    send_event(*from_key("Device", "😀"))
    (message,) = published.all_so_far()
    assert message.document["Topic"] == "onvif:Device/😀"


def test_a_slash_in_a_value_makes_one_more_level(published):
    message = message_of(published, "--topic", ODD, *SOURCE, "name=a/b")
    assert message.topic == f"{PREFIX}/Odd/$source/name/a/b"
    assert message.document["Source"] == {"name": "a/b"}


def test_wildcards_in_a_level_are_refused(published):
    assert_refused(published, 4, WILDCARDS, *from_key("Device", "#"))


def test_a_single_level_wildcard_in_a_source_is_refused(published):
    assert_refused(published, 4, WILDCARDS, "--topic", ODD, *SOURCE, "name=a+b")


def test_wildcards_that_are_not_in_the_topic_arrive(published):
    message = message_of(published, "--topic", ODD, *SOURCE, "name=#", "text=+/#", append=False)
    assert message.topic == "d/event"
    assert message.document["Source"] == {"name": "#"}
    assert message.document["Data"] == {"text": "+/#"}


def test_a_control_character_in_the_topic_is_refused(published):
    assert_refused(published, 4, "The topic is not valid UTF-8 or contains control characters",
                   "--topic", ODD, *SOURCE, "name=two\nlines")


def test_a_control_character_in_the_payload_arrives(published):
    message = message_of(published, "--topic", ODD, "text=two\nlines\x01 \"quoted\" \\")
    assert message.document["Data"] == {"text": "two\nlines\x01 \"quoted\" \\"}


# emptiness

def test_an_empty_level_is_two_slashes(published):
    message = message_of(published, *from_key("Device", "", "Odd"))
    assert message.topic == f"{PREFIX}//Odd"


def test_a_filter_with_an_empty_level_selects_it(published):
    published.start(event_filter("onvif:Device//Odd"))
    send_event(*from_key("Device", "", "Odd"))
    send_event(*from_key("Device", "Odd"))
    (message,) = published.all_so_far()
    assert message.document["Topic"] == "onvif:Device//Odd"


def test_an_empty_value_of_a_source_ends_the_topic_with_a_slash(published):
    message = message_of(published, "--topic", ODD, *SOURCE, "name=")
    assert message.topic == f"{PREFIX}/Odd/$source/name/"
    assert message.document["Source"] == {"name": ""}


def test_an_event_without_a_topic_is_published_below_the_prefix_alone(published):
    published.start(event_filter("//."), namespaces=False)
    published.all_so_far()
    send_event("text=nowhere")
    (message,) = [each for each in published.all_so_far() if each.document["Topic"] == ""]
    assert message.topic == "d/event/"
    assert message.document["Data"] == {"text": "nowhere"}


# sizes

def topic_of_levels(count):
    return from_key("Device", *(f"l{level}" for level in range(1, count)))


def test_a_topic_of_100_levels_arrives_whole(published):
    message = message_of(published, *topic_of_levels(100))
    assert message.topic == "/".join([PREFIX, *(f"l{level}" for level in range(1, 100))])


def test_the_level_behind_the_hundredth_is_left_out_of_the_topic(published):
    message = message_of(published, *topic_of_levels(101))
    assert message.topic == "/".join([PREFIX, *(f"l{level}" for level in range(1, 100))])
    assert message.document["Topic"].endswith("/l99/l100")


def test_a_filter_of_100_levels_selects_its_topic(published):
    levels = "/".join(f"l{level}" for level in range(1, 100))
    published.start(event_filter(f"onvif:Device/{levels}"))
    send_event(*topic_of_levels(100))
    send_event(*topic_of_levels(101))
    (message,) = published.all_so_far()
    assert message.document["Topic"] == f"onvif:Device/{levels}"


def test_a_topic_of_more_levels_than_brokers_take_is_refused(published):
    # Each level is in another namespace than the one before, so each has a marker of two levels.
    levels = [f"topic{level}@{'other' if level % 2 else 'tns1'}=Device" for level in range(100)]
    assert_refused(published, 4, "The topic has too many levels, at most 201 are allowed",
                   *levels, namespaces=True)


def test_64_kib_of_text_arrive_whole(published):
    text = "".join(chr(ord("a") + number % 26) for number in range(65536))
    message = message_of(published, "--topic", ODD, f"text={text}")
    assert message.document["Data"] == {"text": text}


def test_64_kib_of_items_arrive_whole(published):
    items = {f"item{number}": f"{number:0120}" for number in range(512)}
    message = message_of(published, "--topic", ODD,
                         *(f"{name}={value}" for name, value in items.items()))
    assert message.document["Data"] == items


def test_a_topic_as_long_as_mqtt_allows_arrives(published):
    front = f"{PREFIX}/Odd/$source/name/"
    message = message_of(published, "--topic", ODD, *SOURCE, f"name={'x' * (65535 - len(front))}")
    assert len(message.topic) == 65535


def test_a_topic_longer_than_mqtt_allows_is_refused(published):
    value = "x" * (65536 - len(f"{PREFIX}/Odd/$source/name/"))
    assert_refused(published, 5, "The topic has 65536 bytes, at most 65535 are allowed",
                   "--topic", ODD, *SOURCE, f"name={value}")
