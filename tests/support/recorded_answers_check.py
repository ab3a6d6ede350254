#!/usr/bin/python3
"""Checks the form of every answer that test programs have recorded, and of the requests.

Usage: recorded_answers_check.py LEAST PROGRAM...

The record of a program is the folder PROGRAM.answers, one file a test (answer_record.cpp). LEAST is
how many answers there have to be in all, so that a record that is not kept any more is noticed.
"""

import sys
from pathlib import Path

from configuration_api import Form, WrongForm, check_that_wrong_ones_are_refused


def exchanges_in(record):
    """The requests and answers of a file, as bytes."""
    with record.open("rb") as file:
        for line in file:
            request, answer = (file.read(int(length) + 1)[:-1] for length in line.split())
            yield request, answer


def records_of(program):
    """A program's records. One that an older build of the program has left is removed."""
    built = program.stat().st_mtime
    for record in sorted(Path(f"{program}.answers").glob("*")):
        if record.stat().st_mtime < built:
            record.unlink()
        else:
            yield record


def check(form, record):
    count = 0
    for request, answer in exchanges_in(record):
        try:
            form.check(request, answer)
        except WrongForm as finding:
            sys.exit(f"{record}: {finding}")
        count += 1
    return count


def main():
    least, *programs = sys.argv[1:]
    form = Form()
    check_that_wrong_ones_are_refused(form)
    counts = {program: sum(check(form, record) for record in records_of(Path(program)))
              for program in programs}
    for program, count in counts.items():
        print(f"{count} answers of {Path(program).name} have the form that the schemas give them")
    if sum(counts.values()) < int(least) or 0 in counts.values():
        sys.exit(f"at least {least} answers have to be there, some of each program")


if __name__ == "__main__":
    main()
