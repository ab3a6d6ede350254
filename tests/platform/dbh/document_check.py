#!/usr/bin/python3
"""Executes a page's examples of one API word for word and checks the form of all answers.

Usage: document_check.py PAGE API SERVER [FILE...]

An example is a block "```json API" of two lines each: a request and its answer. The examples of one
API follow each other: what one changes, the next one sees. SERVER answers requests to that API, one
a line from standard input, or one in each FILE named as an argument.
"""

import subprocess
import sys
from pathlib import Path

sys.path.append(str(Path(__file__).parents[2] / "support"))
from configuration_api import (Form, WrongForm, check_that_wrong_ones_are_refused,  # noqa: E402
                               examples_in)


def answers_of(server, requests):
    output = subprocess.run([server], input="".join(line + "\n" for line in requests),
                            stdout=subprocess.PIPE, check=True, encoding="utf-8").stdout
    answers = output.split("\n")[:-1]
    if len(answers) != len(requests):
        raise WrongForm(f"{len(answers)} answers to {len(requests)} requests")
    return answers


def check_examples(form, examples, server):
    answers = answers_of(server, [request for request, _ in examples])
    for (request, told), answer in zip(examples, answers):
        if answer != told:
            raise WrongForm("the page tells what does not happen\n"
                            f"request  {request}\ntold     {told}\nanswered {answer}")
        form.check(request, answer)


def check_files(form, files, server):
    for name in files:
        output = subprocess.run([server, name], stdout=subprocess.PIPE, check=True).stdout
        request = Path(name).read_bytes().split(b"\0")[0]  # to the library, a text ends there
        form.check(request, output.removesuffix(b"\n"))


def main():
    page, api, server, *files = sys.argv[1:]
    form = Form()
    check_that_wrong_ones_are_refused(form)
    examples = [(request, answer) for kind, request, answer in examples_in(Path(page), api)
                if kind == "json"]
    if not examples:
        raise WrongForm(f"no example of {api}")
    check_examples(form, examples, server)
    check_files(form, files, server)
    print(f"{len(examples)} examples of {api} are true, {len(files)} files are answered")


if __name__ == "__main__":
    try:
        main()
    except WrongForm as finding:
        sys.exit(str(finding))
