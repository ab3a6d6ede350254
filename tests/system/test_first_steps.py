"""The first steps of the README, as somebody takes them who has just installed the packages."""

import os
import re
import subprocess
from pathlib import Path

import pytest
from bridge import HOST, PORT
from configuration_api import examples_in
from waiting import DEADLINE_SECONDS, wait_until

README = Path(__file__).parents[2] / "README.md"
USUAL_BROKER = "localhost:1883"


@pytest.fixture(name="environment")
def where_the_usual_broker_is_the_sandboxs(tmp_path):
    """The environment in which the broker's own clients find the sandbox's broker by themselves."""
    for client in ("mosquitto_pub", "mosquitto_sub"):
        (tmp_path / client).write_text(f"-h {HOST}\n-p {PORT}\n")
    return os.environ | {"XDG_CONFIG_HOME": str(tmp_path)}


def pattern_of(told):
    """What the page says is printed; "..." stands for anything."""
    here = told.replace(USUAL_BROKER, f"{HOST}:{PORT}")
    return re.compile(".*".join(re.escape(part) for part in here.split("...")), re.DOTALL)


def printed_by(command, environment):
    return subprocess.run(["bash", "-c", command], check=True, text=True, env=environment,
                          stdout=subprocess.PIPE, timeout=2 * DEADLINE_SECONDS).stdout


def test_the_first_steps_of_the_readme_are_true_word_for_word(environment, tmp_path):
    section = re.search(r"^## First steps\n(.*?)^## ", README.read_text(encoding="utf-8"),
                        re.DOTALL | re.MULTILINE)[1]
    page = tmp_path / "page"
    page.write_text(section, encoding="utf-8")
    steps = [(command, pattern_of(told)) for _, command, told in examples_in(page, "none")]
    assert len(steps) == 7
    for command, told in steps:
        if command == "tovrelctl show":
            # the connection to the broker is being made
            wait_until(lambda: told.fullmatch(printed_by(command, environment)), told.pattern)
        else:
            printed = printed_by(command, environment)
            assert told.fullmatch(printed), f"{command}\n{printed}"
    for command in re.findall(r"`(tovrelctl [a-z]+ remove 0)`", section):
        assert printed_by(command, environment) == ""
