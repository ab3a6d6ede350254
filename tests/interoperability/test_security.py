"""Who may connect"""

from pathlib import Path

import pytest
from bridge import item
from brokers.process import HOST, PASSWORD, USER, free_port
from device import FILTER, numbers_until
from publishing import event_filter

# The sandbox's own.
HOSTS = Path("/etc/hosts")
CANNOT_CONNECT = "MQTT: cannot connect to"


def assert_both_directions(device, client, events):
    """The device connects, messages become events and events become messages."""
    subscriber = client.subscribe(f"{device.prefix}/#")
    device.start(item(0, f"{device.topic}/in", qos=1), filters=[event_filter(FILTER, qos=1)])
    device.wait_until_listening(client, events)
    client.publish(f"{device.topic}/in", "message", qos=1)
    client.publish(f"{device.topic}/in", "end", qos=1)
    assert events.payloads_until("end") == ["message"]
    assert numbers_until(subscriber, 0) == [0]
    assert CANNOT_CONNECT not in device.log


def reason_of_refusal(device):
    """Why the device, once started, does not get a connection, by its own log."""
    device.start()
    device.wait_for_log("trying again until it works")
    assert "MQTT: connected" not in device.log
    (line,) = [line for line in device.log.splitlines() if CANNOT_CONNECT in line]
    return line.partition(CANNOT_CONNECT)[2].partition(": ")[2].removesuffix(
        "; trying again until it works")


# In the clear

def test_user_and_password(device, client, events, numbers):
    """The device with user and password: both directions"""
    device.set("broker", user=USER, password=PASSWORD)
    assert_both_directions(device, client, events)


def test_a_wrong_password_is_refused(device, observe):
    """A wrong password is refused; the device says"""
    device.set("broker", user=USER, password="wrong password")
    observe(f"\"{reason_of_refusal(device)}\"")


def test_the_device_connects_after_the_password_was_put_right(device, client, events, numbers):
    """After a wrong password was put right, the device, started again, works in both directions"""
    device.set("broker", user=USER, password="wrong password")
    reason_of_refusal(device)
    device.end()
    device.set("broker", password=PASSWORD)
    device.forget_log()
    assert_both_directions(device, client, events)


# TLS, with a certificate of the device

@pytest.mark.parametrize("version", ["1.2", "1.3"])
def test_tls_with_a_client_certificate(device, broker, certificates, client, events, numbers, version):
    """TLS with a client certificate, `min-version` 1.2 and 1.3: both directions"""
    broker.demand_certificate(True)
    device.use_tls(broker, certificates.trusted, certificates.device, min_version=version)
    assert_both_directions(device, client, events)


def test_tls_without_the_client_certificate_that_is_demanded(device, broker, certificates):
    """A device without the certificate that the broker demands is refused, and logs it"""
    broker.demand_certificate(True)
    device.use_tls(broker, certificates.trusted)
    # Whether the broker's reason is read depends on who is quicker.
    assert reason_of_refusal(device)


def test_a_client_certificate_of_a_stranger(device, broker, certificates):
    """A device with a certificate of an unknown authority is refused, and logs it"""
    broker.demand_certificate(True)
    device.use_tls(broker, certificates.trusted, certificates.strange_device)
    assert reason_of_refusal(device)


def test_the_device_refuses_a_broker_of_an_unknown_authority(device, broker, certificates, observe):
    """The device refuses a broker whose authority it does not know; it says"""
    device.use_tls(broker, certificates.stranger, certificates.device)
    observe(f"\"{reason_of_refusal(device)}\"")


def test_a_port_with_tls_where_nobody_listens(device, broker, certificates):
    """A port where no broker listens, with TLS: the device notices at once, and logs it"""
    device.use_tls(broker, certificates.trusted)
    device.set("broker", port=free_port())
    assert reason_of_refusal(device) != "no answer from the broker"


def test_the_device_refuses_a_broker_with_another_name(device, broker, certificates, observe):
    """The device refuses a broker whose certificate has another name; it says"""
    device.use_tls(broker, certificates.trusted, certificates.device)
    with HOSTS.open("a", encoding="ascii") as hosts:
        hosts.write(f"{HOST} another.example\n")
    device.set("broker", host="another.example")
    observe(f"\"{reason_of_refusal(device)}\"")


# TLS, with a certificate of the broker alone

def test_tls_without_client_certificates(device, broker, certificates, client, events, numbers):
    """TLS where the broker demands no certificate, with user and password: both directions"""
    broker.demand_certificate(False)
    device.use_tls(broker, certificates.trusted)
    device.set("broker", user=USER, password=PASSWORD)
    assert_both_directions(device, client, events)
