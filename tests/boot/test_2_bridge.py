"""Messages and events, both ways, through a real broker."""

import json

import pytest
from service import END_SECONDS
from waiting import wait_until

# Both clients give up by themselves, so that a case that fails leaves nothing behind.
GIVE_UP_SECONDS = "60"


@pytest.fixture(name="broker", scope="module", autouse=True)
def installed_broker(guest):
    guest.run("apt-get", "-q", "-y", "install", "mosquitto", "mosquitto-clients")
    wait_until(lambda: guest.run("systemctl", "is-active", "mosquitto").strip() == "active",
               "the broker is up")


def test_a_message_becomes_an_event(guest, unconfigured):
    unconfigured.set_items("building/+/door")
    watcher = guest.start("norq-event", "watch", "--topic", "tnsnorq:MQTT/Message/Stateless", "--json",
                          "--count", "1", "--timeout", GIVE_UP_SECONDS)
    seen = []

    def arrives():
        guest.run("mosquitto_pub", "--topic", "building/7/door", "--qos", "1", "--message", "open")
        seen.append(watcher.poll())
        return seen[-1] is not None

    # Neither the watcher nor the subscription need be there already.
    wait_until(arrives, "the watcher has an event")
    output = watcher.communicate(timeout=END_SECONDS)[0]
    assert watcher.returncode == 0, output
    event = next(json.loads(line) for line in output.splitlines() if line.startswith("{"))
    assert event["Source"]["mqtt-topic"] == "building/7/door"
    assert event["Data"]["mqtt-payload"] == "open"


def test_an_event_becomes_a_message(guest, unconfigured):
    unconfigured.set_event_filters("norq:Door//.")
    subscriber = guest.start("mosquitto_sub", "--topic", "#", "--verbose", "-C", "1", "-W",
                             GIVE_UP_SECONDS)

    def arrives():
        guest.run("norq-event", "send", "--topic", "tnsnorq:Door/Front", "open:bool=true")
        return subscriber.poll() is not None

    wait_until(arrives, "the subscriber has a message")
    output = subscriber.communicate(timeout=END_SECONDS)[0]
    assert subscriber.returncode == 0, output
    topic, payload = output.strip().split(" ", 1)
    assert topic.endswith("/event/Door/Front")
    assert json.loads(payload)["Data"] == {"open": True}


def test_the_password_of_the_broker_is_read_from_a_closed_file(guest, unconfigured):
    guest.shell("printf '[broker]\\nuser=camera\\npassword=secret\\n' >/etc/norq/mqtt.conf"
                " && systemd-tmpfiles --create norq.conf")
    assert guest.run("stat", "--format=%a %U:%G", "/etc/norq/mqtt.conf").strip() == "640 root:norq"
    guest.shell("mosquitto_passwd -c -b /etc/mosquitto/passwords camera secret"
                " && chown mosquitto /etc/mosquitto/passwords"
                " && printf 'allow_anonymous false\\npassword_file /etc/mosquitto/passwords\\n'"
                " >/etc/mosquitto/conf.d/passwords.conf && systemctl restart mosquitto")
    unconfigured.set_items("guarded")
    wait_until(lambda: "connected to" in unconfigured.said("--priority=info"),
               "the service is connected")
    guest.run("rm", "/etc/norq/mqtt.conf", "/etc/mosquitto/conf.d/passwords.conf")
    guest.run("systemctl", "restart", "mosquitto")
