"""
The root folder of a minimal Debian 12 that boots with systemd, made once and kept.

Beside it is kept what "apt install" of the packages fetches later, so that a guest without any
network installs as a machine with one does.
"""

import platform
import shutil
import subprocess
from pathlib import Path

SYSTEM = ["systemd", "systemd-sysv", "dbus", "libpam-systemd"]
# What a user installs for trying the bridge. The guest gets it by "apt install" as well.
BROKER = ["mosquitto", "mosquitto-clients"]
# Counted up when what is made here changes.
EDITION = "1"


def run(*command, **options):
    return subprocess.run(command, check=True, text=True, stdin=subprocess.DEVNULL, **options)


def mirror(codename):
    """Where this machine gets Debian from."""
    lines = run("apt-get", "indextargets", "--format", "$(REPO_URI) $(RELEASE)",
                "Created-By: Packages", capture_output=True).stdout.splitlines()
    for line in lines:
        uri, release = line.rsplit(" ", 1)
        if release == codename:
            return uri
    raise RuntimeError(f"this machine's apt knows no source of {codename}")


def fetch(root, *packages):
    """Downloads packages with all that they need into the cache of the root's apt."""
    run("chroot", str(root), "apt-get", "-q", "-y", "--download-only", "install", *packages)


def make_base(folder, packages):
    """
    Makes the root unless it is there. `packages` are the files that will be installed: what they
    depend on is fetched. The root's path.
    """
    codename = platform.freedesktop_os_release()["VERSION_CODENAME"]
    base = folder / f"base-{codename}-{EDITION}"
    if not base.exists():
        unfinished = folder / "unfinished"
        shutil.rmtree(unfinished, ignore_errors=True)
        unfinished.mkdir(parents=True)
        run("debootstrap", "--variant=minbase", "--include=" + ",".join(SYSTEM), codename,
            str(unfinished), mirror(codename))
        # What debootstrap leaves in the cache is installed already.
        run("chroot", str(unfinished), "apt-get", "clean")
        unfinished.rename(base)
    staging = base / "root/staging"
    staging.mkdir(exist_ok=True)
    for package in packages:
        shutil.copy(package, staging)
    fetch(base, *BROKER, *(f"/root/staging/{Path(package).name}" for package in packages))
    shutil.rmtree(staging)
    return base
