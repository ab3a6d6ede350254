"""A user without any rights may call every method of the service. Needs a sandbox started by root."""

import json
import shutil
import subprocess
from pathlib import Path

import pytest
from bridge import ITEMS, call_service
from bus_clients import PROGRAMS, ConfigurationClient, request_text
from configuration_api import checked_answer
from publishing import PUBLICATION
from waiting import DEADLINE_SECONDS

NOBODY = 65534
BECOME_NOBODY = ("setpriv", f"--reuid={NOBODY}", f"--regid={NOBODY}", "--clear-groups")
OBJECT = ("com.norq.Tovrel1", "/com/norq/Tovrel1")
LEGACY = "com.norq.Tovrel1"
API = "com.norq.Mirel.Backend1"


def as_nobody(*command):
    return subprocess.run([*BECOME_NOBODY, *command], text=True, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, timeout=DEADLINE_SECONDS)


def called_as_nobody(interface, method, *arguments):
    """What busctl prints of the reply; fails the test when it is an error."""
    done = as_nobody("busctl", "--system", "call", *OBJECT, interface, method, *arguments)
    assert done.returncode == 0, done.stderr
    return done.stdout.strip()


@pytest.fixture(name="nobody", autouse=True)
def being_somebody_without_rights():
    """Fails a test where nobody else than root can be had, or where he has root's rights."""
    identity = as_nobody("id", "-u")
    assert identity.stdout == f"{NOBODY}\n", f"a sandbox not started by root: {identity.stderr}"
    owning = as_nobody("busctl", "--system", "call", "org.freedesktop.DBus",
                       "/org/freedesktop/DBus", "org.freedesktop.DBus", "RequestName", "su",
                       "com.norq.Tovrel1", "4")
    assert "Access denied" in owning.stderr


def test_a_user_without_rights_may_call_every_legacy_method():
    assert called_as_nobody(LEGACY, "SetMQTTToEventConfig", "a(sbib)", "1", "a/b", "true", "2",
                            "false") == "i 0"
    assert called_as_nobody(LEGACY, "GetMQTTToEventConfig") == 'a(sbib) 1 "a/b" true 2 false'
    assert called_as_nobody(LEGACY, "SetEventToMQTTConfig", "ssbbba(ssi)", "custom", "x", "true",
                            "true", "false", "1", "onvif:A", "all", "1") == "i 0"
    assert called_as_nobody(LEGACY, "GetEventToMQTTConfig") == (
        'ssbbba(ssi) "custom" "x" true true false 1 "onvif:A" "all" 1')
    assert "a/b" in ITEMS.read_text(encoding="utf-8")
    assert "onvif:A" in PUBLICATION.read_text(encoding="utf-8")


def test_a_user_without_rights_may_call_what_every_object_has():
    assert called_as_nobody("org.freedesktop.DBus.Peer", "Ping") == ""
    assert 'interface name=\\"com.norq.Mirel.Backend1\\"' in called_as_nobody(
        "org.freedesktop.DBus.Introspectable", "Introspect")
    for interface in (LEGACY, API):
        assert called_as_nobody("org.freedesktop.DBus.Properties", "GetAll", "s",
                                interface) == "a{sv} 0"


def test_a_call_of_a_user_without_rights_starts_the_service():
    request = request_text("listKeys", "subscription")
    told = called_as_nobody(API, "HandleRequest", "s", request)
    assert checked_answer(request, json.loads(told.removeprefix("s "))) == {"data": []}


def test_a_user_without_rights_may_send_every_request():
    call_service()
    # The build tree may lie in a folder that is closed to others.
    program = Path("/run") / "configuration_client"
    shutil.copy(PROGRAMS / program.name, program)
    client = ConfigurationClient(program=program, user=NOBODY, group=NOBODY, extra_groups=[])
    item = {"topicFilter": "a/b"}
    try:
        assert client.done("add", "subscription", data=item)["id"] == "0"
        assert client.done("set", "subscription", "0", data={"qos": "QOS_1"}) is None
        assert client.done("get", "subscription", "0")["qos"] == "QOS_1"
        assert len(client.done("listKeys", "subscription")) == 1
        assert client.done("add", "publication", "eventFilter", data=item)["id"] == "0"
        assert client.done("set", "publication", data={"topicPrefix": "none"}) is None
        assert client.done("remove", "publication", "eventFilter", "0") is None
        exported = client.done("get", options={"omitReadOnly": True})
        assert client.done("import", data=exported, options={"importType": "replace"}) is None
        assert client.done("get", options={"omitReadOnly": True}) == exported
    finally:
        client.close()
