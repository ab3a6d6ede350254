"""What a disk may hold after a power cut."""

import pytest
from disks import chance, contents, sector
from power_cuts import PREFIX, SUBSET, TORN, Disk, ignore_flushes, part_of, states_at_cut
from write_log import SECTOR, Flush, Mark, Write

SECTORS = 6
MANY = 200


def disk_after(*entries):
    disk = Disk(bytes(SECTORS * SECTOR))
    for entry in entries:
        disk.take(entry)
    return disk


def write(number, letters, fua=False):
    return Write(number, b"".join(map(sector, letters)), fua)


def possible(disk, following=None):
    """By kind, all that many random tries come up with."""
    found = {PREFIX: set(), SUBSET: set(), TORN: set()}
    for state in states_at_cut(disk, following, chance(), subsets=MANY, torn=MANY):
        found[state.kind].add(contents(state))
    return found


def test_of_unflushed_writes_any_may_be_lost():
    disk = disk_after(write(0, "a"), write(1, "b"))
    assert possible(disk) == {PREFIX: {"ab...."}, TORN: set(),
                              SUBSET: {"......", "a.....", ".b....", "ab...."}}


def test_what_a_flush_covers_is_never_lost():
    disk = disk_after(write(0, "a"), Flush(), write(1, "b"))
    assert possible(disk)[SUBSET] == {"a.....", "ab...."}


def test_behind_a_flush_there_is_nothing_to_lose():
    assert possible(disk_after(write(0, "a"), Flush())) == {
        PREFIX: {"a....."}, SUBSET: set(), TORN: set()}


def test_a_flush_does_not_cover_what_comes_after_it():
    disk = disk_after(Flush(), write(0, "a"))
    assert "......" in possible(disk)[SUBSET]


def test_a_write_with_fua_is_never_lost_and_keeps_no_other():
    disk = disk_after(write(0, "a"), write(1, "b", fua=True))
    assert possible(disk)[SUBSET] == {".b....", "ab...."}


def test_what_a_write_with_fua_replaces_does_not_come_back():
    disk = disk_after(write(0, "ab"), write(1, "c", fua=True))
    assert possible(disk)[SUBSET] == {".c....", "ac...."}
    disk.take(Flush())
    assert possible(disk)[PREFIX] == {"ac...."}


def test_of_two_writes_to_a_place_the_later_one_stays():
    disk = disk_after(write(0, "a"), write(0, "b"))
    assert possible(disk)[PREFIX] == {"b....."}
    assert possible(disk)[SUBSET] == {"......", "a.....", "b....."}


def test_a_write_under_way_comes_through_in_part():
    disk = disk_after(write(4, "x"), Flush())
    found = possible(disk, write(0, "abc"))
    assert found[TORN] == {"a...x.", ".b..x.", "ab..x.", ".bc.x.", "a.c.x.", "..c.x."}
    assert found[PREFIX] == {"....x."}


def test_beside_a_torn_write_others_may_be_lost():
    disk = disk_after(write(4, "x"))
    found = possible(disk, write(0, "ab"))[TORN]
    assert found == {"a...x.", ".b..x.", "a.....", ".b...."}


def test_an_unflushed_write_may_have_come_through_in_part():
    assert possible(disk_after(write(0, "ab"), write(4, "x")))[TORN] == {
        "a...x.", ".b..x.", "a.....", ".b...."}
    assert not possible(disk_after(write(0, "ab"), Flush()))[TORN]


def test_a_write_of_one_sector_is_not_torn():
    assert not possible(disk_after(), write(0, "a"))[TORN]


def test_the_superblock_of_the_file_system_is_not_torn():
    sectors = write(0, "abcdef").sectors()
    parts = {tuple(part_of(sectors, chance_of)) for chance_of in [chance()] for _ in range(MANY)}
    assert (2, 3) in {part[:2] for part in parts}
    assert all((2 in part) == (3 in part) for part in parts)


def test_states_are_told_apart_by_their_content_alone():
    flushed = disk_after(write(0, "a"), Flush())
    pending = disk_after(write(0, "b"), write(0, "a"))
    assert flushed.state(PREFIX, []).digest == pending.state(PREFIX, pending.pending).digest
    assert flushed.digest != pending.state(PREFIX, []).digest
    assert disk_after(write(0, "ab"), Flush()).digest != disk_after(write(0, "ba"), Flush()).digest
    back = disk_after(write(0, "a"), Flush(), write(0, "\0"), Flush())
    assert back.digest == disk_after().digest


@pytest.mark.parametrize("flushed", [True, False])
def test_an_image_has_the_whole_content(tmp_path, flushed):
    disk = disk_after(write(0, "ab"), *[Flush()] * flushed, write(5, "c"))
    disk.state(PREFIX, disk.pending).write_to(tmp_path / "image")
    assert (tmp_path / "image").read_bytes() == b"".join(map(sector, "ab\0\0\0c"))


def test_a_lying_disk_keeps_what_it_has_promised_only_with_the_next_mark():
    done = Mark(("done", "1"))
    entries = [write(0, "a"), Flush(), write(1, "b"), done, write(2, "c")]
    assert list(ignore_flushes(entries)) == [
        entries[0], entries[2], Flush(), done, entries[4]]
