"""What becomes of the service when its folder was deleted."""

import pytest
from service import ITEMS, UNIT

FOLDER = "/etc/tovrel"


@pytest.fixture(name="homeless")
def service_whose_folder_was_deleted(guest, unconfigured):
    guest.run("rm", "-r", FOLDER)
    return unconfigured


def owner_and_mode(guest, path):
    return guest.run("stat", "--format=%a %U:%G", path).strip()


def test_the_folder_is_made_again_before_a_start(guest, homeless):
    homeless.set_items("a/b")
    assert homeless.show("NRestarts") == "0"
    assert owner_and_mode(guest, FOLDER) == "750 tovrel:tovrel"
    assert owner_and_mode(guest, ITEMS) == "640 tovrel:tovrel"
    assert homeless.items() == ["a/b"]


def test_a_folder_that_is_there_is_left_as_it_is(guest, unconfigured):
    guest.run("chmod", "700", FOLDER)
    assert unconfigured.items() == []
    assert owner_and_mode(guest, FOLDER) == "700 tovrel:tovrel"
    guest.run("chmod", "750", FOLDER)


def test_a_service_that_runs_without_its_folder_refuses_changes_until_it_is_restarted(guest,
                                                                                     unconfigured):
    unconfigured.set_items("a/b")
    guest.run("rm", "-r", FOLDER)
    answer = unconfigured.call("com.norq.Tovrel1", "SetMQTTToEventConfig", "a(sbib)", "1", "c/d",
                               "false", "1", "false")
    assert answer == "i -2", "it could not be saved"
    guest.run("systemctl", "restart", UNIT)
    unconfigured.set_items("c/d")
    assert unconfigured.items() == ["c/d"]
    assert owner_and_mode(guest, ITEMS) == "640 tovrel:tovrel"
