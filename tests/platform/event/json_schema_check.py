#!/usr/bin/python3
"""Checks documents against the JSON Schema of events, and that the schema refuses wrong ones.

Usage: json_schema_check.py SCHEMA COMMAND [ARG...]

Each line that COMMAND prints is a document. The refused ones are the first document, spoilt.
"""

import copy
import json
import subprocess
import sys

import jsonschema


def spoilt(document):
    """Documents that differ from a valid one in one wrong thing each."""

    def changed(change):
        copied = copy.deepcopy(document)
        change(copied)
        return copied

    yield "without time", changed(lambda d: d.pop("UtcTime"))
    yield "without source", changed(lambda d: d.pop("Source"))
    yield "without data", changed(lambda d: d.pop("Data"))
    yield "without topic", changed(lambda d: d.pop("Topic"))
    yield "local time", changed(lambda d: d.update(UtcTime="2026-11-21T08:00:00.250+01:00"))
    yield "no milliseconds", changed(lambda d: d.update(UtcTime="2026-11-21T08:00:00Z"))
    yield "unknown operation", changed(lambda d: d.update(PropertyOperation="Deleted"))
    yield "empty key", changed(lambda d: d.update(Key={}))
    yield "null item", changed(lambda d: d["Data"].update(x=None))
    yield "object item", changed(lambda d: d["Data"].update(x={}))
    yield "array as source", changed(lambda d: d.update(Source=[]))
    yield "number as topic", changed(lambda d: d.update(Topic=1))
    yield "number as serial number", changed(lambda d: d.update(SerialNumber=1))
    yield "unknown member", changed(lambda d: d.update(Other=1))


def main():
    with open(sys.argv[1], encoding="utf-8") as file:
        schema = json.load(file)
    jsonschema.Draft7Validator.check_schema(schema)
    validator = jsonschema.Draft7Validator(schema)

    output = subprocess.run(sys.argv[2:], stdout=subprocess.PIPE, check=True).stdout
    documents = [json.loads(line) for line in output.decode("utf-8").split("\n") if line]
    if len(documents) < 2:
        sys.exit("too few documents: %d" % len(documents))
    for document in documents:
        validator.validate(document)
    for what, document in spoilt(documents[0]):
        if validator.is_valid(document):
            sys.exit("the schema accepts a document that is wrong: " + what)
    print("%d documents are valid" % len(documents))


if __name__ == "__main__":
    main()
