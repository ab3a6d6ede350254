"""How the log of a disk's writes is read."""

import pytest
from disks import MARKS_FROM, flush_entry, log_bytes, log_entry, mark_entry, sector
from write_log import FLUSH, FUA, BadLog, Flush, Mark, Write, read_log


def entries_of(tmp_path, content):
    path = tmp_path / "log"
    path.write_bytes(content)
    return read_log(path, MARKS_FROM)


def refusal(tmp_path, content):
    with pytest.raises(BadLog) as caught:
        entries_of(tmp_path, content)
    return str(caught.value)


def test_entries_come_in_their_order(tmp_path):
    content = log_bytes(log_entry(8, sector("a") + sector("b")), flush_entry(),
                        mark_entry("begin 7"), log_entry(9, sector("c"), FUA))
    assert entries_of(tmp_path, content) == [
        Write(8, sector("a") + sector("b")), Flush(), Mark(("begin", "7")),
        Write(9, sector("c"), fua=True)]


def test_a_flush_with_data_comes_before_its_data(tmp_path):
    content = log_bytes(log_entry(8, sector("a"), FLUSH | FUA))
    assert entries_of(tmp_path, content) == [Flush(), Write(8, sector("a"), fua=True)]


def test_what_is_no_whole_log_is_refused(tmp_path):
    whole = log_bytes(log_entry(8, sector("a")))
    assert refusal(tmp_path, b"") == "it has no superblock"
    assert refusal(tmp_path, b"x" * 4096).startswith("unknown superblock")
    assert refusal(tmp_path, whole[:-1]) == "it ends within entry 0"
    assert refusal(tmp_path, whole[:512]) == "it ends before entry 0 of 1"


def test_a_request_that_nobody_can_replay_is_refused(tmp_path):
    discard = log_bytes(log_entry(8, flags=4))
    assert refusal(tmp_path, discard) == "entry 0 has unknown flags 4"


def test_the_file_system_and_the_marks_stay_apart(tmp_path):
    across = log_bytes(log_entry(MARKS_FROM - 1, sector("a") * 2))
    assert refusal(tmp_path, across) == "a write of the file system reaches into the marks"
    behind = log_bytes(log_entry(MARKS_FROM, sector("a")))
    assert refusal(tmp_path, behind).startswith("something else stands where the marks are")
