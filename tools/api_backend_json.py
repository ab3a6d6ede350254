"""The functions of a backend that initialise, check, read and write its structures."""

from api_backend_names import import_type, item_type


def initialiser(entry):
    if entry.type == "string" and entry.values is not None:
        return 'dbh_string_init_full(&obj->{0}, "{0}", -1, -1, {1});'.format(
            entry.name, values_name(entry))
    return 'dbh_{1}_init(&obj->{0}, "{0}");'.format(entry.name, entry.type)


def values_name(entry):
    return "VALUES_" + "_".join(entry.values)


def value_lists(api):
    """One list for each set of values, however many properties share it."""
    seen = {}
    for node in api.nodes:
        for entry in node.properties:
            if entry.values is not None:
                seen[values_name(entry)] = entry.values
    for name, values in seen.items():
        yield "constexpr const char *%s[] = {%s, nullptr};" % (
            name, ", ".join('"%s"' % value for value in values))


def life_functions(api, node):
    name = item_type(api, node)
    yield from ["", "void initialise(%s *obj)" % name, "{", "    *obj = {};"]
    for entry in node.properties:
        yield "    " + initialiser(entry)
    yield from ["}", "", "void deinitialise(%s *obj)" % name, "{"]
    for entry in node.properties:
        yield "    dbh_%s_deinit(&obj->%s);" % (entry.type, entry.name)
    yield "}"


def import_life_functions(api, node):
    name = import_type(api, node)
    yield from ["", "void initialise(%s *obj)" % name, "{"]
    if node.is_collection:
        yield "    *obj = {g_queue_new(), nullptr};"
    else:
        if node.importable:
            yield "    initialise(&obj->data);"
        for child in node.children:
            yield "    initialise(&obj->%s);" % child.name
    yield from ["}", "", "void deinitialise(%s *obj)" % name, "{"]
    if node.is_collection:
        yield "    g_queue_free_full(obj->items, [](gpointer item) {"
        yield "        deinitialise(static_cast<%s *>(item));" % item_type(api, node)
        yield "        std::free(item);"
        yield "    });"
    else:
        if node.importable:
            yield "    deinitialise(&obj->data);"
        for child in node.children:
            yield "    deinitialise(&obj->%s);" % child.name
    yield "}"


def answer_functions(api, node):
    name = item_type(api, node)
    yield from ["", "bool isFilled(const %s &obj, dbh_api_error_t **error)" % name, "{"]
    checks = ['requireSet(dbh_%s_is_set(&obj.%s), "%s.%s", error)'
              % (entry.type, entry.name, node.text, entry.name) for entry in node.properties]
    yield "    return " + " &&\n           ".join(checks) + ";"
    yield "}"
    omit = any(entry.read_only for entry in node.properties)
    yield from ["", "json_t *serialise(const %s &obj, bool %s, dbh_api_error_t **error)"
                % (name, "omitReadOnly" if omit else "/*omitReadOnly*/"), "{",
                "    json_t *json = json_object();"]
    writes = []
    for entry in node.properties:
        write = 'writeField(json, "{0}", dbh_{1}_serialize(&obj.{0}), error)'.format(
            entry.name, entry.type)
        writes.append("(omitReadOnly || %s)" % write if entry.read_only else write)
    yield "    if (%s) {" % " &&\n        ".join(writes)
    yield from ["        return json;", "    }", "    json_decref(json);", "    return nullptr;", "}"]


def reader(api, node, function, context, entries, required):
    """A function that reads an item of these properties from an object."""
    names = ['"%s"' % entry.name for entry in entries] + ["nullptr"]
    steps = ['isObject(json, "%s", error)' % context,
             '!dbh_json_object_contains_unexpected_field(json, "%s", ALLOWED, error)' % context]
    steps += ['readField(json, "{0}", &obj->{0}, &obj->{0}Present, error)'.format(entry.name)
              for entry in entries]
    steps += ['requirePresent(obj->%s, "%s", "%s", error)'
              % (entry.name + "Present", context, entry.name) for entry in required]
    yield from ["", "bool %s(const json_t *json, %s *obj, dbh_api_error_t **error)"
                % (function, item_type(api, node)), "{",
                "    static constexpr const char *ALLOWED[] = {%s};" % ", ".join(names),
                "    return %s;" % " &&\n           ".join(steps), "}"]


def request_readers(api, node):
    if "set" in node.operations:
        yield from reader(api, node, "readSet", "Set " + node.text, node.writable, [])
    if "add" in node.operations:
        required = [entry for entry in node.properties if entry.required_to_add]
        yield from reader(api, node, "readAdd", "Add item to " + node.text, node.writable, required)


def collection_import_reader(api, node):
    yield from reader(api, node, "readImportItem", "Import item to " + node.text, node.importable,
                      [node.key])
    item = item_type(api, node)
    yield """
bool readImport(const json_t *json, %(list)s *obj, dbh_api_error_t **error)
{
    if (json == nullptr) {
        return true;
    }
    if (!isArray(json, "Import %(text)s", error)) {
        return false;
    }
    for (std::size_t index = 0; index < json_array_size(json); ++index) {
        auto *item = static_cast<%(item)s *>(std::malloc(sizeof(%(item)s)));
        g_assert(item != nullptr);
        initialise(item);
        g_queue_push_tail(obj->items, item);
        if (!readImportItem(json_array_get(json, index), item, error)) {
            return false;
        }
    }
    obj->cursor = g_queue_peek_head_link(obj->items);
    return true;
}""" % {"list": import_type(api, node), "item": item, "text": node.text}


def object_import_reader(api, node):
    """The root must be there, an object below it need not."""
    context = "Import " + node.name
    names = ['"%s"' % part.name for part in [*node.importable, *node.children]] + ["nullptr"]
    steps = ['isObject(json, "%s", error)' % context,
             '!dbh_json_object_contains_unexpected_field(json, "%s", ALLOWED, error)' % context]
    steps += ['readField(json, "{0}", &obj->data.{0}, &obj->data.{0}Present, error)'.format(
        entry.name) for entry in node.importable]
    steps += ['readImport(json_object_get(json, "{0}"), &obj->{0}, error)'.format(child.name)
              for child in node.children]
    absent = [] if node.parent is None else ["    if (json == nullptr) {", "        return true;",
                                             "    }"]
    yield from ["", "bool readImport(const json_t *json, %s *obj, dbh_api_error_t **error)"
                % import_type(api, node), "{",
                "    static constexpr const char *ALLOWED[] = {%s};" % ", ".join(names),
                *absent, "    return %s;" % " &&\n           ".join(steps), "}"]


def json_functions_of(api):
    yield ""
    yield from value_lists(api)
    for node in reversed(api.nodes):
        yield from life_functions(api, node)
        yield from import_life_functions(api, node)
        yield from answer_functions(api, node)
        yield from request_readers(api, node)
        if node.is_collection:
            yield from collection_import_reader(api, node)
        else:
            yield from object_import_reader(api, node)
