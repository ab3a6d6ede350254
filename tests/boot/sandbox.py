"""What the service may not do, which of its unit's settings keeps it from that, and how to try it."""

import shlex
from typing import NamedTuple

from service import END_SECONDS, UNIT
from waiting import wait_until

PROBE = "/usr/local/bin/probe"
DROP_INS = f"/run/systemd/system/{UNIT}.d"
# Not the journal: it may not learn in time which unit so short a process belonged to.
ANSWERS = "/run/answers"
DONE = "done"
READ_ONLY = "Read-only file system"
DENIED = "Permission denied"
NOT_PERMITTED = "Operation not permitted"
NOT_THERE = "No such file or directory"
NO_FAMILY = "Address family not supported by protocol"

# Folders that everybody may write in, and files that everybody may read, but for the sandbox.
OPEN_FOLDERS = ["/etc/open", "/etc/norq/open", "/usr/lib/open", "/var/lib/open", "/run/open"]
HOMES = ["/root", "/home"]
OPEN_FILES = ["/usr/lib/modules/open", "/dev/open", "/dev/kmsg"]


class Refusal(NamedTuple):
    """
    How a try is refused; the settings of the unit without which it would not be, as a drop-in has
    them; and its answer then.
    """

    answer: str
    without: tuple
    answer_without: str = DONE


def privileged(capability, *settings):
    """Settings that let the service do what takes a capability."""
    return (f"CapabilityBoundingSet={capability}", f"AmbientCapabilities={capability}",
            "PrivateUsers=no", *settings)


# All files in a place that is not the service's.
CLOSED = Refusal(READ_ONLY, ("ProtectSystem=no",))
# What is writable under ProtectSystem=strict.
NAMED = Refusal(READ_ONLY, ("ReadOnlyPaths=",))
HOME = Refusal(DENIED, ("ProtectHome=no", "ProtectSystem=no"))
PROGRAM = Refusal(DENIED, ("NoExecPaths=",))
# What the kernel refuses without the sandbox, too, because it takes a capability, or is not there.
# That the sandbox does so before shows by the error, which this makes another one.
FILTERED = Refusal(NOT_PERMITTED, ("SystemCallErrorNumber=EUSERS",), "Too many users")

ALLOWED = {"write in /etc/tovrel", "read the password of the broker", "local socket",
           "internet socket", "internet socket 6"}
REFUSED = {
    "write in /etc/open": CLOSED,
    "write in /etc/norq/open": CLOSED,
    "write in /usr/lib/open": CLOSED,
    "write in /var/lib/open": CLOSED,
    "write in /run/open": NAMED,
    "write in /dev/shm": NAMED,
    "write in /dev/mqueue": NAMED,
    "write in /tmp": NAMED,
    "write in /var/tmp": NAMED,
    "write in /root": HOME,
    "write in /home": HOME,
    # It belongs to root, who needs no capability to read it.
    "read the passwords of users": Refusal(DENIED, ("User=root", "Group=root")),
    "look at the first process": Refusal(NOT_THERE, ("ProtectProc=default",)),
    "look at the kernel": Refusal(NOT_THERE, ("ProcSubset=all",)),
    "look at the kernel's modules": Refusal(DENIED, ("ProtectKernelModules=no",)),
    "open a device": Refusal(NOT_THERE, ("PrivateDevices=no",)),
    "read the kernel's log": Refusal(NOT_THERE, ("PrivateDevices=no", "ProtectKernelLogs=no")),
    "run /bin/true": PROGRAM,
    "run /bin/sh": PROGRAM,
    "run /usr/bin/busctl": PROGRAM,
    "raw socket": Refusal(NOT_PERMITTED, privileged("CAP_NET_RAW")),
    "netlink socket": Refusal(NO_FAMILY, ("RestrictAddressFamilies=",)),
    "packet socket": Refusal(NO_FAMILY, privileged("CAP_NET_RAW", "RestrictAddressFamilies=")),
    "memory to write and run": Refusal(NOT_PERMITTED, ("MemoryDenyWriteExecute=no",)),
    "new user namespace": Refusal(NOT_PERMITTED, ("RestrictNamespaces=no",)),
    "new mount namespace": Refusal(NOT_PERMITTED, privileged("CAP_SYS_ADMIN",
                                                             "RestrictNamespaces=no")),
    "mount": Refusal(NOT_PERMITTED, privileged("CAP_SYS_ADMIN", "SystemCallFilter=")),
    "set-user-id file": Refusal(NOT_PERMITTED, ("RestrictSUIDSGID=no",)),
    "host name": Refusal(NOT_PERMITTED, privileged("CAP_SYS_ADMIN", "SystemCallFilter=",
                                                   "ProtectHostname=no")),
    "become root": Refusal(NOT_PERMITTED, privileged("CAP_SETUID", "SystemCallFilter=")),
    "real time": FILTERED,
    "clock": FILTERED,
    "load a module": FILTERED,
    "ask for the kernel's log": FILTERED,
}
# What takes a capability stays refused by other settings, should the service ever have that.
RIGHTS = {
    "packet socket": "CAP_NET_RAW",
    "new mount namespace": "CAP_SYS_ADMIN",
    "mount": "CAP_SYS_ADMIN",
    "host name": "CAP_SYS_ADMIN",
    "become root": "CAP_SETUID",
    "real time": "CAP_SYS_NICE",
}


class Sandbox:
    """
    Runs the probe in the service's place, with what it tries to reach laid out. The probe lies over
    the service's program and is started by the same unit: what is set for it says no more than that
    it owns no name on the bus.
    """

    def __init__(self, guest, service):
        self.guest = guest
        self.service = service
        self.answers = {}

    def prepare(self):
        self.service.forget_everything()
        self.guest.run("systemctl", "mask", "--runtime", "tovrel-resume.service")
        self.guest.shell("umask 027; printf '[broker]\\nhost=localhost\\n' >/etc/norq/mqtt.conf"
                         " && chgrp norq /etc/norq/mqtt.conf")
        self.guest.run("mkdir", "-p", "/usr/lib/modules")
        self.guest.run("mkdir", *OPEN_FOLDERS)
        self.guest.run("chmod", "777", *OPEN_FOLDERS, *HOMES)
        self.guest.run("touch", *OPEN_FILES)
        self.guest.run("chmod", "666", *OPEN_FILES)
        self.guest.run("mkdir", "-p", DROP_INS)

    def clean_up(self):
        self.service.stop()
        self.guest.run("rm", "-rf", DROP_INS, ANSWERS, "/etc/norq/mqtt.conf", *OPEN_FILES)
        self.guest.run("rmdir", *OPEN_FOLDERS)
        self.guest.run("chmod", "755", *HOMES)
        self.guest.run("systemctl", "unmask", "--runtime", "tovrel-resume.service")
        self.guest.run("systemctl", "daemon-reload")

    def probe(self, *settings):
        """The answer to each try in the unit, with these settings behind its own."""
        if settings not in self.answers:
            self.answers[settings] = self.run_probe(settings)
        return self.answers[settings]

    def run_probe(self, settings):
        lines = ["[Service]", "Type=exec", "Restart=no", "ExecStart=",
                 "ExecStart=/usr/libexec/tovrel /etc/tovrel", f"StandardOutput=truncate:{ANSWERS}",
                 f"BindReadOnlyPaths={PROBE}:/usr/libexec/tovrel", *settings]
        text = shlex.quote("\n".join(lines))
        self.guest.shell(f"echo {text} >{DROP_INS}/probe.conf && systemctl daemon-reload")
        self.service.start()
        wait_until(lambda: self.service.state() in ("inactive", "failed"), "the probe has ended",
                   END_SECONDS)
        answers = self.guest.run("cat", ANSWERS)
        assert self.service.show("Result") == "success", answers
        return dict(line.rsplit(": ", 1) for line in answers.splitlines())
