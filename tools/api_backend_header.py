"""The header of a backend."""

from api_backend_names import (BANNER, field_accessors, handler_signature, import_type, item_type,
                               keys_type, node_accessors)

OPENING = """
/**
 * The configuration API "%(name)s", major version %(version)d: its creation, the handlers that it calls, and the
 * accessors through which handlers read a request and fill an answer.
 *
 * The structures live for one request and belong to the backend. Passing NULL for one is a programming
 * error, which ends the process. Everything runs on the thread that processes requests.
 */
#ifndef %(guard)s
#define %(guard)s

#include <norq/dbh.h>

G_BEGIN_DECLS

/** Creates the API; the parameters are those of dbh_create_api() behind the descriptor. */
dbh_api_t *%(prefix)s_create_api(void *userData, void (*userDataFree)(void *userData), dbh_error_t **error);
"""

HANDLERS = """
/*
 * Handlers: what each operation does, not defined here. They report a failure with dbh_api_error_new().
 * `key` is the key of the item in question, a valid one. The others are as for dbh_operation_t.
 */
"""

HANDLER_DOCS = {
    "list_keys": "Adds the key of every item of {0} to the list.",
    "get": "Fills the data of {0}, every field.",
    "set": "Changes {0} by those properties that the request has.",
    "add": "Creates an item of {0} and sets `createdKey` to its key.",
    "remove": "Removes an item of {0}.",
    "import": "Takes over a whole configuration.",
}

ACCESSOR_DOCS = {
    "gdt": "Field of an answer that is being filled: {0}.{1}. Never NULL.",
    "sdt": "Field of a set request: {0}.{1}. NULL when the request does not have it.",
    "adt": "Field of an add request: {0}.{1}. NULL when the request does not have it.",
    "idt": "Field of an import: {0}.{1}. NULL when the import does not have it.",
    "key": "Adds a copy of a key to the list of {0}; false with an error when it is not a valid one.",
    "import": "The part of an import for {0}, empty when the import has none. Never NULL.",
    "next": "The next imported item of {0}; NULL behind the last.",
}


def structure_declarations(api):
    yield ""
    for node in api.nodes:
        yield "/** Data of %s. */" % node.text
        yield "typedef struct {0} {0};".format(item_type(api, node))
        yield "/** Import of %s. */" % node.text
        yield "typedef struct {0} {0};".format(import_type(api, node))
        if node.is_collection:
            yield "/** Keys of %s. */" % node.text
            yield "typedef struct {0} {0};".format(keys_type(api, node))


def accessor_doc(accessor):
    name = accessor.entry.name if accessor.entry is not None else ""
    text = ACCESSOR_DOCS[accessor.what].format(accessor.node.text, name)
    if accessor.what == "import" and accessor.node.is_collection:
        text += " Starts again at its first item."
    return "/** %s */" % text


def header_of(api):
    lines = [BANNER.rstrip("\n") % api.prefix]
    lines.append(OPENING.rstrip("\n") % {
        "name": api.name, "version": api.version, "prefix": api.prefix,
        "guard": api.prefix.upper() + "_BACKEND_H"})
    lines.extend(structure_declarations(api))
    lines.append(HANDLERS.rstrip("\n"))
    for node in api.nodes:
        for operation in node.operations:
            lines.append("")
            lines.append("/** %s */" % HANDLER_DOCS[operation].format(node.text))
            lines.append(handler_signature(api, node, operation) + ";")
    lines.append("")
    lines.append("/* Accessors. */")
    for node in api.nodes:
        for accessor in [*field_accessors(api, node), *node_accessors(api, node)]:
            lines.append("")
            lines.append(accessor_doc(accessor))
            lines.append(accessor.signature + ";")
    lines.extend(["", "G_END_DECLS", "", "#endif"])
    return "\n".join(lines) + "\n"
