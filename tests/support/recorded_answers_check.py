#!/usr/bin/python3
"""Checks all answers that test programs have recorded, and the requests that they answer.

Usage: recorded_answers_check.py PROGRAM LEAST [PROGRAM LEAST...]

The record of a PROGRAM is the folder PROGRAM.answers, one file a test (answer_record.cpp). LEAST is
how many answers there have to be, so that a record that is not kept any more is noticed. The first
program is the one in which the service's own handlers answer.

Requests and answers have to be as the page and its schemas define them. What is more, every error of
the service's own handlers has to be in a table of the page, and every error in a table has to have
been answered, here or in an example of the page, which other tests execute. Exempt are what tests
let the library say in the former case, and defects of the service in the latter.
"""

import json
import sys
from pathlib import Path

from configuration_api import (PAGE, Form, WrongForm, check_documented,
                               check_that_wrong_ones_are_refused, documented_errors, examples_in)


SCRIPTED_FAILURE = b'"message":"scripted failure"'


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


def answers_of(program, form):
    """All answers in a program's records, each of which fits its request."""
    answers = []
    for record in records_of(program):
        for request, answer in exchanges_in(record):
            try:
                form.check(request, answer)
            except WrongForm as finding:
                raise WrongForm(f"{record.name}: {finding}") from finding
            answers.append(answer)
    return answers


def check_documented_errors(answers):
    """Raises WrongForm when the page has an error that is in none of the answers."""
    errors = [document["error"] for document in map(json.loads, answers) if "error" in document]
    unseen = sorted({f"{each.code} {each.message}" for each in documented_errors()
                     if not each.is_defect and not any(map(each.covers, errors))})
    if unseen:
        raise WrongForm("\n".join(["the page has errors that no test gets:", *unseen]))


def main():
    programs = {Path(program): int(least) for program, least in zip(sys.argv[1::2], sys.argv[2::2])}
    form = Form()
    check_that_wrong_ones_are_refused(form)
    answers = {program: answers_of(program, form) for program in programs}
    for program, least in programs.items():
        print(f"{len(answers[program])} answers of {program.name}")
        if len(answers[program]) < least:
            raise WrongForm(f"at least {least} answers of {program.name} have to be there")
    for answer in answers[next(iter(programs))]:
        if SCRIPTED_FAILURE not in answer:
            check_documented(answer)
    check_documented_errors(sum(answers.values(), [])
                            + [answer for api in ("greenhouse", "tovrel")
                               for kind, _, answer in examples_in(PAGE, api) if kind == "json"])


if __name__ == "__main__":
    try:
        main()
    except WrongForm as finding:
        sys.exit(str(finding))
