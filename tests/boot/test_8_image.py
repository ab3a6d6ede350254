"""The package goes into a folder that becomes a device's system elsewhere, and out of it again."""

import pytest

IMAGE = "/root/image"
DPKG = ("dpkg", f"--root={IMAGE}", "--force-script-chrootless", "--force-depends")


@pytest.fixture(name="image", scope="module")
def folder_of_a_system(guest):
    """With a list of packages, an empty one, and no program that could be run."""
    guest.shell(f"mkdir -p {IMAGE}/var/lib/dpkg {IMAGE}/etc && : >{IMAGE}/var/lib/dpkg/status")
    yield IMAGE
    guest.run("rm", "-r", IMAGE)


def test_the_package_makes_users_and_folders_of_the_image(guest, image):
    assert guest.shell("ls -d /etc/tovrel /usr/libexec/tovrel 2>/dev/null || true") == ""
    guest.shell(" ".join(DPKG) + " --install packages/tovrel_*.deb")
    users = dict(line.split(":")[0:3:2] for line in
                 guest.run("cat", f"{image}/etc/passwd").splitlines())
    assert set(users) == {"norq", "tovrel"}
    group = guest.shell(f"grep ^tovrel: {image}/etc/group").split(":")[2]
    assert guest.run("stat", "--format=%a %u:%g", f"{image}/etc/tovrel").strip() == (
        f"750 {users['tovrel']}:{group}")
    assert guest.run("ls", f"{image}/etc/systemd/system/multi-user.target.wants").split() == [
        "norq-deviced.service", "norq-eventd.service", "tovrel.service"]


def test_nothing_of_the_package_comes_to_this_system(guest):
    assert guest.shell("ls -d /etc/tovrel /usr/libexec/tovrel 2>/dev/null || true") == ""
    assert guest.run("systemctl", "list-units", "--all", "--no-legend", "tovrel*", "norq*") == ""


def test_a_purge_there_removes_nothing_here(guest, image):
    guest.run("mkdir", "-p", "/etc/tovrel", "/etc/norq", "/run/tovrel-resume")
    ours = [f"{folder}/etc/tovrel/subscriptions_v2.conf" for folder in ("", image)]
    settings = [f"{folder}/etc/norq/mqtt.conf" for folder in ("", image)]
    guest.run("touch", *ours, *settings)
    guest.run(*DPKG, "--purge", "tovrel")
    assert guest.shell(f"find {image}/etc {image}/run {image}/usr -name '*tovrel*' -o -name '*norq*'"
                       " 2>/dev/null || true") == ""
    guest.run("ls", ours[0], settings[0], "/run/tovrel-resume")
    guest.run("rm", "-r", "/etc/tovrel", settings[0], "/run/tovrel-resume")
