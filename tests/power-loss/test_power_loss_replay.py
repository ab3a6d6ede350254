"""The whole way from a log of writes to what is wrong with the files, on a file system that is real."""

import pytest
from configuration_files import ITEMS, parse
from disks import change_file_system, make_file_system
from judge import BROKEN, LOST, STALE, TORN
from plan import Save
from power_cuts import PREFIX, SUBSET
from power_cuts import TORN as TORN_WRITE
from replay import Effort, Finding, Judged, replay
from write_log import SECTOR, Flush, Mark, Write

FIRST, SECOND = (f"0\n{letter * 20000}\n0\n0\n0\n".encode() for letter in "ab")
LIVES = [[Save(number, ITEMS, "", parse(ITEMS, text)) for number, text in enumerate([FIRST, SECOND])]]


@pytest.fixture(name="images")
def three_images(tmp_path):
    """A disk with an empty folder, then with the first file in it, then with the second."""
    image, images = tmp_path / "image", []
    make_file_system(image, "/life-0")
    for text in (None, FIRST, SECOND):
        if text:
            (tmp_path / "text").write_bytes(text)
            removal = ["rm " + ITEMS] if len(images) > 1 else []
            change_file_system(image, "cd /life-0", *removal, f"write {tmp_path / 'text'} {ITEMS}")
        images.append(image.read_bytes())
    return images


def mark(text):
    return Mark(tuple(text.split()))


def writes_between(before, after):
    """The one write that turns an image into another: whole or not at all, as by a journal."""
    changed = [offset for offset in range(0, len(before), SECTOR)
               if before[offset:offset + SECTOR] != after[offset:offset + SECTOR]]
    begin, end = changed[0], changed[-1] + SECTOR
    return Write(begin // SECTOR, after[begin:end])


def wrong(base, *entries, torn=0):
    """What is wrong, with the kind of state that shows it."""
    judged = replay(base, [mark("life 0"), *entries], LIVES, Effort("a test", subsets=4, torn=torn),
                    workers=2)
    assert judged
    return {(each.state_kind, each.kind) for state in judged.values() for each in state.findings}


def test_flushed_saves_survive(images):
    first, second = writes_between(*images[:2]), writes_between(*images[1:])
    assert not wrong(images[0], mark("begin 0"), first, Flush(), mark("done 0"),
                     mark("begin 1"), second, Flush(), mark("done 1"))


def test_a_first_save_that_was_not_flushed_is_lost(images):
    first = writes_between(*images[:2])
    assert wrong(images[0], mark("begin 0"), first, mark("done 0")) == {(SUBSET, LOST)}


def test_a_later_save_that_was_not_flushed_is_stale(images):
    first, second = writes_between(*images[:2]), writes_between(*images[1:])
    assert wrong(images[0], mark("begin 0"), first, Flush(), mark("done 0"),
                 mark("begin 1"), second, mark("done 1")) == {(SUBSET, STALE)}


def test_a_file_whose_data_came_through_in_part_is_torn(images):
    first = writes_between(*images[:2])
    position = first.data.index(b"a" * SECTOR)
    position += -position % SECTOR
    damaged = Write(first.sector, first.data[:position] + bytes(SECTOR)
                    + first.data[position + SECTOR:])
    assert TORN in {kind for _, kind in wrong(images[0], mark("begin 0"), damaged, Flush())}


def test_a_file_system_that_nobody_can_mount_is_a_violation(images):
    destroyed = Write(0, bytes(8 * SECTOR))
    found = wrong(images[0], mark("begin 0"), mark("done 0"), destroyed, Flush())
    assert (PREFIX, BROKEN) in found


def test_a_content_counts_as_the_simplest_kind_of_state_and_keeps_what_was_found_of_any():
    finding = Finding(7, TORN_WRITE, TORN, "")
    torn = Judged(7, TORN_WRITE, ITEMS, frozenset([finding]))
    whole = Judged(8, PREFIX, ITEMS, frozenset())
    assert torn.merged(whole) == whole.merged(torn) == Judged(8, PREFIX, ITEMS, {finding})
