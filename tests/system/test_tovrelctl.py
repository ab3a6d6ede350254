"""The command-line tool, used as a person and as a script would."""

import json
import os
import subprocess
from pathlib import Path

from bridge import publish, service_pid, wait_for_subscription
from publishing import HeldEvent, MessageWatcher
from test_configuration_api import done, export
from waiting import DEADLINE_SECONDS

TOOL = Path(os.environ["TOVREL_BUILD_DIR"], "tools", "tovrelctl", "tovrelctl")


def run(*words, stdin=None):
    """Exit status, standard output and standard error of the tool."""
    ended = subprocess.run([TOOL, *words], input=stdin, stdout=subprocess.PIPE,
                           stderr=subprocess.PIPE, text=True, timeout=2 * DEADLINE_SECONDS,
                           check=False)
    return ended.returncode, ended.stdout, ended.stderr


def told(*words, **options):
    """What the tool writes when it does as it was told."""
    status, output, errors = run(*words, **options)
    assert (status, errors) == (0, ""), errors
    return output


def test_one_command_brings_a_device_event_to_the_broker():
    messages = MessageWatcher("norq/#")
    event = HeldEvent("--property", "open", "--topic", "tns1:Device/tnsnorq:Door", "open:bool=true")
    assert told("filter", "add", "onvif:Device//.") == "0\n"
    while "Door" not in messages.next().topic:
        pass
    event.close()
    messages.close()


def test_items_are_added_changed_listed_and_removed(events):
    assert told("subscription", "add", "a b/+", "--qos", "1") == "0\n"
    assert told("subscription", "add", "door", "--state", "--device-prefix") == "1\n"
    wait_for_subscription("a b/+")
    assert told("subscription", "list") == (
        "ID  TOPIC FILTER  QOS  STATE  DEVICE PREFIX\n"
        "0   a b/+         1    no     no\n"
        "1   door          0    yes    yes\n")
    assert told("subscription", "set", "1", "--device-prefix", "no", "--qos=2") == "1\n"
    wait_for_subscription("door")
    publish("door", "open")
    assert events.next().topic == "door"
    told("subscription", "remove", "0")
    assert json.loads(told("--json", "subscription", "list")) == [
        {"id": "1", "topicFilter": "door", "qos": "QOS_2", "isStateData": True,
         "useDeviceTopicPrefix": False}]


def test_a_changed_filter_has_the_qos_and_the_levels_it_was_given():
    assert told("filter", "add", "onvif:A", "--retain", "all") == "0\n"
    assert told("filter", "set", "0", "--qos", "2", "--topic-filter", "onvif:B") == "0\n"
    assert done("get", "publication", "eventFilter", "0") == {
        "id": "0", "topicFilter": "onvif:B", "qos": "QOS_2", "retain": "all"}
    assert told("filter", "list") == ("ID  TOPIC FILTER  QOS  RETAIN\n"
                                      "0   onvif:B       2    all\n")


def test_ids_that_are_taken_are_passed_over():
    done("import", data={"publication": {"eventFilter": [
        {"id": "0", "topicFilter": "onvif:A"}, {"id": "1", "topicFilter": "onvif:B"}]}})
    assert told("filter", "add", "onvif:C") == "2\n"
    assert [one["topicFilter"] for one in export()["publication"]["eventFilter"]] == [
        "onvif:A", "onvif:B", "onvif:C"]


def test_settings_are_read_and_changed():
    told("set", "topicPrefix", "custom")
    told("set", "customTopicPrefix", "plant 7")
    told("set", "includeTopicNamespaces", "no")
    assert told("get", "customTopicPrefix") == "plant 7\n"
    assert told("get", "deviceTopicPrefix").startswith("norq/")
    assert json.loads(told("--json", "get", "includeTopicNamespaces")) is False
    assert told("get").splitlines()[0:2] == ["SETTING                       VALUE",
                                             "topicPrefix                   custom"]


def test_an_export_brings_everything_back(tmp_path):
    told("filter", "add", "onvif:A", "--qos", "1")
    told("subscription", "add", "a")
    told("set", "topicPrefix", "none")
    kept = export()
    told("export", tmp_path / "kept.json")
    told("filter", "remove", "0")
    told("subscription", "remove", "0")
    told("set", "topicPrefix", "default")
    told("subscription", "add", "other")
    assert told("import", tmp_path / "kept.json", "--replace").splitlines()[-1] == "4 changed"
    assert export() == kept
    assert told("import", tmp_path / "kept.json", "--replace") == "0 changed\n"


def test_a_dry_run_tells_the_changes_and_makes_none():
    told("subscription", "add", "a")
    before = export()
    document = {"subscription": [{"id": "0", "topicFilter": "b"}],
                "publication": {"topicPrefix": "none"}}
    assert told("import", "-", "--dry-run", stdin=json.dumps(document)) == (
        '~ topicPrefix: "default" -> "none"\n'
        '~ subscription 0: topicFilter "a", qos "QOS_0", isStateData false, '
        'useDeviceTopicPrefix false -> topicFilter "b", qos "QOS_0", isStateData false, '
        'useDeviceTopicPrefix false\n'
        "2 would change; nothing was done\n")
    assert export() == before


def test_a_dry_run_tells_what_the_import_then_does():
    told("subscription", "add", "a")
    told("filter", "add", "onvif:A", "--qos", "2")
    document = json.dumps({"subscription": [{"id": "9", "topicFilter": "x"}],
                           "publication": {"eventFilter": [{"id": "0", "retain": "all"}]}})
    for options in ([], ["--replace"]):
        dry = json.loads(told("--json", "import", "-", "--dry-run", *options, stdin=document))
        real = json.loads(told("--json", "import", "-", *options, stdin=document))
        assert (dry["applied"], real["applied"]) == (False, True)
        assert dry["changes"] == real["changes"]


def test_a_document_with_a_mistake_is_refused_before_anything_is_reset(tmp_path):
    told("subscription", "add", "a")
    before = export()
    file = tmp_path / "wrong.json"
    for text, finding in (
            ("{", "line 1: "),
            ('{"subscription":[{"id":"300"}]}', "subscription[0]: 'id' has to be"),
            ('{"subscription":[],"subscription":[]}', "line 1: "),
            ('{"publication":{"topicPrefix":"x"}}', "publication.topicPrefix: one of")):
        file.write_text(text)
        status, output, errors = run("import", file, "--replace")
        assert (status, output) == (1, "")
        assert errors.startswith(f"tovrelctl: {file}: {finding}"), errors
    assert export() == before


def test_show_tells_everything_and_whether_the_broker_is_there():
    told("subscription", "add", "a")
    told("filter", "add", "onvif:A")
    wait_for_subscription("a")
    text = told("show")
    for part in ("connected\n", "Device topic prefix: norq/", "1 of 256 filters", "onvif:A",
                 "1 of 256 subscriptions"):
        assert part in text
    shown = json.loads(told("--json", "show"))
    assert shown["mqttClient"]["connected"] == "true"
    assert shown["configuration"]["subscription"][0]["topicFilter"] == "a"


def test_refusals_are_told_in_the_services_words():
    assert run("subscription", "add", "a/#/b") == (1, "", "tovrelctl: Invalid MQTT topic\n")
    assert run("filter", "remove", "7") == (
        1, "", "tovrelctl: Cannot remove item - it does not exist.\n")
    assert run("subscription", "set", "7", "--qos", "1") == (
        1, "", "tovrelctl: Subscription does not exist\n")


def test_wrong_usage_is_told_with_what_to_do():
    for words, complaint in (
            ([], "a command is missing"),
            (["frobnicate"], "unknown command 'frobnicate'"),
            (["set", "topicPrefix"], "a SETTING and a VALUE are expected"),
            (["set", "topicPrefix", "x"],
             "topicPrefix: 'x' is not one of default, custom, none"),
            (["filter", "add"], "exactly one TOPIC_FILTER is expected"),
            (["filter", "add", "a", "--qos", "3"], "--qos: '3' is not 0, 1 or 2"),
            (["subscription", "set", "0"], "nothing to change is given"),
            (["filter", "remove"], "an ID is missing"),
            (["filter", "list", "x"], "'x': no argument is expected here"),
            (["import"], "exactly one FILE is expected")):
        status, output, errors = run(*words)
        assert (status, output) == (2, "")
        assert errors == f"tovrelctl: {complaint}\nTry 'tovrelctl --help'.\n"
    assert service_pid() is None


def test_help_is_there_for_every_command():
    assert told("--help").startswith("Usage: tovrelctl ")
    for words in (["show"], ["get"], ["set"], ["export"], ["import"], ["filter"],
                  ["filter", "add"], ["filter", "set"], ["subscription"],
                  ["subscription", "add"], ["subscription", "set"]):
        assert "tovrelctl" in told(*words, "--help")


def shown_on_the_bus(address):
    ended = subprocess.run([TOOL, "show"], capture_output=True, text=True, check=False,
                           env=os.environ | {"DBUS_SYSTEM_BUS_ADDRESS": address},
                           timeout=DEADLINE_SECONDS)
    return ended.returncode, ended.stdout, ended.stderr


def test_a_missing_bus_is_told():
    status, output, errors = shown_on_the_bus("unix:path=/nowhere")
    assert (status, output) == (3, "")
    assert errors.startswith("tovrelctl: there is no system bus to be reached (")


def test_a_missing_service_is_told():
    with subprocess.Popen(["dbus-daemon", "--session", "--nofork", "--print-address"], text=True,
                          stdout=subprocess.PIPE) as daemon:
        status, output, errors = shown_on_the_bus(daemon.stdout.readline().strip())
        daemon.terminate()
    assert (status, output) == (3, "")
    assert errors.startswith("tovrelctl: there is no tovrel on this device")
