"""The command-line tool on a terminal, in a pipe, and with nowhere to write to."""

import fcntl
import json
import os
import pty
import struct
import subprocess
import termios

from test_configuration_api import done
from tool import TOOL, run, told
from waiting import DEADLINE_SECONDS

LONG = "building/" + "x" * 200


def shown_on_a_terminal(*words, columns):
    """What the tool writes to a terminal of this width."""
    ours, theirs = pty.openpty()
    fcntl.ioctl(theirs, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
    subprocess.run([TOOL, *words], stdout=theirs, check=True, timeout=DEADLINE_SECONDS)
    os.close(theirs)
    text = b""
    try:
        while part := os.read(ours, 65536):
            text += part
    except OSError:  # all is read, and nobody else has the terminal
        pass
    os.close(ours)
    return text.decode().replace("\r\n", "\n")


def test_tables_are_cut_to_the_terminal_and_nowhere_else():
    done("add", "subscription", data={"topicFilter": LONG})
    for columns in (50, 60, 80, 200):
        lines = shown_on_a_terminal("subscription", "list", columns=columns).splitlines()
        assert [len(line) for line in lines] == [columns, columns - len("DEVICE PREFIX") + 2]
        assert "x...  0" in lines[1]
    assert LONG in shown_on_a_terminal("subscription", "list", columns=300)
    assert LONG in told("subscription", "list")
    assert LONG in shown_on_a_terminal("subscription", "list", "--json", columns=40)


def test_no_text_does_anything_to_a_terminal():
    text = "a\033[31m\u202e\u009b\U000e0041\nb"
    done("set", "publication", data={"customTopicPrefix": text})
    for words in (["get", "customTopicPrefix"], ["get"], ["show"]):
        shown = shown_on_a_terminal(*words, columns=120)
        assert "a\\u001B[31m\\u202E\\u009B\\uDB40\\uDC41\\nb\n" in shown
        assert shown.replace("\n", "").isprintable()
    for words in (["get", "customTopicPrefix", "--json"], ["export", "-"]):
        shown = shown_on_a_terminal(*words, columns=120)
        assert shown.replace("\n", "").isprintable()
        assert json.loads(shown) == json.loads(told(*words))
    assert told("get", "customTopicPrefix") == text + "\n"


def test_wide_characters_keep_the_columns_in_line():
    done("import", data={"publication": {"eventFilter": [
        {"id": "0", "topicFilter": "onvif:日本"}, {"id": "1", "topicFilter": "onvif:ä"}]}})
    environment = os.environ | {"LC_ALL": "C"}
    assert told("filter", "list", env=environment) == (
        "ID  TOPIC FILTER  QOS  RETAIN\n"
        "0   onvif:日本    0    property\n"
        "1   onvif:ä       0    property\n")


def test_a_reader_that_goes_ends_the_tool_without_a_word():
    items = [{"id": str(number), "topicFilter": "x" * 1000} for number in range(256)]
    told("import", "-", stdin=json.dumps({"subscription": items}))
    ended = subprocess.run(["bash", "-c", '"$0" subscription list | head -n 1; echo "$PIPESTATUS"',
                            TOOL], capture_output=True, text=True, check=True,
                           timeout=DEADLINE_SECONDS)
    assert ended.stdout.startswith("ID   TOPIC FILTER") and ended.stdout.endswith("\n141\n")
    assert ended.stderr == ""


def test_output_that_cannot_be_written_is_told():
    with open("/dev/full", "w", encoding="ascii") as full:
        for words in (["show"], ["--help"], ["show", "--help"], ["--version"]):
            ended = subprocess.run([TOOL, *words], stdout=full, stderr=subprocess.PIPE, text=True,
                                   check=False, timeout=DEADLINE_SECONDS)
            assert (ended.returncode, ended.stderr) == (
                1, "tovrelctl: cannot write: No space left on device\n")


def test_a_file_may_have_any_name(tmp_path):
    name = os.fsencode(tmp_path) + b"/\xff\n.json"
    told("export", name)
    assert told("import", name) == "0 changed\n"
    status, _, errors = run("import", name + b"x")
    assert status == 1
    assert errors.endswith("/\ufffd\\n.jsonx: No such file or directory\n")
