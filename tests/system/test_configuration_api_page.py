"""What docs/configuration-api.md says of tovrel's own document, tried on the running service."""

import subprocess

from bridge import ITEMS, kill_service, set_device_topic_prefix
from configuration_api import PAGE, checked_answer, examples_in
from publishing import PUBLICATION
from test_configuration_api import answer_text_to, done, export, failed
from waiting import DEADLINE_SECONDS

REPLACE = {"importType": "replace"}


def printed_by(commands):
    return subprocess.run(["bash", "-euo", "pipefail", "-c", commands], check=True, text=True,
                          stdout=subprocess.PIPE, timeout=2 * DEADLINE_SECONDS).stdout


def test_every_example_is_true_word_for_word():
    set_device_topic_prefix("site/device")
    definitions = ""
    executed = {"json": 0, "console": 0}
    for kind, request, told in examples_in(PAGE, "tovrel"):
        executed[kind] += 1
        if kind == "json":
            answer = answer_text_to(request)
            assert answer == told, request
            checked_answer(request, answer)
        elif told:
            assert printed_by(definitions + request) == told, request
        else:  # a command that prints nothing defines what later ones call
            definitions += request + "\n"
    assert executed["json"] >= 40 and executed["console"] >= 5


def add(*path, topic_filter):
    """The id and topic filter of the answer."""
    item = done("add", *path, data={"topicFilter": topic_filter})
    return item["id"], item["topicFilter"]


def test_an_import_of_event_filters_does_not_take_their_ids():
    done("import", data={"subscription": [{"id": "0", "topicFilter": "a"}],
                         "publication": {"eventFilter": [{"id": "0", "topicFilter": "onvif:A"}]}})
    assert add("subscription", topic_filter="b") == ("1", "b")
    assert add("publication", "eventFilter", topic_filter="onvif:B") == ("0", "onvif:A")
    assert add("publication", "eventFilter", topic_filter="onvif:B") == ("1", "onvif:B")


def test_a_failed_replacing_import_is_forgotten_by_a_restart():
    add("subscription", topic_filter="a")
    before = export()
    assert failed("import", data={"subscription": [{"id": "256"}]}, options=REPLACE) == (
        0, "Cannot import MQTT to event config - internal error")
    assert export()["subscription"] == []
    kill_service()
    assert export() == before


def test_wrong_data_of_a_replacing_import_resets_nothing():
    add("subscription", topic_filter="a")
    before = export()
    assert failed("import", data={"subscription": [{}]}, options=REPLACE)[0] == 5
    assert failed("import", data={"publication": {"topicPrefix": ""}}, options=REPLACE)[0] == 5
    assert export() == before


def test_a_filter_whose_id_is_no_number_is_back_after_a_restart_when_removed():
    path = "publication", "eventFilter", "x"
    done("import", data={"publication": {"eventFilter": [{"id": "x"}]}})
    assert failed("remove", *path) == (0, "Cannot remove item - internal error.")
    assert failed("get", *path) == (2, "Cannot get item - it does not exist.")
    kill_service()
    assert done("get", *path)["id"] == "x"


def test_what_could_not_be_saved_is_forgotten_by_a_restart():
    add("subscription", topic_filter="a")
    add("publication", "eventFilter", topic_filter="onvif:A")
    before = export()
    saved = {path: path.read_bytes() for path in (ITEMS, PUBLICATION)}
    for path in saved:
        path.unlink()
        path.mkdir()
    assert failed("set", "subscription", "0", data={"topicFilter": "b"}) == (
        0, "Cannot get item - internal error")
    assert done("get", "subscription", "0")["topicFilter"] == "b"
    assert done("set", "publication", data={"topicPrefix": "none"}) is None
    assert done("get", "publication")["topicPrefix"] == "none"
    assert add("publication", "eventFilter", topic_filter="onvif:B") == ("1", "onvif:B")
    assert done("remove", "publication", "eventFilter", "0") is None
    for path, contents in saved.items():
        path.rmdir()
        path.write_bytes(contents)
    kill_service()
    assert export() == before
