"""docs/configuration-api.md is a tutorial: on a fresh service, each of its examples is true."""

import subprocess

from bridge import set_device_topic_prefix
from configuration_api import PAGE, checked_answer, examples_in
from test_configuration_api import answer_text_to
from waiting import DEADLINE_SECONDS


def printed_by(commands):
    """What a shell prints for the last of its commands, the ones before it being definitions."""
    return subprocess.run(["bash", "-euo", "pipefail", "-c", commands], check=True, text=True,
                          stdout=subprocess.PIPE, timeout=2 * DEADLINE_SECONDS).stdout


def test_every_example_is_true_word_for_word():
    set_device_topic_prefix("devices/d1")
    definitions = ""
    executed = {"json": 0, "console": 0}
    for kind, request, told in examples_in(PAGE, "tovrel"):
        executed[kind] += 1
        if kind == "json":
            answer = answer_text_to(request)
            assert answer == told, request
            checked_answer(request, answer)
        elif told:
            assert printed_by(definitions + request) == told, request
        else:
            definitions += request + "\n"
    assert executed["json"] >= 40 and executed["console"] >= 5
