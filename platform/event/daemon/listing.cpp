#include "event/daemon/listing.h"

#include "event/daemon/limits.h"
#include "event/daemon/match_table.h"

#include <norq/event_producer.h>

#include <jansson.h>

#include <cstdlib>
#include <memory>
#include <new>
#include <string_view>

namespace norq::event {
namespace {

struct Dereference {
    void operator()(json_t *value) const noexcept { json_decref(value); }
};
using Json = std::unique_ptr<json_t, Dereference>;

/** Takes over a new value. All texts were checked before, so only memory can be missing. */
Json owned(json_t *value)
{
    if (value == nullptr) {
        throw std::bad_alloc();
    }
    return Json(value);
}

void check(int result)
{
    if (result != 0) {
        throw std::bad_alloc();
    }
}

void put(const Json &object, const char *name, Json value)
{
    check(json_object_set_new(object.get(), name, value.release()));
}

void append(const Json &array, Json value)
{
    check(json_array_append_new(array.get(), value.release()));
}

Json textOf(std::string_view text)
{
    return owned(json_stringn(text.data(), text.size()));
}

Json valueOf(const Value &value)
{
    switch (value.type()) {
    case EVENT_VALUE_INT:
        return owned(json_integer(value.integer()));
    case EVENT_VALUE_BOOLEAN:
        return owned(json_boolean(value.boolean()));
    case EVENT_VALUE_DOUBLE:
        return owned(json_real(value.number()));
    case EVENT_VALUE_STRING:
        break;
    }
    return textOf(value.text());
}

void putText(const Json &object, const char *name, const std::string &text)
{
    if (!text.empty()) {
        put(object, name, textOf(text));
    }
}

Json keyOf(const DeclaredKey &key, bool isState)
{
    Json object = owned(json_object());
    put(object, "key", textOf(key.name));
    put(object, "type", textOf(nameOfType(key.type)));
    put(object, "state", owned(json_boolean(isState)));
    if (key.fixed) {
        put(object, "value", valueOf(*key.fixed));
    }
    putText(object, "namespace", key.nameSpace);
    putText(object, "niceName", key.niceName);
    putText(object, "valueNiceName", key.valueNiceName);
    if (!key.tags.empty()) {
        Json tags = owned(json_array());
        for (const std::string &tag : key.tags) {
            append(tags, textOf(tag));
        }
        put(object, "tags", std::move(tags));
    }
    return object;
}

Json declarationOf(const Client &client, std::uint32_t id, const DeclarationRecord &record)
{
    const Declaration &declaration = record.published->declaration;
    Json keys = owned(json_array());
    for (std::size_t index = 0; index < declaration.keys().size(); ++index) {
        append(keys, keyOf(declaration.keys()[index], declaration.property() == index));
    }
    Json object = owned(json_object());
    put(object, "client", textOf(client.name));
    put(object, "id", owned(json_integer(id)));
    put(object, "internal",
        owned(json_boolean((declaration.flags() & EVENT_DECLARATION_INTERNAL) != 0)));
    put(object, "property", owned(json_boolean(declaration.isProperty())));
    put(object, "held", owned(json_boolean(record.kept != nullptr)));
    put(object, "keys", std::move(keys));
    return object;
}

int appendTo(const char *buffer, std::size_t size, void *target)
{
    auto &text = *static_cast<std::string *>(target);
    if (text.size() + size > MAX_LISTING) {
        return -1;
    }
    try {
        text.append(buffer, size);
    } catch (const std::bad_alloc &) {
        return -1;
    }
    return 0;
}

} // namespace

std::optional<std::string> listDeclarations(const std::vector<Client *> &clients,
                                            const Expression &expression)
{
    std::string text = "[";
    for (const Client *client : clients) {
        for (const auto &[id, record] : client->declarations) {
            if (!reduce(expression, record.published->declaration)) {
                continue;
            }
            if (text.size() > 1) {
                text += ',';
            }
            const Json object = declarationOf(*client, id, record);
            if (json_dump_callback(object.get(), appendTo, &text, JSON_COMPACT) != 0) {
                return std::nullopt;
            }
        }
    }
    text += ']';
    return text;
}

} // namespace norq::event
