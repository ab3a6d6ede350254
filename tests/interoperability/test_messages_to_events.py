"""Messages to events"""

import pytest
from bridge import item
from clients import MQTT_5, MqttJs
from device import FILTER, numbers_until
from publishing import event_filter

MEBIBYTE = 1024 * 1024


@pytest.mark.parametrize("qos", [0, 1, 2])
def test_messages_become_events_once_each_and_in_order(device, client, broker, tap, events, observe,
                                                       qos):
    """300 messages of a client become events, once each and in order; the QoS the device gets"""
    topic = f"{device.topic}/burst"
    device.start(item(0, topic, qos=qos))
    device.wait_until_listening(client, events)
    sent = [f"message {number}" for number in range(300)]
    sending_qos = min(qos, broker.highest_qos)
    client.publish(topic, *sent, "end", qos=sending_qos)
    assert events.payloads_until("end") == sent
    assert tap.qos_of(topic) == {sending_qos}
    observe(f"QoS {qos}: as {sending_qos}")


@pytest.mark.parametrize("qos", [0, 1, 2])
def test_the_qos_that_a_subscription_is_granted(broker, client, device, observe, qos):
    """The QoS that a subscription is granted"""
    granted = client.subscribe(f"{device.topic}/#", qos).granted
    assert granted == min(qos, broker.highest_qos)
    observe(f"QoS {qos}: {granted}")


def test_wildcards_select_topics(device, client, events):
    """The wildcards + and # select topics as they should"""
    device.start(item(0, f"{device.topic}/one/+/end", qos=1), item(1, f"{device.topic}/all/#", qos=1))
    device.wait_until_listening(client, events)
    for topic in ("one/a/end", "one/a/b/end", "one/end", "all", "all/a/b", "other"):
        client.publish(f"{device.topic}/{topic}", topic, qos=1)
    client.publish(f"{device.topic}/all/last", "last", qos=1)
    assert events.payloads_until("last") == ["one/a/end", "all", "all/a/b"]


def test_a_topic_outside_ascii_arrives_as_it_is(device, client, events):
    """A topic in UTF-8 (2, 3 and 4 bytes a character) arrives as it is"""
    topic = f"{device.topic}/gebäude/漢/😀"
    device.start(item(0, f"{device.topic}/gebäude/#", qos=1))
    device.wait_until_listening(client, events)
    client.publish(topic, "auf", qos=1)
    client.publish(topic, "end", qos=1)
    (event,) = events.until("end")
    assert (event.topic, event.payload) == (topic, "auf")


def test_a_dot_in_a_topic(broker, device, client, events, observe):
    """A topic with a dot, `a.b/c`, arrives as"""
    device.start(item(0, f"{device.topic}/dot/#", qos=1))
    device.wait_until_listening(client, events)
    client.publish(f"{device.topic}/dot/a.b/c", "x", qos=1)
    client.publish(f"{device.topic}/dot/end", "end", qos=1)
    (event,) = events.until("end")
    arrived = event.topic.removeprefix(f"{device.topic}/dot/")
    assert arrived == ("a/b/c" if broker.makes_levels_of_dots else "a.b/c")
    observe(f"`{arrived}`")


def test_any_text_and_an_empty_payload_arrive(device, client, events):
    """Any text as payload, and none at all, arrive as they were sent"""
    text = 'ü 漢 😀 "quoted" \\ line\n\tsecond {"json": [1, null]}'
    device.start(item(0, f"{device.topic}/text", qos=1))
    device.wait_until_listening(client, events)
    for payload in (text, "", "end"):
        client.publish(f"{device.topic}/text", payload, qos=1)
    assert events.payloads_until("end") == [text, ""]


def test_a_payload_of_8_mebibytes_becomes_an_event(device, client, events):
    """A message of 8 MiB becomes an event with its first 1024 characters, and the next follows"""
    device.start(item(0, f"{device.topic}/large", qos=1))
    device.wait_until_listening(client, events)
    client.publish(f"{device.topic}/large", "0123456789abcdef" * (8 * MEBIBYTE // 16), qos=1)
    client.publish(f"{device.topic}/large", "end", qos=1)
    assert events.payloads_until("end") == ["0123456789abcdef" * 64]


def test_a_retained_message_is_there_at_the_start(device, client, events):
    """A retained message arrives when the device subscribes its topic"""
    client.publish(f"{device.topic}/kept", "from before", qos=1, retain=True)
    device.start(item(0, f"{device.topic}/kept", qos=1))
    device.wait_until_listening(client, events)
    client.publish(f"{device.topic}/kept", "end", qos=1)
    assert events.payloads_until("end") == ["from before"]


def test_a_retained_message_and_a_wildcard(broker, device, client, events, observe):
    """A retained message arrives when the device subscribes a wildcard that selects its topic"""
    client.publish(f"{device.topic}/kept/door", "from before", qos=1, retain=True)
    device.start(item(0, f"{device.topic}/kept/#", qos=1))
    device.wait_until_listening(client, events)
    client.publish(f"{device.topic}/kept/end", "end", qos=1)
    arrived = events.payloads_until("end")
    assert arrived == (["from before"] if broker.retained_reach_wildcards else [])
    observe("yes" if arrived else "no")


def test_a_retained_message_that_was_cleared_does_not_arrive(device, client, events):
    """A retained message that an empty one has cleared does not arrive any more"""
    client.publish(f"{device.topic}/kept", "from before", qos=1, retain=True)
    client.publish(f"{device.topic}/kept", "", qos=1, retain=True)
    device.start(item(0, f"{device.topic}/kept", qos=1))
    device.wait_until_listening(client, events)
    client.publish(f"{device.topic}/kept", "end", qos=1)
    assert events.payloads_until("end") == []


def test_a_client_that_speaks_mqtt_5(broker, device, events, numbers, observe):
    """mqtt.js speaks MQTT 5 to the broker while the device speaks 3.1.1: both directions"""
    with MqttJs(broker.port, MQTT_5) as client:
        if not broker.speaks_mqtt_5:
            with pytest.raises(AssertionError, match="has ended"):
                client.connect()
            observe("the broker refuses such a client")
            return
        subscriber = client.subscribe(f"{device.prefix}/#")
        device.start(item(0, f"{device.topic}/five", qos=2), filters=[event_filter(FILTER, qos=2)])
        assert numbers_until(subscriber, 0) == [0]
        device.wait_until_listening(client, events)
        client.publish(f"{device.topic}/five", "message", "end", qos=2)
        assert events.payloads_until("end") == ["message"]
        observe("yes")
