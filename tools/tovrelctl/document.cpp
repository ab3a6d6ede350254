#include "tovrelctl/document.h"

#include "tovrelctl/failure.h"
#include "tovrelctl/settings.h"

#include <map>
#include <set>
#include <span>

namespace tovrelctl {

namespace {

constexpr std::size_t MOST_ITEMS = 256;

using Fields = std::span<const Field>;

const Field *findField(Fields fields, const std::string &name)
{
    for (const Field &field : fields) {
        if (name == field.name) {
            return &field;
        }
    }
    return nullptr;
}

/** A number from 0 to 255 as the service itself writes it. */
bool isPlainId(const std::string &id)
{
    if (id.empty() || id.size() > 3 || id.find_first_not_of("0123456789") != std::string::npos) {
        return false;
    }
    return (id == "0" || id.front() != '0') && std::stoul(id) < MOST_ITEMS;
}

[[noreturn]] void complain(const std::string &place, const std::string &what)
{
    throw Failure(place + ": " + what);
}

/** Fields of an object against those it may have; `others` are looked at elsewhere. */
void checkFields(const json_t *object, Fields fields, const std::set<std::string> &others,
                 const std::string &place)
{
    if (!json_is_object(object)) {
        complain(place, "a JSON object is expected");
    }
    const char *name = nullptr;
    json_t *value = nullptr;
    json_object_foreach(const_cast<json_t *>(object), name, value)
    {
        if (others.contains(name)) {
            continue;
        }
        const Field *const field = findField(fields, name);
        if (field == nullptr) {
            complain(place, "unknown field '" + std::string(name) + "'");
        }
        if (!fits(*field, value)) {
            complain(place + "." + name, expectation(*field) + " is expected");
        }
    }
}

void checkItems(const json_t *items, Fields fields, const std::string &place)
{
    if (items == nullptr) {
        return;
    }
    if (!json_is_array(items)) {
        complain(place, "a JSON array is expected");
    }
    if (json_array_size(items) > MOST_ITEMS) {
        complain(place, "there are more than 256 items");
    }
    std::set<std::string> ids;
    for (std::size_t index = 0; index < json_array_size(items); ++index) {
        const json_t *const item = json_array_get(items, index);
        const std::string here = place + "[" + std::to_string(index) + "]";
        checkFields(item, fields, {"id"}, here);
        const std::string id = textOf(item, "id");
        if (!isPlainId(id)) {
            complain(here, "'id' has to be a text with a number from 0 to 255");
        }
        if (!ids.insert(id).second) {
            complain(here, "the id " + id + " stands twice");
        }
        if (textOf(item, "topicFilter").find('\n') != std::string::npos) {
            complain(here + ".topicFilter", "a line feed is not possible");
        }
    }
}

/** The value of a field that is missing in an imported item. */
Json defaultOf(const Field &field)
{
    switch (field.kind) {
    case Kind::TEXT:
        return textValue("");
    case Kind::TRUTH:
        return owned(json_false());
    case Kind::CHOICE:
        break;
    }
    const bool isRetain = std::string(field.name) == "retain";
    return textValue(isRetain ? "property" : field.choices.front());
}

/** All fields of an item: those given, those of `base` (may be null), defaults. */
Json completed(const json_t *item, const json_t *base, Fields fields)
{
    Json result = owned(json_object());
    put(result.get(), "id", textValue(textOf(item, "id")));
    for (const Field &field : fields) {
        json_t *value = json_object_get(item, field.name);
        if (value == nullptr) {
            value = json_object_get(base, field.name);
        }
        put(result.get(), field.name, value != nullptr ? share(value) : defaultOf(field));
    }
    return result;
}

using Items = std::map<std::string, const json_t *>;

Items itemsById(const json_t *array)
{
    Items items;
    for (std::size_t index = 0; index < json_array_size(array); ++index) {
        const json_t *const item = json_array_get(array, index);
        items.emplace(textOf(item, "id"), item);
    }
    return items;
}

/** Items after an import. One that is there already is kept where it is not mentioned, or not. */
Json mergedItems(const json_t *current, const json_t *imported, Fields fields, bool keepsFields)
{
    std::map<std::string, Json> result;
    const Items before = itemsById(current);
    for (const auto &[id, item] : before) {
        result[id] = completed(item, nullptr, fields);
    }
    for (const auto &[id, item] : itemsById(imported)) {
        const auto known = before.find(id);
        const json_t *const base = keepsFields && known != before.end() ? known->second : nullptr;
        result[id] = completed(item, base, fields);
    }
    Json array = owned(json_array());
    for (auto &[id, item] : result) {
        append(array.get(), std::move(item));
    }
    return array;
}

Json freshConfiguration()
{
    return owned(json_pack("{s:[],s:{s:s,s:s,s:b,s:b,s:b,s:[]}}", "subscription", "publication",
                           "topicPrefix", "default", "customTopicPrefix", "", "appendEventTopic", 1,
                           "includeTopicNamespaces", 1, "includeSerialNumberInPayload", 0,
                           "eventFilter"));
}

/** An item without its id, on one line. */
std::string describe(const json_t *item, Fields fields)
{
    std::string text;
    for (const Field &field : fields) {
        const json_t *const value = json_object_get(item, field.name);
        text += (text.empty() ? "" : ", ") + std::string(field.name) + " " + dump(value, false);
    }
    return text;
}

void compareItems(const json_t *before, const json_t *after, Fields fields, const char *word,
                  std::vector<Change> &changes)
{
    const Items old = itemsById(before);
    const Items now = itemsById(after);
    for (const auto &[id, item] : old) {
        const std::string what = std::string(word) + " " + id;
        const auto kept = now.find(id);
        if (kept == now.end()) {
            changes.push_back({what, describe(item, fields), std::nullopt});
        } else if (describe(item, fields) != describe(kept->second, fields)) {
            changes.push_back({what, describe(item, fields), describe(kept->second, fields)});
        }
    }
    for (const auto &[id, item] : now) {
        if (!old.contains(id)) {
            changes.push_back({std::string(word) + " " + id, std::nullopt, describe(item, fields)});
        }
    }
}

} // namespace

void checkDocument(const json_t *document)
{
    checkFields(document, {}, {"subscription", "publication"}, "document");
    checkItems(json_object_get(document, "subscription"), SUBSCRIPTION_FIELDS, "subscription");
    const json_t *const publication = json_object_get(document, "publication");
    if (publication != nullptr) {
        checkFields(publication, SETTINGS, {"eventFilter"}, "publication");
        checkItems(json_object_get(publication, "eventFilter"), FILTER_FIELDS,
                   "publication.eventFilter");
    }
}

Json predict(const json_t *current, const json_t *imported, bool replace)
{
    const Json base = replace ? freshConfiguration() : share(const_cast<json_t *>(current));
    const json_t *const publication = json_object_get(base.get(), "publication");
    const json_t *const imports = json_object_get(imported, "publication");

    Json newPublication = owned(json_object());
    for (const Field &field : SETTINGS) {
        json_t *value = json_object_get(imports, field.name);
        value = value != nullptr ? value : json_object_get(publication, field.name);
        put(newPublication.get(), field.name, share(value));
    }
    put(newPublication.get(), "eventFilter",
        mergedItems(json_object_get(publication, "eventFilter"),
                    json_object_get(imports, "eventFilter"), FILTER_FIELDS, true));

    Json result = owned(json_object());
    put(result.get(), "subscription",
        mergedItems(json_object_get(base.get(), "subscription"),
                    json_object_get(imported, "subscription"), SUBSCRIPTION_FIELDS, false));
    put(result.get(), "publication", std::move(newPublication));
    return result;
}

std::vector<Change> differences(const json_t *before, const json_t *after)
{
    const json_t *const old = json_object_get(before, "publication");
    const json_t *const now = json_object_get(after, "publication");
    std::vector<Change> changes;
    for (const Field &field : SETTINGS) {
        const std::string was = dump(json_object_get(old, field.name), false);
        const std::string is = dump(json_object_get(now, field.name), false);
        if (was != is) {
            changes.push_back({field.name, was, is});
        }
    }
    compareItems(json_object_get(old, "eventFilter"), json_object_get(now, "eventFilter"),
                 FILTER_FIELDS, "filter", changes);
    compareItems(json_object_get(before, "subscription"), json_object_get(after, "subscription"),
                 SUBSCRIPTION_FIELDS, "subscription", changes);
    return changes;
}

} // namespace tovrelctl
