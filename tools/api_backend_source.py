"""The source of a backend: structures, their JSON, accessors, callbacks and the description."""

from api_backend_callbacks import callbacks_of
from api_backend_json import json_functions_of
from api_backend_names import (BANNER, field_accessors, field_type, import_type, item_type,
                               keys_type, node_accessors)

OPENING = """
#include "api/%(prefix)s_backend.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

// Names follow the paths of the document; structures and lists are those of C.
// NOLINTBEGIN(readability-identifier-naming, modernize-avoid-c-arrays)
// NOLINTBEGIN(clang-analyzer-optin.performance.Padding)
"""

CLOSING = """
// NOLINTEND(clang-analyzer-optin.performance.Padding)
// NOLINTEND(readability-identifier-naming, modernize-avoid-c-arrays)
"""

HELPERS = """
namespace {

void assertNotNull(const void *pointer, int line, const char *function, const char *expression)
{
    if (pointer == nullptr) {
        g_assertion_message_expr(nullptr, "%(prefix)s_backend.cpp", line, function, expression);
    }
}

#define ASSERT_NOT_NULL(pointer) assertNotNull(pointer, __LINE__, __func__, #pointer " != NULL")

bool isObject(const json_t *json, const char *context, dbh_api_error_t **error)
{
    if (!json_is_object(json)) {
        dbh_api_error_new(error, DBH_ERROR_MALFORMED_DATA, "%%s: Expected JSON object but got %%s", context, dbh_json_type(json));
    }
    return json_is_object(json);
}

bool isArray(const json_t *json, const char *context, dbh_api_error_t **error)
{
    if (!json_is_array(json)) {
        dbh_api_error_new(error, DBH_ERROR_MALFORMED_DATA, "%%s: Expected JSON array but got %%s", context, dbh_json_type(json));
    }
    return json_is_array(json);
}

bool requirePresent(std::uint8_t present, const char *context, const char *name, dbh_api_error_t **error)
{
    if (present == 0) {
        dbh_api_error_new(error, DBH_ERROR_MALFORMED_DATA, "%%s: Missing required property %%s", context, name);
    }
    return present != 0;
}

bool requireSet(bool isSet, const char *path, dbh_api_error_t **error)
{
    if (!isSet) {
        dbh_api_error_new(error, DBH_ERROR_INTERNAL, "%%s has not been set", path);
    }
    return isSet;
}

bool readField(const json_t *json, const char *name, dbh_string_t *field, std::uint8_t *present, dbh_api_error_t **error)
{
    const json_t *value = json_object_get(json, name);
    *present = value != nullptr ? 1 : 0;
    return value == nullptr || dbh_string_deserialize(field, value, error);
}

bool readField(const json_t *json, const char *name, dbh_boolean_t *field, std::uint8_t *present, dbh_api_error_t **error)
{
    const json_t *value = json_object_get(json, name);
    *present = value != nullptr ? 1 : 0;
    return value == nullptr || dbh_boolean_deserialize(field, value, error);
}

bool writeField(json_t *json, const char *name, json_t *value, dbh_api_error_t **error)
{
    const bool written = json_object_set_new(json, name, value) == 0;
    if (!written) {
        dbh_api_error_new(error, DBH_ERROR_INTERNAL, "Cannot write property %%s", name);
    }
    return written;
}

bool isValidKey(const char *name, const char *key)
{
    dbh_string_t field;
    dbh_string_init(&field, name);
    const bool valid = dbh_string_validate_value(&field, key);
    dbh_string_deinit(&field);
    return valid;
}

dbh_node_t *newNode(dbh_node_kind kind, const char *name)
{
    auto *node = static_cast<dbh_node_t *>(std::malloc(sizeof(dbh_node_t)));
    g_assert(node != nullptr);
    *node = {};
    node->kind = kind;
    node->name = name;
    node->children = g_queue_new();
    node->properties = g_queue_new();
    return node;
}

void addProperty(dbh_node_t *node, const char *name)
{
    g_queue_push_tail(node->properties, const_cast<char *>(name));
}

void doNothing(void * /*userData*/) {}
"""


def has_presence(node):
    return any(not entry.read_only for entry in node.properties)


def item_structure(api, node):
    yield "struct %s {" % item_type(api, node)
    for entry in node.properties:
        yield "    %s %s;" % (field_type(entry), entry.name)
        if not entry.read_only:
            yield "    std::uint8_t %sPresent;" % entry.name
    yield "};"


def import_structure(api, node):
    yield "struct %s {" % import_type(api, node)
    if node.is_collection:
        yield "    GQueue *items;"
        yield "    GList *cursor;"
    else:
        if node.importable:
            yield "    %s data;" % item_type(api, node)
        for child in sorted(node.children, key=lambda child: child.is_collection):
            yield "    %s %s;" % (import_type(api, child), child.name)
    yield "};"


def structures_of(api):
    """Children before parents, because imports hold those of their children."""
    for node in reversed(api.nodes):
        yield ""
        yield from item_structure(api, node)
        yield ""
        yield from import_structure(api, node)
        if node.is_collection:
            yield ""
            yield "struct %s {" % keys_type(api, node)
            yield "    GQueue *keys;"
            yield "};"


def field_accessor_body(accessor):
    obj = "obj"
    if accessor.what == "idt" and not accessor.node.is_collection:
        obj = "obj->data"
    member = "%s%s%s" % (obj, "." if "->" in obj else "->", accessor.entry.name)
    if accessor.what == "gdt":
        return ["    return &%s;" % member]
    return ["    return %sPresent != 0 ? &%s : nullptr;" % (member, member)]


def node_accessor_body(accessor):
    node = accessor.node
    if accessor.what == "key":
        return ["    ASSERT_NOT_NULL(key);",
                '    if (!isValidKey("%s", key)) {' % node.key.name,
                '        dbh_api_error_new(error, DBH_ERROR_INTERNAL, "Got invalid key to %s '
                'from backend developer");' % node.text,
                "        return false;",
                "    }",
                "    g_queue_push_tail(obj->keys, strdup(key));",
                "    return true;"]
    if accessor.what == "next":
        return ["    if (obj->cursor == nullptr) {",
                "        return nullptr;",
                "    }",
                "    auto *item = static_cast<%s *>(obj->cursor->data);" % accessor.result,
                "    obj->cursor = obj->cursor->next;",
                "    return item;"]
    lines = []
    if node.is_collection:
        lines.append("    obj->%s.cursor = g_queue_peek_head_link(obj->%s.items);"
                     % (node.name, node.name))
    return lines + ["    return &obj->%s;" % node.name]


def accessors_of(api):
    for node in api.nodes:
        for accessor in [*field_accessors(api, node), *node_accessors(api, node)]:
            body = field_accessor_body(accessor) if accessor.entry else node_accessor_body(accessor)
            yield from ["", accessor.signature, "{", "    ASSERT_NOT_NULL(obj);", *body, "}"]


def builder_of(api):
    yield from ["", "dbh_node_t *build()", "{"]
    for node in api.nodes:
        kind = "DBH_NODE_COLLECTION" if node.is_collection else "DBH_NODE_OBJECT"
        yield '    dbh_node_t *%s = newNode(%s, "%s");' % (node.c_name, kind, node.name)
        for entry in node.properties:
            yield '    addProperty(%s, "%s");' % (node.c_name, entry.name)
        for operation in node.operations:
            yield "    %s->%s = %s_%s;" % (node.c_name, operation, operation, node.c_name)
        if node.parent is not None:
            yield "    g_queue_push_tail(%s->children, %s);" % (node.parent.c_name, node.c_name)
    yield from ["    return root;", "}"]


def creation_of(api):
    return """
constexpr dbh_api_descriptor_t DESCRIPTOR{build, "%s", %d, doNothing, doNothing};

} // namespace

dbh_api_t *%s_create_api(void *userData, void (*userDataFree)(void *userData), dbh_error_t **error)
{
    return dbh_create_api(&DESCRIPTOR, userData, userDataFree, error);
}
""" % (api.name, api.version, api.prefix)


def source_of(api):
    names = {"prefix": api.prefix}
    lines = [BANNER.rstrip("\n") % api.prefix, (OPENING % names).rstrip("\n")]
    lines.extend(structures_of(api))
    lines.append((HELPERS % names).rstrip("\n"))
    lines.extend(json_functions_of(api))
    lines.extend(callbacks_of(api))
    lines.extend(builder_of(api))
    lines.append(creation_of(api).rstrip("\n"))
    lines.extend(accessors_of(api))
    lines.append(CLOSING.rstrip("\n"))
    return "\n".join(lines) + "\n"
