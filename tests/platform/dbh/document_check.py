#!/usr/bin/python3
"""Executes the examples of a document word for word and checks requests and answers by the schema.

Usage: document_check.py DOCUMENT API SERVER [FILE...]

An example is a block "```json API" of two lines each: a request and its answer. The examples of one
API follow each other: what one changes, the next one sees. SERVER answers requests to that API, one
a line from standard input, or one in each FILE named as an argument. Beside DOCUMENT lies the
schema, DOCUMENT with ".schema.json" in place of ".md".
"""

import json
import re
import subprocess
import sys

import jsonschema

MALFORMED_REQUEST = 1


def validator_of(schema, name):
    return jsonschema.Draft7Validator(
        {"$ref": "#/definitions/" + name, "definitions": schema["definitions"]})


def examples_of(path, api):
    with open(path, encoding="utf-8") as file:
        text = file.read()
    blocks = re.findall(r"^```json %s\n(.*?)^```$" % re.escape(api), text, re.DOTALL | re.MULTILINE)
    for block in blocks:
        lines = block.splitlines()
        if len(lines) != 2:
            sys.exit("an example is a request and an answer:\n" + block)
        yield lines


def answers_of(server, requests):
    output = subprocess.run([server], input="".join(line + "\n" for line in requests),
                            stdout=subprocess.PIPE, check=True, encoding="utf-8").stdout
    answers = output.split("\n")[:-1]
    if len(answers) != len(requests):
        sys.exit("%d answers to %d requests" % (len(answers), len(requests)))
    return answers


def without_duplicates(pairs):
    if len(dict(pairs)) < len(pairs):
        raise ValueError("a field stands twice")
    return dict(pairs)


def check_form(request, answer, request_form, answer_form):
    """An answer is always well-formed; a request that is not never succeeds, and only such a one is
    called malformed."""
    document = json.loads(answer)
    answer_form.validate(document)
    try:
        well_formed = request_form.is_valid(
            json.loads(request, object_pairs_hook=without_duplicates))
    except (ValueError, RecursionError):
        well_formed = False
    if not well_formed and "error" not in document:
        sys.exit("the schema refuses a request that succeeds: " + request)
    if well_formed and document.get("error", {}).get("code") == MALFORMED_REQUEST:
        sys.exit("the schema accepts a request that is malformed: " + request)


def check_that_wrong_answers_are_refused(answer_form):
    for wrong in ({}, [], None, {"data": 1, "error": {"code": 1, "message": ""}},
                  {"error": {"code": 1}}, {"error": {"message": ""}}, {"error": None},
                  {"error": {"code": "1", "message": ""}}, {"error": {"code": 1, "message": None}},
                  {"error": {"code": 1, "message": "", "more": 1}}, {"data": 1, "more": 1}):
        if answer_form.is_valid(wrong):
            sys.exit("the schema accepts a wrong answer: %s" % wrong)


def main():
    document, api, server, *files = sys.argv[1:]
    with open(re.sub(r"\.md$", ".schema.json", document), encoding="utf-8") as file:
        schema = json.load(file)
    jsonschema.Draft7Validator.check_schema(schema)
    request_form = validator_of(schema, "request")
    answer_form = validator_of(schema, "answer")
    check_that_wrong_answers_are_refused(answer_form)

    examples = list(examples_of(document, api))
    if not examples:
        sys.exit("no example of " + api)
    answers = answers_of(server, [request for request, _ in examples])
    for (request, expected), answer in zip(examples, answers):
        if answer != expected:
            sys.exit("the document tells what does not happen\nrequest  %s\ntold     %s\nanswered %s"
                     % (request, expected, answer))
        check_form(request, answer, request_form, answer_form)

    for name in files:
        output = subprocess.run([server, name], stdout=subprocess.PIPE, check=True).stdout
        with open(name, encoding="utf-8", errors="surrogateescape") as file:
            check_form(file.read(), output.decode("utf-8"), request_form, answer_form)
    print("%d examples of %s are true, %d files are answered" % (len(examples), api, len(files)))


if __name__ == "__main__":
    main()
