"""Every line of docs/delivery.md has a test that bears its number, and no test one that is not there."""

import re
from pathlib import Path

SOURCES = Path(__file__).parents[2]
# "def test_e3_events_wait" and "TEST_F(Fixture, E10AnEvent", the latter perhaps over two lines.
PYTHON_CASE = re.compile(r"^def test_([em]\d+)_", re.MULTILINE)
CPP_CASE = re.compile(r"^TEST(?:_F|_P)?\(\w+,\s*([EM]\d+)[A-Z]", re.MULTILINE)


def numbers_in(pattern, *folders, suffix):
    return {found.upper()
            for folder in folders
            for file in (SOURCES / "tests" / folder).rglob(f"*{suffix}")
            for found in pattern.findall(file.read_text(encoding="utf-8"))}


def promised():
    page = (SOURCES / "docs" / "delivery.md").read_text(encoding="utf-8")
    return re.findall(r"^\| ([EM]\d+) \|", page, re.MULTILINE)


def numbers_of_tests():
    return (numbers_in(PYTHON_CASE, "system", suffix=".py") |
            numbers_in(CPP_CASE, "unit", "platform", suffix=".cpp"))


def test_every_line_has_a_number_of_its_own():
    lines = promised()
    assert lines
    assert len(lines) == len(set(lines))


def test_every_line_has_a_test():
    assert set(promised()) - numbers_of_tests() == set()


def test_no_test_names_a_line_that_is_not_there():
    assert numbers_of_tests() - set(promised()) == set()
