"""Shell completion, the man page and the help of the command-line tool know the same words."""

import os
import re
import subprocess
from pathlib import Path

from test_configuration_api import done
from tool import TOOL, told
from waiting import DEADLINE_SECONDS

DATA = Path(__file__).parents[2] / "data"
COMPLETION = DATA / "completion" / "tovrelctl"
MAN_PAGE = DATA / "man" / "tovrelctl.1"
VERBS = ("list", "add", "set", "remove")
COMMANDS = [["show"], ["get"], ["set"], ["export"], ["import"],
            *([collection, verb] for collection in ("filter", "subscription") for verb in VERBS)]
COMPLETE = 'source "$0"; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _tovrelctl; ' \
           'printf "%s\\n" "${COMPREPLY[@]}"'


def completed(*words):
    """What completion offers for the last word."""
    text = subprocess.run(
        ["bash", "-c", COMPLETE, COMPLETION, "tovrelctl", *words], text=True, check=True,
        env=os.environ | {"PATH": f"{TOOL.parent}:{os.environ['PATH']}"}, stdout=subprocess.PIPE,
        timeout=DEADLINE_SECONDS).stdout
    return text.split()


def options_of(command):
    """The options that the help of a command names."""
    return re.findall(r"^  (?:-\w, )?(--[a-z-]+)", told(*command, "--help"), re.MULTILINE)


def test_every_command_and_option_is_completed():
    assert set(completed("")) == {command[0] for command in COMMANDS} | {"help"}
    assert completed("fi") == ["filter"]
    assert set(completed("-")) == set(options_of([])) >= {"--json", "--timeout", "--version"}
    for command in COMMANDS:
        if len(command) == 2:
            assert completed(command[0], "") == list(VERBS)
            assert completed("--json", command[0], "r") == ["remove"]
        options = options_of(command)
        assert len(options) >= 3
        assert set(completed(*command, "--")) == set(options)


def test_values_of_options_and_settings_are_completed():
    for words, values in (
            (["filter", "add", "x", "--qos", ""], "0 1 2"),
            (["filter", "add", "--qos", "=", ""], "0 1 2"),
            (["filter", "add", "--qos", "="], "0 1 2"),
            (["filter", "set", "--retain", "=", "p"], "property"),
            (["subscription", "set", "1", "--state", ""], "yes no"),
            (["subscription", "set", "--device-prefix", "n"], "no"),
            (["filter", "set", "--topic-filter", ""], ""),
            (["--timeout", ""], ""),
            (["set", "topicPrefix", ""], "default custom none"),
            (["set", "topicPrefix", "none", "append"], "appendEventTopic"),
            (["set", "topicPrefix", "none", "appendEventTopic", ""], "yes no"),
            (["set", "customTopicPrefix", ""], ""),
            (["--timeout", "5", "get", "dev"], "deviceTopicPrefix"),
            (["help", "filter", "a"], "add")):
        assert completed(*words) == values.split(), words
    settings = [line.split()[0] for line in told("get").splitlines()[1:]]
    assert completed("set", "") == settings
    assert completed("get", "") == [*settings, "deviceTopicPrefix"]


def test_ids_are_completed_as_they_are_and_never_executed(tmp_path):
    done("import", data={
        "subscription": [{"id": "4", "topicFilter": "a"}],
        "publication": {"eventFilter": [{"id": "17"}, {"id": "18"},
                                        {"id": f"$(touch\t{tmp_path}/mark)".replace("\t", "${IFS}")}]}})
    assert completed("filter", "set", "") == ["17", "18"]
    assert completed("filter", "remove", "17", "") == ["17", "18"]
    assert completed("filter", "set", "17", "--qos", "1", "") == []
    assert completed("subscription", "remove", "") == ["4"]
    assert completed("subscription", "add", "") == []
    assert list(tmp_path.iterdir()) == []


def test_files_are_completed(tmp_path):
    (tmp_path / "kept.json").touch()
    for command in ("export", "import"):
        assert completed(command, f"{tmp_path}/k") == [f"{tmp_path}/kept.json"]
    assert "--dry-run" in completed("import", f"{tmp_path}/kept.json", "--")


def section_of(page, command):
    """What the man page says of a command, up to the next one."""
    found = re.search(rf'^\.(?:B|BI|TP) ?"?{" ".join(command)}\b.*?(?=^\.TP|^\.S)', page,
                      re.MULTILINE | re.DOTALL)
    assert found, command
    return found[0]


def test_the_man_page_names_every_command_and_option_and_no_other():
    page = MAN_PAGE.read_text(encoding="utf-8").replace("\\-", "-")
    everywhere = {"--help", "--json", "--timeout"}
    for command in COMMANDS:
        named = set(re.findall(r"--[a-z-]+", section_of(page, command)))
        assert named - everywhere == set(options_of(command)) - everywhere, command
    options = re.search(r"^\.SH OPTIONS.*?(?=^\.SH)", page, re.MULTILINE | re.DOTALL)[0]
    assert set(re.findall(r"--[a-z-]+", options)) == set(options_of([]))
    assert set(options_of([])) == everywhere | {"--version"}


def test_the_help_of_a_collection_names_every_option_of_its_commands():
    for collection in ("filter", "subscription"):
        text = told(collection, "--help")
        for verb in VERBS:
            line = re.search(rf"^  {verb} .*(?:\n {{20}}.*)*", text, re.MULTILINE)[0]
            assert set(re.findall(r"--[a-z-]+", line)) == (
                set(options_of([collection, verb])) - {"--help", "--json", "--timeout"})
    dry_run = re.search(r"^  import .*", told("--help"), re.MULTILINE)[0]
    assert set(re.findall(r"--[a-z-]+", dry_run)) == {"--replace", "--dry-run"}


def test_all_pages_name_every_setting():
    names = [line.split()[0] for line in told("get").splitlines()[1:]]
    assert len(names) == 5
    page = section_of(MAN_PAGE.read_text(encoding="utf-8"), ["set"])
    man = re.findall(r"^\.TP\n\.B (\w+)$", MAN_PAGE.read_text(encoding="utf-8").split(page)[1],
                     re.MULTILINE)
    assert man[:5] == names
    assert re.findall(r"^  (\w+Prefix|\w+Topic|\w+Namespaces|\w+Payload) ", told("set", "--help"),
                      re.MULTILINE) == names
    assert all(name in told("get", "--help") for name in [*names, "deviceTopicPrefix"])
