"""What counts as a torn, a lost and a stale configuration."""

import pytest
from configuration_files import ITEMS, PUBLICATION, NotWhole, parse
from judge import LOST, STALE, STRAY, TORN, Progress, look_at, violations_at
from plan import Save, make_lives

TEXT = {number: f"0\ntopic/{number}\n0\n0\n0\n".encode() for number in (0, 1, 2)}
GROUPS = b"\n[common]\nappendEventTopic=true\n\n[0]\ntopicFilter=a=b\nqos=1\n"
LIFE = [Save(number, ITEMS, "", parse(ITEMS, text)) for number, text in TEXT.items()]
SAVED = ("begin 0", "done 0", "begin 1", "done 1")


def kinds(marks, **folder):
    """What is wrong with a folder when the guest has come to the last of these marks."""
    progress = Progress([LIFE])
    for mark in ("life 0", *marks):
        progress.take(tuple(mark.split()))
    names = {"items": ITEMS, "publication": PUBLICATION}
    found = look_at(LIFE, {names.get(name, name): content for name, content in folder.items()})
    return [violation.kind for violation in violations_at(progress, found)]


def test_before_the_first_save_there_may_be_nothing():
    assert not kinds([])
    assert not kinds(["begin 0"])


def test_a_save_under_way_may_be_there_or_not():
    assert not kinds(["begin 0"], items=TEXT[0])
    assert not kinds([*SAVED, "begin 2"], items=TEXT[1])
    assert not kinds([*SAVED, "begin 2"], items=TEXT[2])


def test_after_an_acknowledged_save_it_must_be_there():
    assert not kinds(SAVED, items=TEXT[1])
    assert kinds(SAVED, items=TEXT[0]) == [STALE]
    assert kinds(SAVED) == [LOST]


def test_a_save_under_way_does_not_excuse_the_loss_of_the_one_before():
    assert kinds([*SAVED, "begin 2"], items=TEXT[0]) == [STALE]
    assert kinds([*SAVED, "begin 2"]) == [LOST]


@pytest.mark.parametrize("content", [
    b"", b"\n", bytes(4096), TEXT[1][:-1], TEXT[1][:-2], TEXT[1] + b"1\n", TEXT[1] + b"\0",
    TEXT[1][:8] + bytes(8) + TEXT[1][16:], b"\xff" + TEXT[1], TEXT[0] + TEXT[1],
    TEXT[1].replace(b"topic/1", b"topic/7")])
def test_any_content_that_was_never_saved_is_torn(content):
    assert kinds([*SAVED, "begin 2"], items=content) == [TORN]


def test_a_save_that_had_not_begun_is_none():
    assert kinds(SAVED, items=TEXT[2]) == [TORN]


def test_temporary_files_may_lie_about_and_nothing_else():
    assert not kinds([], **{f".{ITEMS}.norq-0123456789abcdef": None})
    assert kinds([], **{f".{ITEMS}.norq-0123456789abcde": None}) == [STRAY]
    assert kinds([], **{".other.norq-0123456789abcdef": None}) == [STRAY]


def test_a_key_file_is_read_group_by_group():
    assert parse(PUBLICATION, GROUPS) == {"common": {"appendEventTopic": "true"},
                                          "0": {"topicFilter": "a=b", "qos": "1"}}


@pytest.mark.parametrize("content", [
    b"", GROUPS[:-1], GROUPS + b"[0]\n", GROUPS + b"qos=1\n", GROUPS + b"word\n", b"key=1\n",
    GROUPS + bytes(16) + b"\n"])
def test_a_key_file_that_is_not_whole_is_none(content):
    with pytest.raises(NotWhole):
        parse(PUBLICATION, content)


def test_marks_that_cannot_be_are_refused():
    progress = Progress([LIFE])
    progress.take(("life", "0"))
    progress.take(("begin", "0"))
    with pytest.raises(ValueError):
        progress.take(("finished", "0"))


def test_no_two_saves_of_a_plan_leave_the_same_configuration():
    for life in make_lives("a test", lives=3, saves=20):
        seen = [(save.name, repr(save.configuration)) for save in life]
        assert len(seen) == len(set(seen)) == 40


def test_the_same_seed_gives_the_same_plan():
    assert make_lives("a", 2, 5) == make_lives("a", 2, 5)
    assert make_lives("a", 2, 5) != make_lives("b", 2, 5)
