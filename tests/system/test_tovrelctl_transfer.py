"""The command-line tool carries the whole configuration to a file and back."""

import json
import os
import signal
import subprocess

from bridge import ITEMS, wait_for_subscription
from publishing import HeldEvent, MessageWatcher
from test_configuration_api import done, export
from tool import TOOL, ScriptedService, run, told
from waiting import DEADLINE_SECONDS

FRESH = {"subscription": [],
         "publication": {"topicPrefix": "default", "customTopicPrefix": "",
                         "appendEventTopic": True, "includeTopicNamespaces": True,
                         "includeSerialNumberInPayload": False, "eventFilter": []}}


def test_an_export_brings_everything_back(tmp_path):
    told("filter", "add", "onvif:A", "--qos", "1")
    told("subscription", "add", "a")
    told("set", "topicPrefix", "none")
    kept = export()
    told("export", tmp_path / "kept.json")
    assert json.loads(told("export", "-")) == kept
    told("filter", "remove", "0")
    told("subscription", "remove", "0")
    told("set", "topicPrefix", "default")
    told("subscription", "add", "other")
    told("subscription", "add", "another")
    assert told("import", tmp_path / "kept.json", "--replace") == (
        '~ topicPrefix: "default" -> "none"\n'
        '+ filter 0: topicFilter "onvif:A", qos "QOS_1", retain "property"\n'
        '~ subscription 0: topicFilter "other" -> "a"\n'
        '- subscription 1: topicFilter "another", qos "QOS_0", isStateData false, '
        'useDeviceTopicPrefix false\n'
        "4 changed\n")
    assert export() == kept
    assert told("import", tmp_path / "kept.json", "--replace") == "0 changed\n"


def test_every_configuration_that_is_exported_can_be_imported():
    done("import", data={"subscription": [{"id": "007", "topicFilter": "a b"}],
                         "publication": {"eventFilter": [{"id": "door", "topicFilter": ""}]}})
    exported = told("export", "-")
    for options in ([], ["--replace"]):
        assert told("import", "-", *options, stdin=exported) == "0 changed\n"
    assert json.loads(exported) == export()


def test_a_dry_run_tells_the_changes_and_makes_none():
    told("subscription", "add", "a")
    before = export()
    document = {"subscription": [{"id": "0", "topicFilter": "b\u202e"}],
                "publication": {"topicPrefix": "none"}}
    assert told("import", "-", "--dry-run", stdin=json.dumps(document)) == (
        '~ topicPrefix: "default" -> "none"\n'
        '~ subscription 0: topicFilter "a" -> "b\\u202E"\n'
        "2 would change; nothing was done\n")
    assert export() == before


def test_a_dry_run_tells_what_the_import_then_does():
    told("subscription", "add", "a")
    told("filter", "add", "onvif:A", "--qos", "2")
    document = json.dumps({"subscription": [{"id": "9", "topicFilter": "x"}],
                           "publication": {"eventFilter": [{"id": "0", "retain": "all"}]}})
    for options in ([], ["--replace"]):
        dry = json.loads(run("--json", "import", "-", "--dry-run", *options, stdin=document)[1])
        real = json.loads(run("--json", "import", "-", *options, stdin=document)[1])
        assert (dry["applied"], real["applied"]) == (False, True)
        assert dry["changes"] == real["changes"]
        assert {"what": "filter 0", "before": dry["changes"][0]["before"],
                "after": export()["publication"]["eventFilter"][0]} == dry["changes"][0]


def test_a_filter_whose_levels_an_import_changes_has_the_new_ones_alone():
    event = HeldEvent("--property", "n", "--topic", "tns1:A/tns1:B", "n:int=1")
    told("filter", "add", "onvif:A/onvif:C")
    messages = MessageWatcher("norq/#")
    document = {"publication": {"eventFilter": [
        {"id": "0", "topicFilter": "onvif:A/onvif:B", "qos": "QOS_1"}]}}
    assert told("import", "-", stdin=json.dumps(document)).endswith("1 changed\n")
    assert messages.next().qos == 1
    event.close()
    messages.close()


def test_a_document_with_a_mistake_is_refused_before_anything_is_reset(tmp_path):
    told("subscription", "add", "a")
    before = export()
    file = tmp_path / "wrong.json"
    for text, finding in (
            ("", "line 1: "),
            ("{", "line 1: "),
            ("7", "line 1: "),
            ("[]", "document: a JSON object is expected"),
            ("\033[31m", "line 1: "),
            ("[" * 100_000, "line 1: "),
            ('{"subscription":[{"id":"300"}]}', "subscription[0]: 'id' has to be"),
            ('{"publication":{"eventFilter":[{"topicFilter":"a"}]}}',
             "publication.eventFilter[0]: 'id' is missing"),
            ('{"subscription":[],"subscription":[]}', "line 1: "),
            ('{"publication":{"topicPrefix":"x"}}', "publication.topicPrefix: one of"),
            (" " * 4_194_305, "larger than 4194304 bytes")):
        file.write_text(text)
        status, output, errors = run("import", file, "--replace")
        assert (status, output) == (1, "")
        assert errors.startswith(f"tovrelctl: {file}: {finding}"), errors
        assert errors[:-1].isprintable() and len(errors) < 500
    assert export() == before


def test_what_cannot_be_read_is_told(tmp_path):
    for name, finding in ((tmp_path / "none", "No such file or directory"),
                          (tmp_path, "Is a directory"),
                          ("/dev/zero", "larger than 4194304 bytes")):
        assert run("import", name) == (1, "", f"tovrelctl: {name}: {finding}\n")
    closed = subprocess.run(["bash", "-c", '"$0" import - <&-', TOOL], stderr=subprocess.PIPE,
                            text=True, timeout=DEADLINE_SECONDS, check=False)
    assert (closed.returncode, closed.stderr) == (
        1, "tovrelctl: standard input: Bad file descriptor\n")


def test_limits_of_an_import_are_told_in_the_services_words_and_leave_what_was_there():
    told("subscription", "add", "a")
    told("filter", "add", "onvif:A", "--qos", "2")
    before = export()
    too_many = [{"id": f"1 {number}", "topicFilter": "a"} for number in range(257)]
    too_long = "x" * 65536
    for document, message in (
            ({"subscription": too_many}, "Too many MQTT-to-event configurations"),
            ({"publication": {"eventFilter": too_many}}, "Too many event-to-MQTT configurations"),
            ({"subscription": [{"id": "3", "topicFilter": too_long}]},
             "Property topicFilter: Value is longer than 65535 bytes"),
            ({"subscription": [{"id": str(n), "topicFilter": too_long[1:]} for n in range(17)]},
             "Request is longer than 1048576 bytes")):
        for options in ([], ["--replace"]):
            assert run("import", "-", *options, stdin=json.dumps(document)) == (
                1, "", f"tovrelctl: {message}\nNothing was changed.\n")
    assert export() == before
    assert run("import", "-", "--dry-run", stdin=json.dumps({"subscription": too_many})) == (
        1, "", "tovrelctl: there would be 258 subscriptions, and tovrel takes 256\n")


def full_of_subscriptions():
    """Makes as many subscriptions as there can be."""
    done("import", data={"subscription": [{"id": str(number), "topicFilter": f"t/{number}"}
                                          for number in range(256)]})


def test_an_import_changes_subscriptions_when_there_are_as_many_as_there_can_be():
    full_of_subscriptions()
    document = json.dumps({"subscription": [{"id": number, "topicFilter": f"other/{number}"}
                                            for number in ("9", "10", "200")]})
    assert told("import", "-", stdin=document).endswith("3 changed\n")
    assert told("import", "-", stdin=document) == "0 changed\n"
    wait_for_subscription("other/200")
    assert len(export()["subscription"]) == 256
    told("subscription", "remove", "255")
    both = json.dumps({"subscription": [{"id": "9", "topicFilter": "a"},
                                        {"id": "255", "topicFilter": "b"}]})
    assert told("import", "-", stdin=both).endswith("2 changed\n")


def test_a_refused_change_leaves_the_subscriptions_when_there_are_as_many_as_there_can_be():
    full_of_subscriptions()
    before = export()
    for changed, message in (
            ([{"id": "3", "topicFilter": "a"}, {"id": "4", "topicFilter": "x" * 65536}],
             "Property topicFilter: Value is longer than 65535 bytes"),
            ([{"id": "3", "topicFilter": "a"}, {"id": "7 new", "topicFilter": "a"}],
             "Too many MQTT-to-event configurations")):
        assert run("import", "-", stdin=json.dumps({"subscription": changed})) == (
            1, "", f"tovrelctl: {message}\nNothing was changed.\n")
        assert export() == before


def test_a_subscription_that_makes_room_and_cannot_be_put_back_is_told():
    def answer(document):
        return "answer:" + json.dumps({"data": document})
    items = [{"id": str(number), "topicFilter": "a", "qos": "QOS_0", "isStateData": False,
              "useDeviceTopicPrefix": False} for number in range(256)]
    refusal = 'answer:{"error":{"code":0,"message":"no"}}'
    service = ScriptedService(answer(FRESH | {"subscription": items}), answer(None), refusal,
                              answer(items[1:]), refusal, answer(FRESH | {"subscription": items[1:]}))
    changed = json.dumps({"subscription": [{"id": "0", "topicFilter": "b"}]})
    status, output, errors = run("import", "-", stdin=changed)
    requests = [json.loads(service.request()) for _ in range(5)]
    service.close()
    assert [one["operation"] for one in requests] == ["get", "remove", "import", "listKeys", "import"]
    assert requests[4]["data"] == {"subscription": [items[0]]}
    gone = ('- subscription 0: topicFilter "a", qos "QOS_0", isStateData false, '
            "useDeviceTopicPrefix false\n")
    assert (status, output) == (1, f"{gone}1 changed\n")
    assert errors == ("tovrelctl: no\nThese may be missing now (no):\n"
                      f"{gone}Only what is listed was changed.\n")


def test_a_refusal_that_changed_nothing_leaves_nothing_to_put_back():
    """What is there is too large to be put back with one request."""
    long = "x" * 65000
    for first in (0, 10):
        told("import", "-", stdin=json.dumps({"subscription": [
            {"id": str(number), "topicFilter": long} for number in range(first, first + 10)]}))
    document = {"subscription": [{"id": str(n), "topicFilter": long} for n in range(17)]}
    assert run("import", "-", "--replace", stdin=json.dumps(document)) == (
        1, "", "tovrelctl: Request is longer than 1048576 bytes\nNothing was changed.\n")


def test_an_import_that_cannot_be_saved_tells_what_is_changed_all_the_same():
    told("filter", "add", "onvif:A", "--qos", "2")
    told("subscription", "add", "a")
    ITEMS.unlink()
    ITEMS.mkdir()
    document = {"publication": {"topicPrefix": "none",
                                "eventFilter": [{"id": "0", "topicFilter": "onvif:B"}]}}
    status, output, errors = run("import", "-", stdin=json.dumps(document))
    assert (status, output) == (
        1, '- filter 0: topicFilter "onvif:A", qos "QOS_2", retain "property"\n1 changed\n')
    assert errors == (
        "tovrelctl: Cannot use imported MQTT to event config - internal error\n"
        "These may be missing now (Cannot use imported MQTT to event config - internal error):\n"
        '- filter 0: topicFilter "onvif:A", qos "QOS_2", retain "property"\n'
        "Only what is listed was changed.\n")
    assert export()["publication"]["eventFilter"] == []
    status, output, errors = run("import", "-", "--replace", "--json", stdin="{}")
    assert (status, json.loads(output)["changes"][0]["what"]) == (1, "subscription 0")
    assert "systemctl restart tovrel\nOnly what is listed was changed.\n" in errors
    assert export() == FRESH


def test_an_interrupted_change_of_a_filter_is_finished_first():
    """The signal comes while the filter is out, and ends the tool when it is in again."""
    old = '{"id":"0","topicFilter":"onvif:A","qos":"QOS_0","retain":"all"}'
    service = ScriptedService(f'answer:{{"data":{old}}}', 'answer:{"data":null}', "silence",
                              'answer:{"data":[]}', 'answer:{"data":null}')
    changing = subprocess.Popen([TOOL, "--timeout", "2", "filter", "set", "0", "--qos", "1"],
                                stderr=subprocess.PIPE, text=True)
    operations = [json.loads(service.request())["operation"] for _ in range(3)]
    assert operations == ["get", "remove", "import"]
    changing.send_signal(signal.SIGINT)
    assert json.loads(service.request())["operation"] == "listKeys"
    put_back = json.loads(service.request())
    assert put_back["data"]["publication"]["eventFilter"] == [json.loads(old)]
    changing.communicate(timeout=DEADLINE_SECONDS)
    assert changing.returncode == -signal.SIGINT
    service.close()


def test_an_import_without_an_answer_tells_what_was_changed():
    def answer(document):
        return "answer:" + json.dumps({"data": document})
    changed = FRESH | {"subscription": [{"id": "0", "topicFilter": "a", "qos": "QOS_0",
                                         "isStateData": False, "useDeviceTopicPrefix": False}]}
    imported = json.dumps(changed)
    for reactions, output, advice in (
            ([answer(FRESH), "silence", answer(FRESH)], "", "Nothing was changed.\n"),
            ([answer(FRESH), "silence", answer(changed)],
             '+ subscription 0: topicFilter "a", qos "QOS_0", isStateData false, '
             "useDeviceTopicPrefix false\n1 changed\n", "Only what is listed was changed.\n"),
            ([answer(FRESH), "silence"], "",
             "What was changed cannot be told now. Later: tovrelctl show\n")):
        service = ScriptedService(*reactions)
        status, told_changes, errors = run("--timeout", "1", "import", "-", stdin=imported)
        service.close()
        assert (status, told_changes) == (3, output)
        assert errors.startswith("tovrelctl: tovrel did not answer in time (")
        assert errors.endswith(advice)


def test_an_export_replaces_only_files_and_those_whole(tmp_path):
    target, link = tmp_path / "target", tmp_path / "link"
    target.write_text("old")
    link.symlink_to(target)
    for name in (link, tmp_path, "/dev/null", "/dev/stdout"):
        status, output, errors = run("export", name)
        assert (status, output) == (1, "")
        assert errors == (f"tovrelctl: {name}: is there and is no regular file\n"
                          'Name another file, or "-" for standard output.\n')
    assert target.read_text() == "old"
    told("export", target)
    assert json.loads(target.read_text()) == FRESH
    assert sorted(os.listdir(tmp_path)) == ["link", "target"]


def test_an_export_that_cannot_be_written_is_told(tmp_path):
    (tmp_path / "file").touch()
    for name, finding in (("none/kept.json", "No such file or directory"),
                          ("file/kept.json", "Not a directory"),
                          ("x" * 256, "File name too long")):
        assert run("export", tmp_path / name) == (1, "", f"tovrelctl: {tmp_path / name}: {finding}\n")


def test_an_export_that_fails_leaves_the_old_file_and_nothing_else(tmp_path):
    file = tmp_path / "kept.json"
    file.write_text("old")
    for call in ("write:error=ENOSPC:when=1", "fsync:error=EIO", "/rename:error=EACCES"):
        ended = subprocess.run(
            ["strace", "-qq", "-o", "/dev/null", "-e", f"inject={call}", TOOL, "export", file],
            # leaks cannot be looked for in a process that is traced
            env=os.environ | {"ASAN_OPTIONS": "detect_leaks=0"},
            stderr=subprocess.PIPE, text=True, timeout=2 * DEADLINE_SECONDS, check=False)
        assert ended.returncode == 1, call
        assert file.read_text() == "old" and os.listdir(tmp_path) == ["kept.json"]
