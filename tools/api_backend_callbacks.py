"""The operations of a backend's nodes: each checks, calls the handler and answers."""

import re

from api_backend_names import import_type, item_type, keys_type

PARAMETERS = ["const dbh_node_t *node", "GQueue *path", "const char *property", "bool omitReadOnly",
              "const json_t *data", "dbh_api_error_t **error", "dbh_request_context_t *context",
              "void *userData"]

KEY_CHECK = """\
    const auto *key = static_cast<const char *>(g_queue_peek_nth(path, 0));
    if (!isValidKey("%(key)s", key)) {
        dbh_api_error_new(error, DBH_ERROR_NO_SUCH_ITEM, "Invalid value of key property to %(text)s");
        return nullptr;
    }
"""

LIST_KEYS = """\
    %(keys)s list;
    list.keys = g_queue_new();
    json_t *json = nullptr;
    %(handler)s(&list, error, context, userData);
    if (*error == nullptr) {
        json = dbh_get_json_from_items(node, list.keys, path, omitReadOnly, error, context, userData);
    }
    g_queue_free_full(list.keys, std::free);
    return json;
"""

GET = """\
%(key_check)s    %(item)s obj;
    json_t *json = nullptr;
    initialise(&obj);
    %(handler)s(%(key_argument)s&obj, error, context, userData);
    if (*error == nullptr && isFilled(obj, error)) {
        json = serialise(obj, omitReadOnly, error);
    }
    deinitialise(&obj);
    if (json != nullptr && !dbh_add_to_json_from_children(node, json, path, property, omitReadOnly, error, context, userData)) {
        json_decref(json);
        return nullptr;
    }
    return json;
"""

SET = """\
%(set_check)s%(key_check)s    %(item)s obj;
    initialise(&obj);
    if (readSet(data, &obj, error)) {
        %(handler)s(%(key_argument)s&obj, error, context, userData);
    }
    deinitialise(&obj);
    return nullptr;
"""

SET_CHECK = """\
    if (property != nullptr && std::strcmp(property, "%(key)s") == 0) {
        dbh_api_error_new(error, DBH_ERROR_NOT_DEFINED, "Set operation not defined for %(text)s.%(key)s");
        return nullptr;
    }
"""

ADD = """\
    %(item)s obj;
    dbh_string_t created;
    initialise(&obj);
    dbh_string_init(&created, "%(key)s");
    if (readAdd(data, &obj, error)) {
        %(handler)s(&obj, &created, error, context, userData);
    }
    deinitialise(&obj);
    if (*error == nullptr && !dbh_string_is_set(&created)) {
        dbh_api_error_new(error, DBH_ERROR_INTERNAL, "Add item to %(text)s: Created key has not been set");
    }
    const bool isCreated = *error == nullptr;
    if (isCreated) {
        g_queue_push_tail(path, strdup(dbh_string_value(&created)));
    }
    dbh_string_deinit(&created);
    return isCreated ? get_%(c_name)s(node, path, property, omitReadOnly, nullptr, error, context, userData) : nullptr;
"""

REMOVE = """\
%(key_check)s    %(handler)s(key, error, context, userData);
    return nullptr;
"""

IMPORT = """\
    %(import)s obj;
    initialise(&obj);
    if (readImport(data, &obj, error)) {
        %(handler)s(&obj, error, context, userData);
    }
    deinitialise(&obj);
    return nullptr;
"""

BODIES = {"list_keys": LIST_KEYS, "get": GET, "set": SET, "add": ADD, "remove": REMOVE,
          "import": IMPORT}


def parameters_for(body):
    """The parameters, the names of those that the body does not use in comments."""
    words = set(re.findall(r"\w+", re.sub(r'"[^"]*"', "", body)))
    return ", ".join(
        re.sub(r"(\w+)$", lambda name: name[0] if name[0] in words else "/*%s*/" % name[0], parameter)
        for parameter in PARAMETERS)


def callback(api, node, operation):
    names = {
        "c_name": node.c_name,
        "text": node.text,
        "item": item_type(api, node),
        "import": import_type(api, node),
        "keys": keys_type(api, node),
        "key": node.key.name if node.is_collection else "",
        "key_argument": "key, " if node.is_collection else "",
        "handler": "%s_%s_%s" % (api.prefix, node.c_name, operation),
    }
    names["key_check"] = KEY_CHECK % names if node.is_collection else ""
    names["set_check"] = SET_CHECK % names if node.is_collection else ""
    body = BODIES[operation] % names
    return "\njson_t *%s_%s(%s)\n{\n%s}" % (operation, node.c_name, parameters_for(body), body)


def callbacks_of(api):
    for node in api.nodes:
        for operation in node.operations:
            yield callback(api, node, operation)
