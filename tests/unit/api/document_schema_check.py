#!/usr/bin/python3
"""Checks that the schema of the document accepts what is right and refuses what is wrong.

Usage: document_schema_check.py SCHEMA
"""

import json
import sys

import jsonschema

ITEM = {"id": "0", "topicFilter": "a/#", "qos": "QOS_1", "isStateData": False,
        "useDeviceTopicPrefix": True}
FILTER = {"id": "0", "topicFilter": "tns1:X//.", "qos": "QOS_2", "retain": "all"}
SETTINGS = {"topicPrefix": "custom", "customTopicPrefix": "plant", "appendEventTopic": True,
            "includeTopicNamespaces": False, "includeSerialNumberInPayload": True}
PUBLICATION = {**SETTINGS, "eventFilter": [FILTER]}
EXPORT = {"subscription": [ITEM], "publication": PUBLICATION}


def without(document, name):
    return {key: value for key, value in document.items() if key != name}


def changed(document, **values):
    return {**document, **values}


RIGHT = [
    ("root", {"deviceTopicPrefix": "norq/1", **EXPORT}),
    ("root", EXPORT),
    ("root", changed(EXPORT, subscription=[])),
    ("set_subscription", {}),
    ("set_subscription", without(ITEM, "id")),
    ("add_subscription", {"topicFilter": ""}),
    ("set_publication", SETTINGS),
    ("set_publication_eventFilter", {"retain": "property"}),
    ("add_publication_eventFilter", without(FILTER, "id")),
    ("import_root", {}),
    ("import_root", EXPORT),
    ("import_root", {"subscription": [{"id": "3"}], "publication": {"eventFilter": [{"id": "4"}]}}),
]

WRONG = [
    ("root", {}),
    ("root", without(EXPORT, "publication")),
    ("root", changed(EXPORT, subscription={})),
    ("root", changed(EXPORT, more=1)),
    ("root", changed(EXPORT, deviceTopicPrefix=None)),
    ("subscription", changed(ITEM, id=0)),
    ("subscription", changed(ITEM, qos="QOS_3")),
    ("subscription", without(ITEM, "isStateData")),
    ("publication", SETTINGS),
    ("publication_eventFilter", changed(FILTER, retain="")),
    ("set_subscription", {"id": "0"}),
    ("set_subscription", []),
    ("set_publication", PUBLICATION),
    ("add_subscription", {}),
    ("add_subscription", ITEM),
    ("add_publication_eventFilter", {"qos": "QOS_0"}),
    ("import_root", {"deviceTopicPrefix": "norq/1"}),
    ("import_root", {"subscription": [{}]}),
    ("import_root", {"publication": {"eventFilter": [{"topicFilter": "x"}]}}),
    ("import_root", {"publication": {"topicPrefix": ""}}),
]


def main():
    with open(sys.argv[1], encoding="utf-8") as file:
        schema = json.load(file)
    jsonschema.Draft7Validator.check_schema(schema)
    for expected, cases in ((True, RIGHT), (False, WRONG)):
        for name, document in cases:
            part = {"$ref": "#/definitions/" + name, "definitions": schema["definitions"]}
            if jsonschema.Draft7Validator(part).is_valid(document) != expected:
                sys.exit("%s: the schema %s %s"
                         % (name, "refuses" if expected else "accepts", json.dumps(document)))
    if not jsonschema.Draft7Validator(schema).is_valid(EXPORT):
        sys.exit("the schema as a whole refuses the document")
    print("%d right and %d wrong documents are told apart" % (len(RIGHT), len(WRONG)))


if __name__ == "__main__":
    main()
