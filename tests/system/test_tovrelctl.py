"""The command-line tool, used as a person and as a script would."""

import json
import os

from bridge import kill_service, publish, service_pid, wait_for_subscription
from publishing import HeldEvent, MessageWatcher, wait_for_connection
from test_configuration_api import done, export
from tool import run, told


def test_one_command_brings_a_device_event_to_the_broker():
    messages = MessageWatcher("norq/#")
    event = HeldEvent("--property", "open", "--topic", "tns1:Device/tnsnorq:Door", "open:bool=true")
    assert told("filter", "add", "onvif:Device//.") == "0\n"
    while "Door" not in messages.next().topic:
        pass
    event.close()
    messages.close()


def test_items_are_added_changed_listed_and_removed(events):
    assert told("subscription", "add", "a/+", "--qos", "1") == "0\n"
    assert told("subscription", "add", "door", "--state", "--device-prefix") == "1\n"
    wait_for_subscription("a/+")
    assert told("subscription", "list") == (
        "ID  TOPIC FILTER  QOS  STATE  DEVICE PREFIX\n"
        "0   a/+           1    no     no\n"
        "1   door          0    yes    yes\n")
    assert told("subscription", "set", "1", "--device-prefix", "no", "--qos=2") == ""
    wait_for_subscription("door")
    publish("door", "open")
    assert events.next().topic == "door"
    assert told("subscription", "remove", "0") == ""
    assert json.loads(told("--json", "subscription", "list")) == [
        {"id": "1", "topicFilter": "door", "qos": "QOS_2", "isStateData": True,
         "useDeviceTopicPrefix": False}]


def test_a_changed_filter_has_the_qos_and_the_levels_it_was_given():
    event = HeldEvent("--property", "n", "--topic", "tns1:A/tns1:B", "n:int=1")
    assert told("filter", "add", "onvif:A/onvif:C", "--retain", "all") == "0\n"
    messages = MessageWatcher("norq/#")
    assert told("filter", "set", "0", "--qos", "2", "--topic-filter", "onvif:A/onvif:B") == ""
    assert messages.next().qos == 2
    assert done("get", "publication", "eventFilter", "0") == {
        "id": "0", "topicFilter": "onvif:A/onvif:B", "qos": "QOS_2", "retain": "all"}
    assert json.loads(told("filter", "set", "0", "--retain", "none", "--json")) == {
        "id": "0", "topicFilter": "onvif:A/onvif:B", "qos": "QOS_2", "retain": "none"}
    assert told("filter", "list") == ("ID  TOPIC FILTER     QOS  RETAIN\n"
                                      "0   onvif:A/onvif:B  2    none\n")
    event.close()
    messages.close()


def test_a_filter_is_changed_when_there_are_as_many_as_there_can_be():
    done("import", data={"publication": {"eventFilter": [
        {"id": str(number), "topicFilter": f"onvif:T{number}"} for number in range(256)]}})
    told("filter", "set", "7", "--qos", "1", "--topic-filter", "onvif:Other")
    assert json.loads(told("filter", "list", "--json"))[-1]["id"] == "99"
    assert done("get", "publication", "eventFilter", "7") == {
        "id": "7", "topicFilter": "onvif:Other", "qos": "QOS_1", "retain": "property"}


def test_options_of_every_command_stand_anywhere():
    told("subscription", "add", "a")
    for words in (["--json", "subscription", "list"], ["subscription", "--json", "list"],
                  ["subscription", "list", "--json"],
                  ["--timeout", "9", "subscription", "--timeout=8", "--json", "list"]):
        assert json.loads(told(*words))[0]["topicFilter"] == "a"
    assert told("subscription", "--", "list").startswith("ID ")
    assert told("subscription", "--json", "--help").startswith("Usage: tovrelctl subscription ")


def test_the_value_of_an_option_may_look_like_an_option():
    told("subscription", "add", "a")
    told("subscription", "set", "0", "--topic-filter", "--state=no")
    told("set", "customTopicPrefix", "--", "--json=no")
    assert export()["subscription"][0]["topicFilter"] == "--state=no"
    assert told("get", "customTopicPrefix") == "--json=no\n"


def test_several_are_removed_and_those_that_are_not_there_are_told():
    for topic in "abc":
        told("filter", "add", f"onvif:{topic}")
    assert run("filter", "remove", "0", "7", "2") == (
        1, "", "tovrelctl: filter 7: Cannot remove item - it does not exist.\n")
    assert [one["id"] for one in export()["publication"]["eventFilter"]] == ["1"]
    status, output, _ = run("filter", "remove", "9", "1", "--json")
    assert (status, json.loads(output)) == (1, ["1"])


def test_ids_that_are_taken_are_passed_over():
    done("import", data={"publication": {"eventFilter": [
        {"id": "0", "topicFilter": "onvif:A"}, {"id": "1", "topicFilter": "onvif:B"}]}})
    assert told("filter", "add", "onvif:C") == "2\n"
    assert [one["topicFilter"] for one in export()["publication"]["eventFilter"]] == [
        "onvif:A", "onvif:B", "onvif:C"]


def test_settings_are_read_and_changed():
    told("set", "topicPrefix", "custom", "customTopicPrefix", "plant 7")
    assert json.loads(told("set", "--json", "includeTopicNamespaces", "no")) == {
        "includeTopicNamespaces": False}
    assert told("get", "customTopicPrefix") == "plant 7\n"
    assert told("get", "deviceTopicPrefix").startswith("norq/")
    assert json.loads(told("--json", "get", "includeTopicNamespaces")) is False
    assert told("get") == ("SETTING                       VALUE\n"
                           "topicPrefix                   custom\n"
                           "customTopicPrefix             plant 7\n"
                           "appendEventTopic              true\n"
                           "includeTopicNamespaces        false\n"
                           "includeSerialNumberInPayload  false\n")
    told("set", "customTopicPrefix", "--", "--json")
    assert told("get", "customTopicPrefix") == "--json\n"


def test_show_tells_everything_and_whether_the_broker_is_there():
    told("subscription", "add", "a")
    told("filter", "add", "onvif:A")
    wait_for_connection(True)
    text = told("show")
    for part in ("connected\n", "Device topic prefix: norq/", "1 of 256 filters", "onvif:A",
                 "1 of 256 subscriptions\n"):
        assert part in text
    shown = json.loads(told("--json", "show"))
    assert shown["mqttClient"]["connected"] == "true"
    assert shown["configuration"]["subscription"][0]["topicFilter"] == "a"


def test_refusals_are_told_in_the_services_words():
    assert run("subscription", "add", "a/#/b") == (1, "", "tovrelctl: Invalid MQTT topic\n")
    assert run("filter", "set", "7", "--qos", "1") == (
        1, "", "tovrelctl: filter 7: Cannot get item - it does not exist.\n")
    assert run("subscription", "set", "7", "--qos", "1") == (
        1, "", "tovrelctl: subscription 7: Subscription does not exist\n")
    assert run("set", "customTopicPrefix", "x" * 65536) == (
        1, "", "tovrelctl: Property customTopicPrefix: Value is longer than 65535 bytes\n")


def test_limits_are_told_in_the_services_words():
    numbers = range(256)
    done("import", data={
        "subscription": [{"id": str(number), "topicFilter": f"t/{number}"} for number in numbers],
        "publication": {"eventFilter": [{"id": str(number), "topicFilter": f"onvif:T{number}"}
                                        for number in numbers]}})
    assert run("subscription", "add", "n") == (
        1, "", "tovrelctl: Cannot add MQTT to event config - too many created\n")
    assert run("filter", "add", "onvif:N") == (
        1, "", "tovrelctl: Too many event-to-MQTT configurations\n")


def test_what_the_service_takes_and_cannot_use_is_warned_about():
    cut = "tovrel keeps the first word of a topic filter alone: when it starts again, this one is "
    for words, warnings in (
            (["subscription", "add", "a b"], [f"subscription 0: {cut}'a'"]),
            (["subscription", "add", "a/+", "--state"], ["subscription 1: stateful, but with a "
                                                         "wildcard, so no message becomes an event"]),
            (["subscription", "set", "1", "--topic-filter", "\tb/#/b"],
             ["subscription 1: MQTT knows no such topic filter, so no message will come",
              f"subscription 1: {cut}'b/#/b'"]),
            (["filter", "add", "tnsnorq:Door"],
             ["filter 0: it selects no event: 'tnsnorq:' has to be written 'norq:' here"]),
            (["filter", "set", "0", "--topic-filter", "norq:Door/#"],
             ["filter 0: '#' is no wildcard of events; //. at the end stands for all below"]),
            (["set", "customTopicPrefix", "a/#"], ["customTopicPrefix: MQTT knows no such topics, "
                                                   "so no message will go out with it"])):
        status, _, errors = run(*words)
        assert (status, errors.splitlines()) == (0, [f"tovrelctl: warning: {text}"
                                                     for text in warnings])
    kill_service()
    assert [one["topicFilter"] for one in export()["subscription"]] == ["a", "b/#/b"]


def test_an_import_warns_of_what_it_changes():
    """In a dry run, too; not of what was there before."""
    done("import", data={"subscription": [{"id": "0", "topicFilter": "old b"}]})
    document = json.dumps({"subscription": [{"id": "0", "topicFilter": "old b"},
                                            {"id": "7", "topicFilter": "a\tb"}],
                           "publication": {"customTopicPrefix": "+", "eventFilter": [
                               {"id": "3", "topicFilter": "Door"}]}})
    for options in (["--dry-run"], []):
        status, output, errors = run("import", "-", *options, stdin=document)
        assert status == 0 and output.splitlines()[-1].startswith("3 ")
        places = [line.split(": ")[2] for line in errors.splitlines()]
        assert places == ["customTopicPrefix", "filter 3", "subscription 7", "subscription 7"]
    assert run("import", "-", stdin=document) == (0, "0 changed\n", "")


def test_wrong_usage_is_told_with_what_to_do():
    settings = ("topicPrefix, customTopicPrefix, appendEventTopic, includeTopicNamespaces, "
                "includeSerialNumberInPayload")
    for words, complaint, command in (
            ([], "a command is missing", ""),
            (["frobnicate"], "unknown command 'frobnicate', expected show, get, set, subscription, "
                             "filter, export or import", ""),
            (["--frobnicate"], "Unknown option --frobnicate", ""),
            (["--timeout", "0", "show"], "--timeout: '0' is not a number from 1 to 86400", ""),
            (["show", "--timeout"], "Missing argument for --timeout", " show"),
            (["show", "x"], "'x': no argument is expected here", " show"),
            (["get", "a", "b"], "'b': only one SETTING is expected", " get"),
            (["get", "prefix"], f"unknown setting 'prefix', expected one of {settings}, "
                                "deviceTopicPrefix", " get"),
            (["set", "prefix", "x"],
             f"unknown setting 'prefix', expected one of {settings}", " set"),
            (["set", "deviceTopicPrefix", "x"], "deviceTopicPrefix can only be read", " set"),
            (["set", "topicPrefix", "none", "topicPrefix", "custom"],
             "topicPrefix is given more than once", " set"),
            (["set"], "SETTING is missing", " set"),
            (["set", "topicPrefix", "none", "customTopicPrefix"],
             "customTopicPrefix: VALUE is missing", " set"),
            (["set", "topicPrefix=none"],
             f"unknown setting 'topicPrefix=none', expected one of {settings}", " set"),
            (["set", "topicPrefix", "x"],
             "topicPrefix: 'x' is not one of default, custom, none", " set"),
            (["set", "customTopicPrefix", b"\xff"], "argument 2 is not valid UTF-8", ""),
            (["filter"], "list, add, set or remove is expected", " filter"),
            (["filter", "x\ny"],
             "unknown command 'x\\ny', expected list, add, set or remove", " filter"),
            (["filter", "--json", "show"],
             "unknown command 'show', expected list, add, set or remove", " filter"),
            (["filter", "add"], "TOPIC_FILTER is missing", " filter add"),
            (["subscription", "add", "a", "--state", "yes"],
             "'yes': only one TOPIC_FILTER is expected", " subscription add"),
            (["subscription", "add", "a", "--state=no"], "--state takes no value",
             " subscription add"),
            (["--json=no", "show"], "--json takes no value", ""),
            (["filter", "add", "--retain", "norq:Door"],
             "--retain: 'norq:Door' is not one of none, property, all", " filter add"),
            (["subscription", "add", "--qos", "a"], "--qos: 'a' is not 0, 1 or 2",
             " subscription add"),
            (["filter", "add", "a", "--retain", "x"],
             "--retain: 'x' is not one of none, property, all", " filter add"),
            (["subscription", "set", "0", "--device-prefix", "x"],
             "--device-prefix: 'x' is neither yes nor no", " subscription set"),
            (["filter", "add", "a", "--qos", "3"], "--qos: '3' is not 0, 1 or 2", " filter add"),
            (["subscription", "set", "0"], "nothing to change is given", " subscription set"),
            (["filter", "remove"], "ID is missing", " filter remove"),
            (["filter", "list", "x"], "'x': no argument is expected here", " filter list"),
            (["export"], "FILE is missing", " export"),
            (["import", "a", "b"], "'b': only one FILE is expected", " import")):
        assert run(*words) == (
            2, "", f"tovrelctl: {complaint}\nTry 'tovrelctl{command} --help'.\n")
    assert service_pid() is None


def test_help_is_there_for_every_command():
    for words in ([], ["show"], ["get"], ["set"], ["export"], ["import"],
                  *([[collection, *verb] for collection in ("filter", "subscription")
                     for verb in ([], ["list"], ["add"], ["set"], ["remove"])])):
        for asked in ([*words, "--help"], [*words, "-h"], ["help", *words]):
            text = told(*asked, env=os.environ | {"LC_ALL": "C"})
            assert text.startswith("Usage:") and " ".join(["tovrelctl", *words]) in text
            assert text.isascii() and "?" not in text
            assert max(map(len, text.splitlines())) <= 80
    assert told("--version").startswith("tovrelctl ")
    assert service_pid() is None
