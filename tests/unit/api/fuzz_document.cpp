#include "unit/api/fuzz_document.h"

#include "support/fuzz.h"

#include <jansson.h>

#include <cstdio>
#include <cstdlib>
#include <map>

using test_support::require;

namespace tovrel::test {

namespace {

/** The items of a list by their keys, in the order in which they are exported. */
using ItemsByKey = std::map<std::string, OwnedJson>;

OwnedJson parsed(std::string_view text)
{
    OwnedJson json(json_loadb(text.data(), text.size(), JSON_DECODE_ANY | JSON_ALLOW_NUL, nullptr));
    require(json != nullptr, "only JSON is answered or taken over");
    return json;
}

std::string keyOf(const json_t *item)
{
    const json_t *const id = json_object_get(item, "id");
    require(json_is_string(id), "an item has a key");
    return {json_string_value(id), json_string_length(id)};
}

ItemsByKey itemsByKey(const json_t *list)
{
    ItemsByKey items;
    for (std::size_t index = 0; index < json_array_size(list); ++index) {
        json_t *const item = json_array_get(list, index);
        items[keyOf(item)] = OwnedJson(json_deep_copy(item));
    }
    return items;
}

OwnedJson listOf(const ItemsByKey &items)
{
    OwnedJson list(json_array());
    for (const auto &[key, item] : items) {
        json_array_append(list.get(), item.get());
    }
    return list;
}

OwnedJson newFilter()
{
    return OwnedJson(
        json_pack("{s:s, s:s, s:s}", "topicFilter", "", "qos", "QOS_0", "retain", "property"));
}

OwnedJson newItem()
{
    return OwnedJson(json_pack("{s:s, s:s, s:b, s:b}", "topicFilter", "", "qos", "QOS_0",
                               "isStateData", 0, "useDeviceTopicPrefix", 0));
}

/** A filter keeps what the import leaves out. */
OwnedJson importedFilters(const json_t *before, const json_t *list)
{
    ItemsByKey filters = itemsByKey(before);
    for (std::size_t index = 0; index < json_array_size(list); ++index) {
        json_t *const item = json_array_get(list, index);
        OwnedJson &filter = filters[keyOf(item)];
        if (!filter) {
            filter = newFilter();
        }
        json_object_update(filter.get(), item);
    }
    return listOf(filters);
}

/** An MQTT-to-event item is replaced whole. */
OwnedJson importedItems(const json_t *before, const json_t *list)
{
    ItemsByKey items = itemsByKey(before);
    for (std::size_t index = 0; index < json_array_size(list); ++index) {
        json_t *const item = json_array_get(list, index);
        OwnedJson &place = items[keyOf(item)];
        place = newItem();
        json_object_update(place.get(), item);
    }
    return listOf(items);
}

} // namespace

OwnedJson dataOf(const std::string &answer)
{
    const OwnedJson json = parsed(answer);
    json_t *const data = json_object_get(json.get(), "data");
    require(data != nullptr, answer.c_str());
    return OwnedJson(json_incref(data));
}

std::string textOf(const OwnedJson &document)
{
    char *const text = json_dumps(document.get(), JSON_COMPACT | JSON_ENCODE_ANY);
    std::string result = text;
    std::free(text);
    return result;
}

void requireEqual(const OwnedJson &document, const OwnedJson &expected, const char *what)
{
    if (json_equal(document.get(), expected.get()) == 0) {
        std::fprintf(stderr, "is       %s\nexpected %s\n", textOf(document).c_str(),
                     textOf(expected).c_str());
        require(false, what);
    }
}

OwnedJson imported(const OwnedJson &before, std::string_view document)
{
    const OwnedJson change = parsed(document);
    OwnedJson result(json_deep_copy(before.get()));
    json_t *const publication = json_object_get(result.get(), "publication");
    const json_t *const publicationChange = json_object_get(change.get(), "publication");

    OwnedJson filters = importedFilters(json_object_get(publication, "eventFilter"),
                                        json_object_get(publicationChange, "eventFilter"));
    if (publicationChange != nullptr) {
        json_object_update(publication, const_cast<json_t *>(publicationChange));
    }
    json_object_set_new(publication, "eventFilter", filters.release());
    json_object_set_new(result.get(), "subscription",
                        importedItems(json_object_get(result.get(), "subscription"),
                                      json_object_get(change.get(), "subscription"))
                            .release());
    return result;
}

} // namespace tovrel::test
