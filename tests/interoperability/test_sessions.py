"""Persistent sessions (`clean-session=false`)"""

import pytest
from bridge import item
from device import FILTER, numbers_until
from publishing import event_filter

SENT = [f"message {number}" for number in range(50)]


def listening(device, client, events, *, qos=1):
    """The topic on which the device, once started, waits for messages."""
    topic = f"{device.topic}/in"
    device.start(item(0, topic, qos=qos))
    device.wait_until_listening(client, events)
    return topic


def what_arrived_later(broker, client, topic, events, qos):
    """
    How the table says what became of the messages that were sent meanwhile. Fails the test when
    that is not what the broker is known to do.
    """
    sent_as = min(qos, broker.highest_qos)
    client.publish(topic, "end", qos=sent_as)
    if qos == 0:
        assert events.payloads_until("end") == []
        return "QoS 0: no"
    arrived = events.payloads_until_all({*SENT, "end"})
    assert [payload for payload in arrived if payload != "end"] == SENT
    overtaken = arrived[-1] != "end"
    assert not overtaken or broker.new_overtake_kept
    return f"QoS {qos}: yes" + (f", as {sent_as}" if sent_as < qos else "")


@pytest.mark.parametrize("qos", [0, 1, 2])
def test_what_is_sent_while_the_device_is_away_arrives_later(device, client, broker, events, observe,
                                                             qos):
    """What is sent while tovrel does not run arrives when it is back, once each and in order"""
    device.keep_session()
    topic = listening(device, client, events, qos=qos)
    device.end()
    client.publish(topic, *SENT, qos=min(qos, broker.highest_qos))
    device.again()
    device.wait_until_listening(client, events)
    observe(what_arrived_later(broker, client, topic, events, qos))


@pytest.mark.parametrize("qos", [0, 1, 2])
def test_what_is_sent_while_the_connection_is_down_arrives_later(device, client, broker, events, tap,
                                                                 observe, qos):
    """What is sent while the network is down arrives when it is back, once each and in order"""
    device.keep_session()
    topic = listening(device, client, events, qos=qos)
    tap.cut()
    device.wait_until_connected(False)
    client.publish(topic, *SENT, qos=min(qos, broker.highest_qos))
    tap.open()
    device.wait_until_connected()
    device.wait_until_listening(client, events)
    observe(what_arrived_later(broker, client, topic, events, qos))


def test_with_a_clean_session_nothing_is_kept(device, client, events):
    """With a clean session nothing of that arrives"""
    topic = listening(device, client, events)
    device.end()
    client.publish(topic, *SENT, qos=1)
    device.again()
    device.wait_until_listening(client, events)
    client.publish(topic, "end", qos=1)
    assert events.payloads_until("end") == []


@pytest.mark.parametrize("qos", [0, 1, 2])
def test_events_wait_for_the_connection(device, client, numbers, tap, qos):
    """Events of QoS 0, 1, 2 while the network is down go out when it is back, once each, in order"""
    device.keep_session()
    subscriber = client.subscribe(f"{device.prefix}/#")
    device.start(filters=[event_filter(FILTER, qos=qos)])
    assert numbers_until(subscriber, 0) == [0]
    if qos > 0:
        tap.wait_until_confirmed()
    tap.cut()
    device.wait_until_connected(False)
    numbers.send(range(1, 51))
    tap.open()
    assert numbers_until(subscriber, 50) == list(range(1, 51))


def test_the_end_of_a_session(device, client, events):
    """A session ends when the device comes with `clean-session=true`: nothing comes any more"""
    device.keep_session()
    topic = listening(device, client, events)
    device.end()
    client.publish(topic, *SENT, qos=1)
    device.set("broker", clean_session="true")
    listening(device, client, events)
    client.publish(topic, "end", qos=1)
    assert events.payloads_until("end") == []
