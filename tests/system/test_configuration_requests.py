"""
Every operation of the configuration API on every part of the document, and every error that a
request can bring about, over the bus. The requests of a table go to one running service.
"""

import pytest
from bridge import ITEMS, call_service, kill_service
from publishing import PUBLICATION

ITEM = {"topicFilter": "a/b"}
SUBSCRIPTIONS = ("subscription",)
SUBSCRIPTION = ("subscription", "0")
PUBLICATIONS = ("publication",)
FILTERS = ("publication", "eventFilter")
FILTER = ("publication", "eventFilter", "0")
NODES = {"root": (), "root.subscription[]": SUBSCRIPTION, "root.publication": PUBLICATIONS,
         "root.publication.eventFilter[]": FILTER}
COLLECTIONS = {"root.subscription[]": SUBSCRIPTIONS, "root.publication.eventFilter[]": FILTERS}
NEEDS_DATA = {"set": "Set", "add": "Add", "import": "Import"}
NAMES = NEEDS_DATA | {"get": "Get", "remove": "Remove", "listKeys": "List keys"}

QOS = "QOS_0, QOS_1, QOS_2"
TOO_LONG = "x" * 65536


def data_for(operation):
    return {"data": {}} if operation in NEEDS_DATA else {}


@pytest.fixture(name="configured")
def client_of_a_configured_service(client):
    """One item and one filter, both with the id 0."""
    assert client.done("add", *SUBSCRIPTIONS, data=ITEM)["id"] == "0"
    assert client.done("add", *FILTERS, data={"topicFilter": "onvif:A"})["id"] == "0"
    return client


def assert_all_fail(client, rows):
    """Each row (operation, path, members, code, message) fails like that and changes nothing."""
    exported = client.done("get", options={"omitReadOnly": True})
    files = ITEMS.read_bytes(), PUBLICATION.read_bytes()
    pid = client.service_pid()
    wrong = [(operation, path, members, found) for operation, path, members, *wanted in rows
             if (found := list(client.failed(operation, *path, **members))) != wanted]
    assert wrong == []
    assert client.done("get", options={"omitReadOnly": True}) == exported
    assert (ITEMS.read_bytes(), PUBLICATION.read_bytes()) == files
    assert client.service_pid() == pid


# which operation is there for what

def test_every_operation_that_a_part_of_the_document_has_succeeds(configured):
    done = configured.done
    assert set(done("get")) == {"deviceTopicPrefix", "subscription", "publication"}
    assert set(done("get", property="deviceTopicPrefix")) == {"deviceTopicPrefix"}
    for path in (SUBSCRIPTIONS, FILTERS):
        assert [each["id"] for each in done("listKeys", *path)] == ["0"]
        added = done("add", *path, data={"topicFilter": "c"})
        assert added["id"] == "1"
        assert done("get", *path, "1") == added
        assert done("set", *path, "1", data={"topicFilter": "d"}) is None
        assert done("get", *path, "1", property="topicFilter") == {"topicFilter": "d"}
        assert done("set", *path, "1", property="topicFilter", data={"topicFilter": "e"}) is None
        assert done("listKeys", *path) == [done("get", *path, "0"), added | {"topicFilter": "e"}]
        assert done("remove", *path, "1") is None
        assert [each["id"] for each in done("listKeys", *path)] == ["0"]
    publication = done("get", *PUBLICATIONS)
    assert done("set", *PUBLICATIONS, data={"appendEventTopic": False}) is None
    assert done("get", *PUBLICATIONS) == publication | {"appendEventTopic": False}
    assert done("import", data=done("get", options={"omitReadOnly": True})) is None


def test_no_other_operation_is_defined(configured):
    defined = {"root": {"get", "import"}, "root.publication": {"get", "set"},
               "root.subscription[]": {"get", "set", "remove", "add", "listKeys"},
               "root.publication.eventFilter[]": {"get", "set", "remove", "add", "listKeys"}}
    rows = [(operation, path, data_for(operation), 9,
             f"{NAMES[operation]} operation not defined for {node}")
            for node, path in NODES.items() for operation in NAMES
            if operation not in defined[node]]
    rows += [(operation, path, data_for(operation), 9,
              f"{NAMES[operation]} operation not defined for an item of {node}")
             for node, path in NODES.items() if node.endswith("[]")
             for operation in ("add", "listKeys")]
    rows += [("set", path, {"property": "id", "data": {"id": "1"}}, 9,
              f"Set operation not defined for {node}.id")
             for node, path in NODES.items() if node.endswith("[]")]
    assert_all_fail(configured, rows)


def test_a_collection_without_a_key_is_no_item(configured):
    assert_all_fail(configured, [
        (operation, path, data_for(operation), 2, f"Invalid value of key property to {node}")
        for node, path in COLLECTIONS.items() for operation in ("get", "set", "remove")])


# what a request may get wrong

def test_a_request_that_is_none_of_this_api_fails(configured):
    assert_all_fail(configured, [
        ("get", (), {"api": "other"}, 3, "Unknown API other"),
        ("get", (), {"version": 1}, 6, "API tovrel has no major version 1"),
        ("move", (), {}, 9, "Unknown operation move"),
        ("get", ("other",), {}, 8, "Unknown path root.other"),
        ("get", ("publication", "other"), {}, 8, "Unknown path root.publication.other"),
        ("get", (), {"property": "other"}, 8, "Unknown property root.other"),
        ("get", SUBSCRIPTION, {"property": "retain"}, 8,
         "Unknown property root.subscription[].retain"),
        ("get", (), {"options": {"other": 1}}, 1, "Request: Unexpected option other"),
        ("get", (), {"options": {"importType": "other"}}, 1,
         "Request: Field options.importType: Value other is not one of merge, replace"),
        ("get", (), {"other": 1}, 1, "Request: Unexpected field other"),
        ("get", (), {"data": {}}, 1, "Get operation takes no data"),
        ("set", PUBLICATIONS, {}, 5, "Set operation needs data"),
        ("add", SUBSCRIPTIONS, {}, 5, "Add operation needs data"),
        ("import", (), {}, 5, "Import operation needs data")])


def test_an_item_that_is_not_there_is_named_in_the_words_of_its_collection(configured):
    assert_all_fail(configured, [
        ("get", (*SUBSCRIPTIONS, "1"), {}, 2, "Subscription does not exist"),
        ("set", (*SUBSCRIPTIONS, "1"), {"data": ITEM}, 2, "Subscription does not exist"),
        ("remove", (*SUBSCRIPTIONS, "1"), {}, 2, "Cannot remove item - it does not exist"),
        ("get", (*FILTERS, "1"), {}, 2, "Cannot get item - it does not exist."),
        ("set", (*FILTERS, "1"), {"data": ITEM}, 2, "Cannot set item - it does not exist."),
        ("remove", (*FILTERS, "1"), {}, 2, "Cannot remove item - it does not exist.")])


BODIES = (("set", SUBSCRIPTION, "Set root.subscription[]"),
          ("add", SUBSCRIPTIONS, "Add item to root.subscription[]"),
          ("set", PUBLICATIONS, "Set root.publication"),
          ("set", FILTER, "Set root.publication.eventFilter[]"),
          ("add", FILTERS, "Add item to root.publication.eventFilter[]"),
          ("import", (), "Import root"))


def test_a_body_of_another_type_or_with_another_field_fails(configured):
    not_objects = (([], "array"), ("{}", "string"), (1, "integer"), (1.5, "real"),
                   (True, "boolean"), (None, "null"))
    rows = [(operation, path, {"data": data}, 5,
             f"{context}: Expected JSON object but got {name}")
            for operation, path, context in BODIES for data, name in not_objects]
    rows += [(operation, path, {"data": {"id": "3"}}, 5, f"{context}: Unexpected field id")
             for operation, path, context in BODIES]
    rows += [("set", PUBLICATIONS, {"data": {"eventFilter": []}}, 5,
              "Set root.publication: Unexpected field eventFilter"),
             ("import", (), {"data": {"deviceTopicPrefix": "x"}}, 5,
              "Import root: Unexpected field deviceTopicPrefix")]
    rows += [("add", path, {"data": {}}, 5,
              f"Add item to {node}: Missing required property topicFilter")
             for node, path in COLLECTIONS.items()]
    assert_all_fail(configured, rows)


TEXTS = (("set", SUBSCRIPTION, "topicFilter"), ("set", FILTER, "topicFilter"),
         ("set", PUBLICATIONS, "customTopicPrefix"))
FLAGS = (("set", SUBSCRIPTION, "isStateData"), ("set", SUBSCRIPTION, "useDeviceTopicPrefix"),
         ("set", PUBLICATIONS, "appendEventTopic"), ("set", PUBLICATIONS, "includeTopicNamespaces"),
         ("set", PUBLICATIONS, "includeSerialNumberInPayload"))
CHOICES = (("set", SUBSCRIPTION, "qos", QOS), ("set", FILTER, "qos", QOS),
           ("set", FILTER, "retain", "none, property, all"),
           ("set", PUBLICATIONS, "topicPrefix", "default, custom, none"))


def test_a_property_of_another_type_or_value_fails(configured):
    rows = [(operation, path, {"data": {name: 1}}, 5,
             f"Property {name}: Expected JSON string but got integer")
            for operation, path, name, *_ in TEXTS + CHOICES]
    rows += [(operation, path, {"data": {name: "true"}}, 5,
              f"Property {name}: Expected JSON boolean but got string")
             for operation, path, name in FLAGS]
    rows += [(operation, path, {"data": {name: "other"}}, 5,
              f"Property {name}: Value other is not one of {values}")
             for operation, path, name, values in CHOICES]
    rows += [(operation, path, {"data": {name: TOO_LONG}}, 5,
              f"Property {name}: Value is longer than 65535 bytes")
             for operation, path, name in TEXTS]
    # The same check of what is added and imported; the first finding in declared order counts.
    rows += [("add", SUBSCRIPTIONS, {"data": ITEM | {"qos": "0"}}, 5,
              f"Property qos: Value 0 is not one of {QOS}"),
             ("add", FILTERS, {"data": {"retain": "x", "qos": "x", "topicFilter": "a"}}, 5,
              f"Property qos: Value x is not one of {QOS}"),
             ("import", (), {"data": {"subscription": [{"id": "1", "qos": "x"}]}}, 5,
              f"Property qos: Value x is not one of {QOS}")]
    assert_all_fail(configured, rows)


def test_an_import_that_is_not_formed_as_a_document_changes_nothing(configured):
    def row(data, message):
        return "import", (), {"data": data}, 5, message
    rows = [row({"publication": []}, "Import publication: Expected JSON object but got array"),
            row({"publication": {"id": "1"}}, "Import publication: Unexpected field id")]
    for node, place in (("root.subscription[]", lambda items: {"subscription": items}),
                        ("root.publication.eventFilter[]",
                         lambda items: {"publication": {"eventFilter": items}})):
        item = f"Import item to {node}"
        rows += [row(place({}), f"Import {node}: Expected JSON array but got object"),
                 row(place(["0"]), f"{item}: Expected JSON object but got string"),
                 row(place([{"id": "1", "other": 1}]), f"{item}: Unexpected field other"),
                 row(place([{"id": "1"}, ITEM]), f"{item}: Missing required property id"),
                 row(place([{"id": 1}]), "Property id: Expected JSON string but got integer")]
    # Found before anything is reset.
    rows += [(operation, path, members | {"options": {"importType": "replace"}}, *wanted)
             for operation, path, members, *wanted in rows]
    assert_all_fail(configured, rows)


# what the store refuses

def test_an_item_that_cannot_be_is_not_added_or_imported(configured):
    internal = "Cannot import MQTT to event config - internal error"
    assert_all_fail(configured, [
        *(("add", SUBSCRIPTIONS, {"data": {"topicFilter": topic}}, 5, "Invalid MQTT topic")
          for topic in ("", "a#", "a/#/b", "a\nb")),
        *(("import", (), {"data": {"subscription": [{"id": "1"}, {"id": id_}]}}, 0, internal)
          for id_ in ("x", "", "256", "-1", "99999999999"))])


def test_more_than_256_items_are_not_imported(configured):
    def numbered(count):
        return [{"id": str(number), "topicFilter": "a"} for number in range(count)]
    assert_all_fail(configured, [
        ("import", (), {"data": {"subscription": numbered(257)}}, 7,
         "Too many MQTT-to-event configurations"),
        ("import", (), {"data": {"publication": {"eventFilter": numbered(257)}}}, 7,
         "Too many event-to-MQTT configurations")])


def test_what_cannot_be_saved_fails_in_the_words_of_each_operation(configured):
    ITEMS.unlink()
    ITEMS.mkdir()
    assert configured.failed("add", *SUBSCRIPTIONS, data=ITEM) == (5, "Could not store configuration")
    assert configured.failed("set", *SUBSCRIPTION, data=ITEM) == (
        0, "Cannot get item - internal error")
    assert configured.failed("remove", *SUBSCRIPTION) == (
        0, "Cannot remove item - internal error")
    assert configured.failed("import", data={"subscription": [{"id": "1"} | ITEM]}) == (
        0, "Cannot use imported MQTT to event config - internal error")
    assert [each["id"] for each in configured.done("listKeys", *SUBSCRIPTIONS)] == ["0"]


# what is taken, and how

def test_every_property_takes_every_value_that_it_may_have(configured):
    for path, values in (
            (SUBSCRIPTION, {"topicFilter": "x", "qos": "QOS_2", "isStateData": True,
                            "useDeviceTopicPrefix": True}),
            (SUBSCRIPTION, {"qos": "QOS_1", "isStateData": False}),
            (PUBLICATIONS, {"topicPrefix": "custom", "customTopicPrefix": "x",
                            "appendEventTopic": False, "includeTopicNamespaces": False,
                            "includeSerialNumberInPayload": True}),
            (PUBLICATIONS, {"topicPrefix": "none", "customTopicPrefix": ""}),
            (PUBLICATIONS, {"topicPrefix": "default"}),
            (FILTER, {"topicFilter": "onvif:B", "retain": "all"}),
            (FILTER, {"retain": "none"}), (FILTER, {"retain": "property"})):
        before = configured.done("get", *path)
        assert configured.done("set", *path, data=values) is None
        assert configured.done("get", *path) == before | values


def test_setting_the_qos_of_a_filter_always_makes_it_0(configured):
    added = configured.done("add", *FILTERS, data={"topicFilter": "a", "qos": "QOS_2"})
    assert added["qos"] == "QOS_2"
    configured.done("set", *FILTERS, added["id"], data={"qos": "QOS_2"})
    assert configured.done("get", *FILTERS, added["id"], property="qos") == {"qos": "QOS_0"}


def test_a_merging_import_keeps_of_a_filter_what_it_does_not_name_but_nothing_of_an_item(
        configured):
    configured.done("set", *FILTER, data={"retain": "all"})
    configured.done("set", *SUBSCRIPTION, data={"qos": "QOS_2", "isStateData": True})
    configured.done("import", data={
        "subscription": [{"id": "0"}],
        "publication": {"eventFilter": [{"id": "0", "qos": "QOS_2"}, {"id": "9"}]}})
    assert configured.done("listKeys", *FILTERS) == [
        {"id": "0", "topicFilter": "onvif:A", "qos": "QOS_2", "retain": "all"},
        {"id": "9", "topicFilter": "", "qos": "QOS_0", "retain": "property"}]
    assert configured.done("listKeys", *SUBSCRIPTIONS) == [
        {"id": "0", "topicFilter": "", "qos": "QOS_0", "isStateData": False,
         "useDeviceTopicPrefix": False}]


def test_a_replacing_import_that_the_store_refuses_leaves_an_empty_configuration(configured):
    publication = {"topicPrefix": "none", "eventFilter": [{"id": "5", "topicFilter": "onvif:B"}]}
    for refused, wanted in (
            ([{"id": "x"}], (0, "Cannot import MQTT to event config - internal error")),
            ([{"id": str(number)} for number in range(257)],
             (7, "Too many MQTT-to-event configurations"))):
        configured.done("import", data={"publication": publication, "subscription": [
            {"id": "0", "topicFilter": "a"}]}, options={"importType": "replace"})
        assert configured.failed(
            "import", data={"publication": publication, "subscription": refused},
            options={"importType": "replace"}) == wanted
        left = configured.done("get", options={"omitReadOnly": True})
        assert left == {"subscription": [], "publication": {
            "topicPrefix": "default", "customTopicPrefix": "", "appendEventTopic": True,
            "includeTopicNamespaces": True, "includeSerialNumberInPayload": False,
            "eventFilter": []}}


def test_after_a_restart_ids_are_given_from_0_and_what_was_loaded_keeps_its_own(configured):
    kept = configured.done("get", options={"omitReadOnly": True})
    kill_service()
    call_service()
    for path in (SUBSCRIPTIONS, FILTERS):
        assert configured.done("add", *path, data={"topicFilter": "new"})["topicFilter"] != "new"
    assert configured.done("get", options={"omitReadOnly": True}) == kept
