"""
The guest: a virtual machine that runs the service on a disk whose writes are logged.

It has a kernel of the distribution and, as its root, an archive of just the programs that the
service needs, taken from this machine and the build tree. Always emulated, so that it runs anywhere
and as slowly as anywhere.
"""

import re
import shutil
import subprocess
from dataclasses import dataclass
from pathlib import Path

from commands import PATH, run

SOURCES = Path(__file__).parent
PROJECT = SOURCES.parents[1]
MODULES = ("virtio_pci", "virtio_scsi", "sd_mod", "crc32c_intel")
TOOLS = ("busybox", "dbus-daemon", "dbus-send", "mosquitto")
MEBIBYTE = 1 << 20
FILE_SYSTEM_SIZE = 32 * MEBIBYTE
DISK_SIZE = FILE_SYSTEM_SIZE + MEBIBYTE
DONE = "power-loss: done"


class GuestFailed(Exception):
    """The guest did not come to its end; the text is what it said last."""


@dataclass(frozen=True)
class Kernel:
    """A kernel package's content, unpacked to a folder."""

    root: Path

    @property
    def image(self):
        return next((self.root / "boot").glob("vmlinuz-*"))

    def modules(self):
        """The files of the MODULES and of what they stand on, in the order of their loading."""
        version = self.image.name.removeprefix("vmlinuz-")
        run("depmod", "-b", self.root, version)
        files = []
        for module in MODULES:
            told = run("modprobe", "-d", self.root, "-S", version, "--show-depends", module).stdout
            files += [Path(line.split()[1]) for line in told.splitlines()
                      if line.startswith("insmod ")]
        return list(dict.fromkeys(files))


class Root:
    """The archive that becomes the guest's root, as a folder while it is put together."""

    def __init__(self, folder):
        self.folder = folder
        shutil.rmtree(folder, ignore_errors=True)

    def write(self, path, text, mode=0o644):
        target = self.folder / path.lstrip("/")
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_text(text, encoding="utf-8")
        target.chmod(mode)

    def copy(self, source, path=None):
        target = self.folder / str(path or source).lstrip("/")
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(source, target)

    def copy_program(self, source, path=None):
        """With its libraries, which stay where they are."""
        self.copy(source, path)
        # It fails for a program that needs none.
        for library in re.findall(r"(/\S+) \(0x", run("ldd", source, check=False).stdout):
            self.copy(library)

    def pack(self, archive):
        names = run("find", self.folder, "-mindepth", "1", "-printf", "%P\\0").stdout
        run("cpio", "--null", "--create", "--quiet", "--format=newc", "--owner=0:0", "--file",
            archive, cwd=self.folder, input=names)


def make_root(folder, build, kernel, lives):
    """The archive of a guest that goes through these lives, texts by name; its file."""
    root = Root(folder)
    (folder / "bin").mkdir(parents=True)
    for tool in TOOLS:
        path = shutil.which(tool, path=PATH)
        if path is None:
            raise FileNotFoundError(f"the program {tool} is not installed")
        root.copy_program(path, f"/bin/{tool}")
    programs = {"TOVREL": build / "src/core/tovrel",
                "EVENTD": build / "platform/event/norq-eventd",
                "DEVICED": build / "platform/device/norq-deviced",
                "CLIENT": build / "tests/power-loss/power_loss_guest_client"}
    for program in programs.values():
        root.copy_program(program)
    root.copy(build / "tests/power-loss/libpower_loss_skip_fsync.so", "/lib/skip_fsync.so")
    root.write("/etc/programs", "".join(f"{name}={path}\n" for name, path in programs.items()))
    for module in (modules := kernel.modules()):
        root.copy(module, f"/modules/{module.name}")
    root.write("/etc/modules", "".join(f"/modules/{module.name}\n" for module in modules))
    write_settings(root, programs["TOVREL"])
    for name, text in lives.items():
        root.write(f"/lives/{name}", text)
    root.copy(SOURCES / "guest_init", "/init")
    archive = folder.with_suffix(".cpio")
    root.pack(archive)
    return archive


def write_settings(root, service):
    """What the programs read; the bus is that of the sandbox."""
    root.write("/etc/passwd", "root:x:0:0:root:/:/bin/sh\n")
    root.write("/etc/group", "root:x:0:\n")
    root.write("/etc/machine-id", "0123456789abcdef0123456789abcdef\n")
    root.write("/etc/norq/mqtt.conf", "[broker]\nhost=127.0.0.1\nport=1883\n")
    root.write("/etc/mosquitto.conf", "listener 1883 127.0.0.1\nuser root\nallow_anonymous true\n")
    bus = (PROJECT / "scripts/lib/sandbox-bus.conf").read_text(encoding="utf-8")
    root.write("/etc/bus.conf", bus.replace("/run/sandbox/", "/etc/bus/"))
    for template in [*PROJECT.glob("data/*.conf*"), *PROJECT.glob("platform/*/com.*.conf*")]:
        root.copy(template, f"/etc/bus/system.d/{template.name.removesuffix('.in')}")
    template = (PROJECT / "data/com.norq.Tovrel1.service.in").read_text(encoding="utf-8")
    root.write("/etc/bus/system-services/com.norq.Tovrel1.service",
               template.replace("@CMAKE_INSTALL_FULL_LIBEXECDIR@", "/libexec"))
    root.write("/libexec/tovrel", f"""#!/bin/sh
exec </dev/null >>/run/tovrel.log 2>&1
echo $$ >/run/tovrel.pid
[ -z "$POWER_LOSS_SKIP" ] || export LD_PRELOAD=/lib/skip_fsync.so
exec {service}
""", 0o755)


def make_disk(path):
    """A disk with an empty file system, made and to be mounted as usual, and room for the marks."""
    with open(path, "wb") as disk:
        disk.truncate(DISK_SIZE)
    run("mke2fs", "-q", "-F", "-t", "ext4", "-b", "4096", path, str(FILE_SYSTEM_SIZE // 4096))


def boot(kernel, archive, disk, log, console, seconds, skip=""):
    """
    Runs the guest to its end, which must come within so many seconds. The disk takes one request at
    a time, as the log assumes. What is to be skipped is the service's flush of "folder" or "file".
    """
    log.write_bytes(b"")
    parameters = f"console=ttyS0 quiet panic=-1 POWER_LOSS_MARKS={FILE_SYSTEM_SIZE}"
    if skip:
        parameters += f" POWER_LOSS_SKIP={skip}"
    # Whatever ends this program, the machine does not stay behind.
    command = [
        "setpriv", "--pdeathsig", "KILL",
        "qemu-system-x86_64", "-accel", "tcg", "-machine", "q35", "-cpu", "max", "-m", "512",
        "-nodefaults", "-display", "none", "-no-reboot", "-serial", f"file:{console}",
        "-kernel", kernel.image, "-initrd", archive, "-append", parameters,
        "-blockdev", f"driver=file,filename={disk},node-name=disk-file",
        "-blockdev", "driver=raw,file=disk-file,node-name=disk",
        "-blockdev", f"driver=file,filename={log},node-name=log-file",
        "-blockdev", "driver=raw,file=log-file,node-name=log",
        "-blockdev", "driver=blklogwrites,file=disk,log=log,log-sector-size=512,node-name=logged",
        "-device", "virtio-scsi-pci,cmd_per_lun=1,num_queues=1",
        "-device", "scsi-hd,drive=logged,write-cache=on"]
    try:
        subprocess.run(command, check=True, stdin=subprocess.DEVNULL, timeout=seconds)
    except subprocess.TimeoutExpired as error:
        raise GuestFailed(f"It did not end in {seconds} s.\n{text_of(console)}") from error
    said = text_of(console)
    if not any(line.startswith(DONE) for line in said.splitlines()):
        raise GuestFailed(said[-4000:])


def text_of(console):
    return console.read_text(encoding="utf-8", errors="replace")
