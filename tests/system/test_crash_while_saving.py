"""
The service is killed again and again while it saves its configuration: the files are whole, old or
new, whatever the moment, and nothing that was configured is lost.

What makes it save is the former configuration file, which it takes over when it starts.
"""

import collections
import configparser
import os
import subprocess
import time

import pytest
from bridge import ETC
from kill_time import KillTime, Moment
from publishing import LEGACY_PUBLICATION as FORMER
from publishing import PUBLICATION as CURRENT
from publishing import event_filter, key_file, settings
from waiting import DEADLINE_SECONDS, wait_until

pytestmark = pytest.mark.usefixtures("folder_on_a_disk")

LOADED = "Created consumer handler"
ROUNDS = 200


# the service, without the bus that would start it again

def start():
    return subprocess.Popen([os.environ["SANDBOX_TOVREL"]], text=True, stderr=subprocess.PIPE,
                            env={**os.environ, "NORQ_LOG_STDERR": "1"})


def kill(process):
    process.kill()
    process.wait(timeout=DEADLINE_SECONDS)
    process.stderr.close()


def start_until_loaded():
    process = start()
    lines = []
    for line in process.stderr:
        lines.append(line)
        if LOADED in line:
            break
    kill(process)
    assert lines and LOADED in lines[-1], f"the service did not start: {lines}"


# the configuration

def former_text(round_number):
    """As many filters as there can be, so that a save takes its time; of this round alone."""
    filters = {f"f{index}": event_filter(f"norq:Round{round_number}/Level{index}//.")
               for index in range(255)}
    return key_file(settings(prefix="custom", custom=f"round{round_number}"), filters)


def current_text(round_number):
    """What an earlier start has saved."""
    return key_file(settings(), {"255": event_filter(f"norq:Before{round_number}", qos=2)})


def parsed(text):
    parser = configparser.RawConfigParser()
    parser.optionxform = str
    parser.read_string(text)
    return {section: dict(parser[section]) for section in parser.sections()}


def taken_over(round_number, had_current):
    """The whole current file of a round, once the former one has been taken over."""
    common, *filters = parsed(former_text(round_number)).values()
    expected = {"common": common} | {str(index): each for index, each in enumerate(filters)}
    if had_current:
        expected["255"] = parsed(current_text(round_number))["255"]
    return expected


def content(path):
    return path.read_text(encoding="utf-8") if path.exists() else None


def judge(round_number, old, new):
    """Where the kill fell; fails the test when the files are not whole, or something is lost."""
    former, current = content(FORMER), content(CURRENT)
    others = set(os.listdir(ETC)) - {FORMER.name, CURRENT.name}
    is_new = current is not None and current != old and parsed(current) == new
    assert current == old or is_new, f"round {round_number}: {current!r}"
    if former is None:
        assert is_new, f"round {round_number}: the former file is gone, its items are not saved"
        return Moment.INTO if others else Moment.AFTER
    assert former == former_text(round_number), f"round {round_number}: {former!r}"
    return Moment.INTO if is_new or others else Moment.BEFORE


def seconds_until_saved():
    """From the start of the service to the end of its save, in the best of some starts."""
    times = []
    for _ in range(5):
        FORMER.write_text(former_text(0), encoding="utf-8")
        CURRENT.unlink(missing_ok=True)
        begin = time.monotonic()
        process = start()
        wait_until(lambda: CURRENT.exists() and not FORMER.exists(), "the service has saved")
        times.append(time.monotonic() - begin)
        kill(process)
    return min(times)


def test_a_kill_at_any_moment_of_a_save_leaves_whole_files_and_loses_nothing():
    kill_time = KillTime(seconds_until_saved())
    fell = collections.Counter()
    for round_number in range(ROUNDS):
        old = current_text(round_number) if round_number % 2 else None
        new = taken_over(round_number, old is not None)
        CURRENT.unlink(missing_ok=True)
        if old is not None:
            CURRENT.write_text(old, encoding="utf-8")
        FORMER.write_text(former_text(round_number), encoding="utf-8")

        process = start()
        time.sleep(kill_time.next())
        kill(process)
        moment = judge(round_number, old, new)
        fell[moment] += 1
        kill_time.learn(moment)

        start_until_loaded()
        assert os.listdir(ETC) == [CURRENT.name], f"round {round_number}"
        assert parsed(content(CURRENT)) == new, f"round {round_number}"
    print({moment.value: fell[moment] for moment in Moment})
    assert fell.total() == ROUNDS
    assert fell[Moment.BEFORE] and fell[Moment.AFTER], "the kills missed the save"
