"""The clients of the folder "clients", which call the service through plain sd-bus."""

import json
import os
import subprocess
from pathlib import Path

from configuration_api import checked_answer
from lines import ProcessLines
from waiting import DEADLINE_SECONDS

PROGRAMS = Path(os.environ.get("SANDBOX_BUILD_DIR", "/nonexistent")) / "tests/system/clients"


def request_text(operation, *path, **members):
    """A request to the configuration API as one line."""
    return json.dumps({"api": "tovrel", "version": 2, "operation": operation,
                       "path": list(path)} | members)


class ConfigurationClient:
    """
    One connection to the bus for many calls, each a line as clients/service_calls.h says. Replies
    are lines "ok ..." and "error ...".
    """

    def __init__(self, program=PROGRAMS / "configuration_client", **options):
        self.lines = ProcessLines(program, stdin=subprocess.PIPE, **options)

    def send(self, *calls):
        """Hands calls over without waiting for their replies."""
        stdin = self.lines.process.stdin
        stdin.write("".join(f"{call}\n" for call in calls))
        stdin.flush()

    def reply(self, seconds=DEADLINE_SECONDS):
        """The reply that comes next; fails the test when none comes in time."""
        return self.lines.next("a reply", seconds).rstrip("\n")

    def call(self, line):
        self.send(line)
        return self.reply()

    def service_pid(self):
        """The process of the service, or None when nobody has its name."""
        reply = self.call("ServicePid")
        return int(reply.removeprefix("ok ")) if reply.startswith("ok ") else None

    def answer(self, text):
        """The answer to a request to the configuration API, checked together with it."""
        reply = self.call(f"HandleRequest {text}")
        assert reply.startswith("ok "), reply
        return checked_answer(text, reply[len("ok "):])

    def request(self, operation, *path, **members):
        return self.answer(request_text(operation, *path, **members))

    def done(self, operation, *path, **members):
        """The data of the answer to a request that must succeed."""
        answer = self.request(operation, *path, **members)
        assert "data" in answer, answer
        return answer["data"]

    def failed(self, operation, *path, **members):
        """The code and message of the answer to a request that must fail."""
        answer = self.request(operation, *path, **members)
        assert "error" in answer, answer
        return answer["error"]["code"], answer["error"]["message"]

    def close(self):
        # It ends by itself: a test that runs it as another user may not be allowed to kill it.
        self.lines.process.stdin.close()
        self.lines.process.wait(timeout=DEADLINE_SECONDS)
        self.lines.close()


class PersistentClient:
    """A client that calls while the service ends itself ENDS times; exchanges are (call, reply)."""

    def __init__(self, ends, *exchanges):
        words = [word for exchange in exchanges for word in exchange]
        self.process = subprocess.Popen([PROGRAMS / "persistent_client", str(ends), *words],
                                        text=True, stdout=subprocess.PIPE)

    def result(self, seconds):
        """What the client has counted, by name, once it is through; failures are a list."""
        told, _ = self.process.communicate(timeout=seconds)
        assert self.process.returncode == 0
        counts, failures = {}, []
        for line in told.splitlines():
            name, _, value = line.partition(" ")
            if name == "failure":
                failures.append(value)
            else:
                counts[name] = [int(word) for word in value.split()]
        return counts, failures

    def close(self):
        self.process.kill()
        self.process.wait()
        self.process.stdout.close()
