"""Waiting for a condition with a deadline."""

import time

DEADLINE_SECONDS = 30


def wait_until(condition, what, seconds=DEADLINE_SECONDS):
    """Returns the first true value of condition(); fails the test when there is none in time."""
    deadline = time.monotonic() + seconds
    while True:
        value = condition()
        if value:
            return value
        assert time.monotonic() < deadline, f"waited {seconds} s in vain: {what}"
        time.sleep(0.02)
