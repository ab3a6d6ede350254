"""Events to messages"""

import subprocess

import pytest
from device import EVENT, FILTER, NumberedEvents, number_in, numbers_until
from publishing import event_filter, send_event

KIBIBYTE = 1024
# What the topics of the tests' events end with.
NUMBER = "event/Interoperability/Number"


@pytest.mark.parametrize("qos", [0, 1, 2])
def test_events_become_messages_once_each_and_in_order(device, client, broker, numbers, observe, qos):
    """300 events become messages, once each and in order; the QoS that a subscriber of QoS 2 gets"""
    subscriber = client.subscribe(f"{device.prefix}/#")
    device.start(filters=[event_filter(FILTER, qos=qos)])
    assert numbers_until(subscriber, 0) == [0]
    numbers.send(range(1, 301))
    messages = subscriber.until(lambda message: number_in(message) == 300)
    assert [number_in(message) for message in messages] == list(range(1, 301))
    assert {message.topic for message in messages} == {f"{device.prefix}/{NUMBER}"}
    (arriving,) = {message.qos for message in messages}
    assert arriving == min(qos, broker.highest_qos)
    observe(f"QoS {qos}: as {arriving}")


def test_qos_2_without_the_setting_for_brokers_that_have_none(device, client, broker, numbers,
                                                              observe):
    """QoS 2 asked for, and `maximum-qos` not set"""
    subscriber = client.subscribe(f"{device.prefix}/#")
    device.set("broker", maximum_qos=2)
    device.start(filters=[event_filter(FILTER, qos=2)])
    assert numbers_until(subscriber, 0) == [0]
    if broker.highest_qos == 2:
        numbers.send([1])
        assert numbers_until(subscriber, 1) == [1]
        assert "disconnected" not in device.log
        observe("yes")
        return
    device.wait_for_log("set maximum-qos=1 if it has no QoS 2")
    # The message is sent again with each new connection.
    assert number_in(subscriber.next()) == 0
    observe("confirmed like QoS 1: the connection ends, again and again; the log tells the remedy")


def test_a_qos_2_message_of_another_client(broker, device, client, observe):
    """A message of QoS 2 that a client publishes (for comparison)"""
    subscriber = client.subscribe(f"{device.topic}/#")
    takes_it = broker.highest_qos == 2 or client.takes_wrong_confirmations
    if takes_it:
        client.publish(f"{device.topic}/two", "x", qos=2)
        assert subscriber.next().qos == broker.highest_qos
    else:
        with pytest.raises(subprocess.CalledProcessError) as failure:
            client.publish(f"{device.topic}/two", "x", qos=2)
        assert b"protocol error" in failure.value.stderr
    observe(f"{client.name}: {'yes' if takes_it else 'ends with a protocol error'}")


@pytest.mark.parametrize("policy", ["none", "property", "all"])
def test_a_late_subscriber_gets_what_the_device_retains(device, client, numbers, policy):
    """A late subscriber gets the retained events, by the retain policies none, property and all"""
    early = client.subscribe(f"{device.prefix}/#")
    device.start(filters=[event_filter(FILTER, qos=1, retain=policy)])
    assert numbers_until(early, 0) == [0]
    send_event("--topic", f"{EVENT}/Stateless", "number:int=1")
    numbers.send([2])
    assert numbers_until(early, 2) == [1, 2]

    late = {kind: client.subscribe(f"{device.prefix}/event/Interoperability/{kind}")
            for kind in ("Stateless", "Number")}
    numbers.send([3])
    send_event("--topic", f"{EVENT}/Stateless", "number:int=4")
    retained = {kind: [(number_in(message), message.retain)
                       for message in late[kind].until(lambda message: number_in(message) >= 3)]
                for kind in late}
    # Messages that are not old have no such flag, with MQTT 3.1.1.
    assert retained == {
        "Stateless": ([(1, True)] if policy == "all" else []) + [(4, False)],
        "Number": ([] if policy == "none" else [(2, True)]) + [(3, False)],
    }


def test_a_topic_outside_ascii_leaves_as_it_is(device, client, numbers):
    """A topic in UTF-8 (2, 3 and 4 bytes a character) arrives as it is"""
    prefix = f"{device.topic}/gebäude/漢/😀"
    subscriber = client.subscribe(f"{prefix}/#")
    device.start(filters=[event_filter(FILTER, qos=1)], prefix="custom", custom=prefix)
    message = subscriber.next()
    assert (message.topic, number_in(message)) == (f"{prefix}/Interoperability/Number", 0)


def test_a_dot_in_the_topic_of_an_event(device, client, broker, observe):
    """A topic that ends with a value with a dot, `level/21.5`, arrives as"""
    subscriber = client.subscribe(f"{device.prefix}/#")
    dotted = NumberedEvents("--tag", "level=onvif-source", "level:double=21.5")
    try:
        device.start(filters=[event_filter(FILTER, qos=1)])
        topic = subscriber.next().topic
    finally:
        dotted.close()
    end = "level/21/5" if broker.makes_levels_of_dots else "level/21.5"
    assert topic == f"{device.prefix}/{NUMBER}/$source/{end}"
    observe(f"`{end}`")


def test_a_large_event_arrives_whole(device, client):
    """An event of 200 KiB arrives whole"""
    subscriber = client.subscribe(f"{device.prefix}/#")
    text = "0123456789abcdef" * (200 * KIBIBYTE // 16)
    large = NumberedEvents("text")
    try:
        device.start(filters=[event_filter(FILTER, qos=1)])
        device.wait_until_connected()
        large.event.send(f"text={text}")
        assert subscriber.next().document["Data"]["text"] == text
    finally:
        large.close()


@pytest.mark.parametrize("length", [255, 1000])
def test_a_long_topic(device, client, broker, numbers, observe, length):
    """A topic of 255 bytes, and of 1000"""
    prefix = f"{device.topic}/".ljust(length - len("/Interoperability/Number"), "x")
    subscriber = client.subscribe(f"{device.topic}/#")
    device.start(filters=[event_filter(FILTER, qos=1)], prefix="custom", custom=prefix)
    topic = subscriber.next().topic
    assert len(topic) == length
    observe(f"{length}: yes")


def test_the_last_will_is_published_when_the_device_is_lost(device, client, numbers):
    """The last will is published when tovrel ends"""
    subscriber = client.subscribe(f"{device.prefix}/#")
    device.set("will", topic="gone", payload="lost", qos=1, use_device_topic_prefix="true")
    device.start(filters=[event_filter(FILTER, qos=1)])
    assert number_in(subscriber.next()) == 0
    device.end()
    message = subscriber.next()
    assert (message.topic, message.payload) == (f"{device.prefix}/gone", "lost")
