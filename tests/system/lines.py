"""A process whose lines of output a test waits for."""

import queue
import subprocess
import threading

from waiting import DEADLINE_SECONDS


class ProcessLines:
    """Runs a command until it is closed; each line that it writes is there to be taken once."""

    def __init__(self, *command, stdin=None, **options):
        self.process = subprocess.Popen(command, stdin=stdin, stdout=subprocess.PIPE,
                                        stderr=subprocess.PIPE, text=True, **options)
        self.lines = queue.Queue()
        self.reader = threading.Thread(target=self._read, daemon=True)
        self.reader.start()

    def _read(self):
        for line in self.process.stdout:
            self.lines.put(line)
        self.lines.put(None)

    def next(self, what, seconds=DEADLINE_SECONDS):
        """The next line; fails the test when none comes in time, or none can come any more."""
        try:
            line = self.lines.get(timeout=seconds)
        except queue.Empty:
            raise AssertionError(f"{what} did not come in time") from None
        assert line is not None, f"{what} cannot come: {self.process.args[0]} has ended"
        return line

    def has_line(self):
        """Whether a line is there to be taken."""
        return not self.lines.empty()

    def close(self):
        # mosquitto_sub hangs at times when it is asked to end.
        self.process.kill()
        self.process.wait(timeout=DEADLINE_SECONDS)
        self.reader.join()
        if self.process.stdin:
            self.process.stdin.close()
        self.process.stdout.close()
        self.process.stderr.close()
