"""
The service is there before its broker, or before the name of its broker is known, a hundred times
each: it connects within the limit of its back-off, and messages flow in both directions.

Most of a round is waiting, so several sandboxes play their share of the rounds side by side.
"""

import os
import re
import subprocess
import sys
from pathlib import Path

FOLDER = Path(__file__).resolve().parent
SANDBOXES = 4
ROUNDS = 25


def play_a_hundred_rounds(kind):
    command = [str(FOLDER.parents[1] / "scripts/sandbox"), "--build", os.environ["TOVREL_BUILD_DIR"],
               "--", sys.executable, "-B", str(FOLDER / "late_broker.py"), kind, str(ROUNDS)]
    sandboxes = [subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                  stderr=subprocess.STDOUT, text=True) for _ in range(SANDBOXES)]
    outputs = [sandbox.communicate()[0] for sandbox in sandboxes]
    times = [float(seconds) for output in outputs
             for seconds in re.findall(r"^connected after ([\d.]+) s$", output, re.MULTILINE)]
    print(f"{len(times)} rounds, the slowest connected after {max(times, default=0)} s")
    for sandbox, output in zip(sandboxes, outputs):
        assert sandbox.returncode == 0, output
    assert len(times) == SANDBOXES * ROUNDS


def test_a_broker_that_comes_after_the_service_is_found_a_hundred_times():
    play_a_hundred_rounds("broker")


def test_a_broker_whose_name_comes_after_the_service_is_found_a_hundred_times():
    play_a_hundred_rounds("name")
