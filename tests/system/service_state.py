"""What is seen of the running service from outside: its memory, and whether it has work."""

import re
from pathlib import Path

from bridge import service_pid
from waiting import wait_until

# What waits for the service may be thousands of events, and the machine busy with other tests.
IDLE_SECONDS = 90


def memory(what):
    """In bytes: "VmRSS", what is resident now, or "VmHWM", the most that ever was."""
    status = Path(f"/proc/{service_pid()}/status").read_text(encoding="ascii")
    return int(re.search(rf"^{what}:\s+(\d+) kB$", status, re.MULTILINE)[1]) * 1024


def has_address_sanitizer():
    return "libasan" in Path(f"/proc/{service_pid()}/maps").read_text(encoding="ascii")


def wait_until_idle(threads="*"):
    """
    Waits until no thread of the service has run for some time; or, given its process, its main
    thread: the thread sanitizer has one of its own, which never rests.
    """
    times_run = []

    def is_idle():
        times_run.append([
            re.findall(r"ctxt_switches:\s+(\d+)", (thread / "status").read_text(encoding="ascii"))
            for thread in Path(f"/proc/{service_pid()}/task").glob(str(threads))])
        return len(times_run) > 10 and times_run[-11:].count(times_run[-1]) == 11

    wait_until(is_idle, "the service is idle", IDLE_SECONDS)
