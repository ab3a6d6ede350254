"""The command-line tool, run as a person and as a script would."""

import os
import subprocess
from pathlib import Path

from bus_clients import PROGRAMS
from lines import ProcessLines
from waiting import DEADLINE_SECONDS

TOOL = Path(os.environ["TOVREL_BUILD_DIR"], "tools", "tovrelctl", "tovrelctl")


def run(*words, stdin=None, **options):
    """Exit status, standard output and standard error of the tool."""
    ended = subprocess.run([TOOL, *words], input=stdin, stdout=subprocess.PIPE,
                           stderr=subprocess.PIPE, text=True, timeout=2 * DEADLINE_SECONDS,
                           check=False, **options)
    return ended.returncode, ended.stdout, ended.stderr


def told(*words, **options):
    """What the tool writes when it does as it was told."""
    status, output, errors = run(*words, **options)
    assert (status, errors) == (0, ""), errors
    return output


class ScriptedService:
    """Has the service's name and does what it is told with each request (scripted_service.cpp)."""

    def __init__(self, *reactions):
        self.lines = ProcessLines(PROGRAMS / "scripted_service", *reactions)
        assert self.lines.next("the scripted service") == "ready\n"

    def request(self):
        """The request that came next, as text."""
        return self.lines.next("a request")

    def close(self):
        self.lines.close()
