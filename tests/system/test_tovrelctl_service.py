"""What the command-line tool tells when the service, the bus or an answer is not as it should be."""

import json
import os
import signal
import socket
import subprocess
from pathlib import Path

import pytest
from bridge import HOST, ITEMS, control, kill_service, signal_neighbour
from publishing import PUBLICATION, event_filter, key_file, settings, wait_for_connection
from test_configuration_api import export
from test_unprivileged_user import BECOME_NOBODY
from tool import TOOL, ScriptedService, run, told
from waiting import DEADLINE_SECONDS

LOOK = "See: systemctl status tovrel; journalctl -u tovrel\n"
UNKNOWN = "Whether it was done is not known: tovrelctl show\n"


def on_the_bus(address, *words):
    return run(*words, env=os.environ | {"DBUS_SYSTEM_BUS_ADDRESS": address})


@pytest.fixture(name="other_bus")
def bus_without_the_service():
    """The address of another bus."""
    with subprocess.Popen(["dbus-daemon", "--session", "--nofork", "--print-address"], text=True,
                          stdout=subprocess.PIPE) as daemon:
        yield daemon.stdout.readline().strip()
        daemon.terminate()


def test_a_missing_bus_is_told():
    assert on_the_bus("unix:path=/nowhere", "show") == (
        3, "", "tovrelctl: the system bus cannot be reached (No such file or directory)\n"
               "See: systemctl status dbus\n")


def test_a_bus_that_goes_away_is_told():
    service = ScriptedService("silence")
    asking = subprocess.Popen([TOOL, "filter", "remove", "0"], stderr=subprocess.PIPE, text=True)
    service.request()
    control("kill", "bus")
    _, errors = asking.communicate(timeout=DEADLINE_SECONDS)
    service.close()
    assert asking.returncode == 3
    # depending on how far the tool has come
    assert errors.startswith(("tovrelctl: the system bus went away (",
                              "tovrelctl: the system bus cannot be reached ("))
    assert errors.endswith("See: systemctl status dbus\n")
    assert errors.endswith(f"{UNKNOWN}See: systemctl status dbus\n")


def test_a_missing_service_is_told(other_bus):
    status, output, errors = on_the_bus(other_bus, "show")
    assert (status, output) == (3, "")
    assert errors.startswith("tovrelctl: tovrel is not installed (")
    assert "\nInstall the package tovrel." in errors


def test_a_service_that_cannot_be_started_is_told():
    program = Path(os.environ["SANDBOX_DIR"], "libexec", "tovrel")
    program.unlink()
    program.symlink_to("/bin/false")
    status, output, errors = run("show")
    assert (status, output) == (3, "")
    assert errors.startswith("tovrelctl: tovrel could not be started (") and errors.endswith(LOOK)


def test_missing_rights_are_told():
    policy = "/run/sandbox/system.d/nobody.conf"
    with open(policy, "w", encoding="ascii") as file:
        file.write('<busconfig><policy user="nobody"><deny send_destination="com.norq.Tovrel1"/>'
                   "</policy></busconfig>")
    subprocess.run(["busctl", "--system", "call", "org.freedesktop.DBus", "/org/freedesktop/DBus",
                    "org.freedesktop.DBus", "ReloadConfig"], check=True, timeout=DEADLINE_SECONDS)
    # The build tree may lie in a folder that is closed to others.
    subprocess.run(["cp", TOOL, "/run/tovrelctl"], check=True)
    denied = subprocess.run([*BECOME_NOBODY, "/run/tovrelctl", "show"], text=True, check=False,
                            capture_output=True, timeout=DEADLINE_SECONDS)
    assert (denied.returncode, denied.stdout) == (3, "")
    assert denied.stderr.startswith("tovrelctl: this user may not call tovrel (")
    assert denied.stderr.endswith(
        "Try it as root (sudo), or see the system bus's policy com.norq.Tovrel1.conf.\n")


def test_a_service_that_does_not_answer_is_told():
    service = ScriptedService("silence")
    for words, advice in ((["filter", "list"], ""), (["set", "topicPrefix", "none"], UNKNOWN)):
        status, output, errors = run("--timeout", "1", *words)
        assert (status, output) == (3, "")
        assert errors.startswith("tovrelctl: tovrel did not answer in time (")
        assert errors.endswith(f"\n{advice}Wait longer with --timeout SECONDS. {LOOK}")
    service.close()


def test_what_was_removed_before_the_service_fell_silent_is_told():
    service = ScriptedService('answer:{"data":null}', "silence")
    status, _, errors = run("--timeout", "1", "filter", "remove", "3", "4", "5")
    service.close()
    assert status == 3
    assert errors.endswith("Removed before that: 3\n")


def test_a_service_that_ends_in_a_request_is_told():
    service = ScriptedService("end")
    status, output, errors = run("filter", "list")
    service.close()
    assert (status, output) == (3, "")
    assert errors.startswith("tovrelctl: tovrel ended before it answered (")
    assert errors.endswith(LOOK)


def test_a_failing_service_is_told_in_its_own_words():
    service = ScriptedService("error:com.norq.Tovrel1.InternalError:Could not process request")
    assert run("show") == (1, "", "tovrelctl: tovrel failed: Could not process request\n"
                                  "See: journalctl -u tovrel\n")
    service.close()


def test_a_stored_setting_that_the_service_cannot_tell_is_told_with_its_cure():
    """The methods that replace a whole direction take any text for it, and so does its file."""
    PUBLICATION.write_text(key_file(settings(prefix="other"), {"0": event_filter("norq:Door")}))
    remedy = "This makes it so: tovrelctl set topicPrefix default\n"
    for words in (["show"], ["get"], ["get", "appendEventTopic"], ["export", "-"], ["import", "-"]):
        status, output, errors = run(*words, stdin="{}")
        assert (status, output) == (1, "")
        assert errors == ("tovrelctl: Property topicPrefix: Value other is not one of default, "
                          'custom, none\ntovrel takes what is stored for "default". ' + remedy)
    assert "norq:Door" in told("filter", "list")
    told("set", "topicPrefix", "default")
    assert "norq:Door" in told("show")


def test_a_stored_topic_filter_that_the_service_cannot_tell_is_told_with_its_cure():
    ITEMS.write_bytes(b"3\na\xff\n0\n0\n0\n")
    for words in (["show"], ["subscription", "list"], ["export", "-"]):
        status, output, errors = run(*words)
        assert (status, output) == (1, "")
        assert errors.startswith("tovrelctl: Property topicFilter: Value is not valid UTF-8\n"
                                 "A file in /etc/tovrel has it. ")
        assert "tovrelctl subscription remove ID" in errors
    told("subscription", "remove", "3")
    assert told("subscription", "list").count("\n") == 1


HOSTILE = ("answer:", "answer:{}", "answer:[]", "answer:null", "answer:\033]0;title\007",
           'answer:{"data":null}', 'answer:{"data":7}', 'answer:{"data":[1]}',
           'answer:{"data":[{"id":1}]}', 'answer:{"data":{"id":"0"}}', 'answer:{"error":7}',
           'answer:{"error":{"code":1}}', 'answer:{"data":' + "[" * 5000, "number",
           "blanks:1000000", "blanks:26000000",
           'answer:{"data":[{"id":"0","topicFilter":"a","qos":"QOS_9","retain":"all"}]}')


def assert_not_understood(*words):
    status, output, errors = run(*words)
    assert (status, output) == (1, ""), words
    assert errors.startswith("tovrelctl: tovrel's answer "), words
    assert len(errors) < 1000 and errors.replace("\n", "").isprintable()


def test_no_answer_is_used_that_is_none():
    for reaction in HOSTILE:
        service = ScriptedService(reaction)
        assert_not_understood("show")
        assert_not_understood("filter", "list", "--json")
        service.close()


def test_no_command_uses_what_it_did_not_ask_for():
    service = ScriptedService('answer:{"data":{"id":7}}')
    for words in (["get"], ["get", "deviceTopicPrefix"], ["subscription", "list"],
                  ["filter", "add", "x"], ["filter", "set", "0", "--qos", "1"],
                  ["subscription", "set", "0", "--qos", "1"], ["export", "-"]):
        assert_not_understood(*words)
    service.close()


def test_texts_of_the_service_do_nothing_to_a_terminal():
    service = ScriptedService('answer:{"error":{"code":0,"message":"a\\u001b[31m\\nb"}}')
    assert run("show") == (1, "", "tovrelctl: a\\u001B[31m\\nb\n")
    service.close()


def test_a_broker_that_is_away_is_told():
    control("stop", "broker")
    told("subscription", "add", "a")
    wait_for_connection(False)
    status, output, _ = run("show")
    assert status == 0
    assert f"Broker: {HOST}:" in output.splitlines()[0]
    assert "not connected: see journalctl -u tovrel, and /etc/norq/mqtt.conf" in output


def test_device_services_that_are_silent_do_not_keep_the_rest_from_being_shown():
    document = export() | {"deviceTopicPrefix": "norq/1"}
    kill_service()
    service = ScriptedService("answer:" + json.dumps({"data": document}))
    signal_neighbour("deviced", signal.SIGSTOP)
    status, output, errors = run("--timeout", "1", "show")
    signal_neighbour("deviced", signal.SIGCONT)
    service.close()
    assert (status, errors) == (0, "")
    assert output.startswith("Broker: unknown: nobody on the system bus tells how the MQTT client "
                             "is doing\nDevice topic prefix: norq/1\n")


def test_a_bus_that_hangs_up_is_told(tmp_path):
    path = str(tmp_path / "bus")
    with socket.socket(socket.AF_UNIX) as silent:
        silent.bind(path)
        silent.listen()
        asking = subprocess.Popen([TOOL, "show"], stderr=subprocess.PIPE, text=True,
                                  env=os.environ | {"DBUS_SYSTEM_BUS_ADDRESS": f"unix:path={path}"})
        silent.accept()[0].close()
        _, errors = asking.communicate(timeout=DEADLINE_SECONDS)
    assert asking.returncode == 3
    # depending on how far the tool has come
    assert errors.startswith(("tovrelctl: the system bus went away (",
                              "tovrelctl: the system bus cannot be reached ("))
    assert errors.endswith("See: systemctl status dbus\n")
