"""A machine to try packages on: a root folder of its own, booted with systemd as its first process."""

import contextlib
import os
import pty
import signal
import subprocess
import threading
import time
from pathlib import Path

BOOT_SECONDS = 120
CALL_SECONDS = 300
PATH = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"


class Failed(Exception):
    """A command in the guest that did not end with success."""

    def __init__(self, command, result):
        super().__init__(f"{command}\nended with {result.returncode}:\n{result.stdout}{result.stderr}")
        self.result = result


def children(pid):
    return [int(child) for child in
            Path(f"/proc/{pid}/task/{pid}/children").read_text(encoding="ascii").split()]


def is_first_process(pid):
    """Whether this process has the number 1 in a process namespace of its own."""
    for line in Path(f"/proc/{pid}/status").read_text(encoding="ascii").splitlines():
        if line.startswith("NSpid:"):
            numbers = line.split()[1:]
            return len(numbers) > 1 and numbers[-1] == "1"
    return False


def first_process_below(pid):
    """The guest's first process; None while there is none."""
    try:
        for child in children(pid):
            found = child if is_first_process(child) else first_process_below(child)
            if found:
                return found
    except (FileNotFoundError, ProcessLookupError):
        pass
    return None


class Guest:
    """
    A root folder, booted, without a network but its own loopback. `console` is the file that keeps
    what its console shows.
    """

    def __init__(self, root, console):
        self.root = root
        self.console = console
        self.container = None
        self.leader = None
        # Its own, as of a machine that was set up: the first boot is not what is tried here.
        (root / "etc/machine-id").write_text(os.urandom(16).hex() + "\n", encoding="ascii")
        (root / "etc/hostname").write_text("guest\n", encoding="ascii")
        # As the installer writes it.
        (root / "etc/hosts").write_text("127.0.0.1 localhost\n::1 localhost\n", encoding="ascii")

    def boot(self):
        # It takes no orders from anything that is not a terminal.
        ours, theirs = pty.openpty()
        self.container = subprocess.Popen(
            ["systemd-nspawn", "--quiet", f"--directory={self.root}", "--boot", "--keep-unit",
             "--register=no", "--private-network", "--link-journal=no", "--resolv-conf=off",
             "--timezone=off"],
            stdin=theirs, stdout=theirs, stderr=theirs, start_new_session=True)
        os.close(theirs)
        threading.Thread(target=self.keep_console, args=(ours,), daemon=True).start()
        deadline = time.monotonic() + BOOT_SECONDS
        while not self.is_up():
            if self.container.poll() is not None or time.monotonic() > deadline:
                raise RuntimeError(f"the guest did not come up, see {self.console}")
            time.sleep(0.05)

    def keep_console(self, terminal):
        with open(self.console, "ab") as log, os.fdopen(terminal, "rb", buffering=0) as source:
            try:
                while data := source.read(4096):
                    log.write(data)
                    log.flush()
            except OSError:
                pass  # the other end is closed

    def is_up(self):
        self.leader = self.leader or first_process_below(self.container.pid)
        if not self.leader:
            return False
        state = self.try_run("systemctl", "is-system-running").stdout.strip()
        return state in ("running", "degraded")

    def entered(self, command):
        return ["nsenter", "--target", str(self.leader), "--all", "--",
                "env", "--ignore-environment", "--chdir=/root", f"PATH={PATH}", "HOME=/root",
                "LANG=C.UTF-8", "DEBIAN_FRONTEND=noninteractive", "TERM=dumb", "PAGER=cat", *command]

    def try_run(self, *command, seconds=CALL_SECONDS, **options):
        """Runs a command in the guest, whatever becomes of it."""
        return subprocess.run(self.entered(command), check=False, text=True, capture_output=True,
                              stdin=subprocess.DEVNULL, timeout=seconds, **options)

    def run(self, *command, **options):
        """What a command says on its standard output. It must end with success."""
        result = self.try_run(*command, **options)
        if result.returncode != 0:
            raise Failed(" ".join(command), result)
        return result.stdout

    def shell(self, text, **options):
        """The same for a shell's command line."""
        return self.run("sh", "-c", text, **options)

    def start(self, *command, **options):
        """Starts a command that goes on."""
        return subprocess.Popen(self.entered(command), text=True, stdin=subprocess.DEVNULL,
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, **options)

    def end(self, started):
        """
        Ends a command that was started, by a signal to its own process: that would outlive an
        "nsenter" that was ended, and hold the output open.
        """
        for process in children(started.pid):
            with contextlib.suppress(ProcessLookupError):
                os.kill(process, signal.SIGTERM)
        started.wait(timeout=CALL_SECONDS)

    def path(self, inside):
        """Where a file of the guest is, seen from here."""
        return self.root / inside.lstrip("/")

    def shut_down(self):
        """As a machine is: services are stopped. Or else it is switched off."""
        if self.container is None:
            return
        if self.leader is None:
            self.container.kill()
            self.container.wait()
            self.container = None
            return
        # What systemd takes for "halt".
        os.kill(self.leader, signal.SIGRTMIN + 3)
        try:
            self.container.wait(timeout=60)
        except subprocess.TimeoutExpired:
            self.container.kill()
            self.container.wait()
            raise
        finally:
            self.container = None
            self.leader = None

    def reboot(self):
        self.shut_down()
        self.boot()
