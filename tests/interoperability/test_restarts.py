"""Restarts and silence"""

from bridge import item
from clients import MqttJs
from device import FILTER, numbers_until
from publishing import event_filter
from tap import PINGRESP


def test_both_directions_come_back_after_a_restart_of_the_broker(device, broker, events, numbers,
                                                                 tap):
    """A restart of the broker: both directions come back, and events sent meanwhile arrive"""
    device.start(item(0, f"{device.topic}/in", qos=1), filters=[event_filter(FILTER, qos=1)])
    with MqttJs(broker.port) as earlier:
        device.wait_until_listening(earlier, events)
    tap.wait_until_confirmed()
    broker.stop()
    device.wait_until_connected(False)
    numbers.send(range(1, 51))
    # The device is not to be quicker than the subscriber.
    tap.cut()
    broker.start()
    with MqttJs(broker.port) as later:
        subscriber = later.subscribe(f"{device.prefix}/#")
        tap.open()
        assert numbers_until(subscriber, 50) == list(range(1, 51))
        device.wait_until_listening(later, events)
        later.publish(f"{device.topic}/in", "message", qos=1)
        later.publish(f"{device.topic}/in", "end", qos=1)
        assert events.payloads_until("end") == ["message"]


def test_what_a_broker_keeps_over_its_restart(device, broker, events, observe):
    """What the broker keeps over its own restart, of a persistent session and of retained messages"""
    device.keep_session()
    waiting, kept = f"{device.topic}/waiting", f"{device.topic}/kept"
    with MqttJs(broker.port) as earlier:
        device.start(item(0, waiting, qos=1))
        device.wait_until_listening(earlier, events)
        device.end()
        earlier.publish(waiting, "waited", qos=1)
        earlier.publish(kept, "retained", qos=1, retain=True)
    broker.stop()
    broker.start()
    with MqttJs(broker.port) as later:
        device.start(item(0, waiting, qos=1), item(1, kept, qos=1))
        device.wait_until_listening(later, events)
        later.publish(waiting, "end", qos=1)
        arrived = sorted(events.payloads_until("end"))
    assert arrived == (["retained", "waited"] if broker.survives_restarts else [])
    observe("both" if arrived else "nothing: it keeps all in memory, unless told otherwise")


def test_an_idle_connection_is_kept_alive(device, tap):
    """An idle connection is kept alive: with `keepalive=5` two pings are answered"""
    device.set("broker", keepalive=5)
    device.start()
    tap.wait_for(PINGRESP, 2)
    assert "disconnected" not in device.log


def test_an_unsubscription_that_nobody_needs_is_answered(broker):
    """The unsubscription of what is not subscribed is answered, as the device's keepalive needs it"""
    with MqttJs(broker.port) as client:
        client.connect().order(do="unsubscribe", topic="$norq/keepalive")
