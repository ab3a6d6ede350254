#include "tovrelctl/document_check.h"

#include "tovrelctl/failure.h"
#include "tovrelctl/fields.h"

#include <glib.h>

#include <algorithm>
#include <charconv>
#include <set>
#include <string>

namespace tovrelctl {

namespace {

constexpr int LARGEST_ID = 255;
/** The name of the group of the service's file that is not a filter's. */
constexpr const char *RESERVED_ID = "common";

/** What an id of a collection has to be. */
struct IdRule {
    bool (*isId)(const std::string &id);
    const char *words;
};

[[noreturn]] void reject(const std::string &place, const std::string &what)
{
    throw Failure(place + ": " + what);
}

/** Items stand in lines of their file, and are found by the number that their id begins with. */
bool isItemId(const std::string &id)
{
    int number = 0;
    const auto read = std::from_chars(id.data(), id.data() + id.size(), number);
    return read.ec == std::errc() && number >= 0 && number <= LARGEST_ID &&
           id.find('\n') == std::string::npos;
}

/** Filters stand in groups of their file, named by their ids. */
bool isFilterId(const std::string &id)
{
    const auto breaksName = [](char each) {
        return each == '[' || each == ']' || g_ascii_iscntrl(each);
    };
    return !id.empty() && id != RESERVED_ID && std::ranges::none_of(id, breaksName);
}

constexpr IdRule ITEM_ID{isItemId,
                         "a text that begins with a number from 0 to 255 and has no line feed"};
constexpr IdRule FILTER_ID{
    isFilterId,
    "a text, for example \"0\", that is neither empty nor \"common\" and has no brackets "
    "or control characters"};

std::string namesOf(Fields fields, const std::set<std::string_view> &others)
{
    std::string text;
    for (const Field &field : fields) {
        text += (text.empty() ? "" : ", ") + std::string(field.name);
    }
    for (const std::string_view name : others) {
        text += (text.empty() ? "" : ", ") + std::string(name);
    }
    return text;
}

/** Fields of an object against those it may have; `others` are looked at elsewhere. */
void checkFields(const json_t *object, Fields fields, const std::set<std::string_view> &others,
                 const std::string &place)
{
    if (!json_is_object(object)) {
        reject(place, "a JSON object is expected");
    }
    const char *name = nullptr;
    json_t *value = nullptr;
    json_object_foreach(const_cast<json_t *>(object), name, value)
    {
        const Field *const field = findField(fields, name);
        if (field == nullptr && !others.contains(name)) {
            reject(place, "unknown field '" + std::string(name) + "', expected one of " +
                              namesOf(fields, others));
        }
        if (field != nullptr && !fits(*field, value)) {
            reject(place + "." + name, expectation(*field) + " is expected");
        }
    }
}

void checkId(const json_t *item, const IdRule &rule, const std::string &place)
{
    const json_t *const id = json_object_get(item, ID.name);
    if (id == nullptr) {
        reject(place, "'id' is missing");
    }
    if (!json_is_string(id) || !rule.isId(textOf(item, ID.name))) {
        reject(place, std::string("'id' has to be ") + rule.words);
    }
}

/** `items` may be null. */
void checkItems(const json_t *items, Fields fields, const IdRule &rule, const std::string &place)
{
    if (items != nullptr && !json_is_array(items)) {
        reject(place, "a JSON array is expected");
    }
    std::set<std::string> ids;
    for (const json_t *item : valuesOf(items)) {
        const std::string here = place + "[" + std::to_string(ids.size()) + "]";
        checkFields(item, fields, {ID.name}, here);
        checkId(item, rule, here);
        const std::string id = textOf(item, ID.name);
        if (!ids.insert(id).second) {
            reject(here, "the id " + id + " stands twice");
        }
    }
}

void checkOneLine(const json_t *items, const std::string &place)
{
    for (const json_t *item : valuesOf(items)) {
        if (textOf(item, "topicFilter").find('\n') != std::string::npos) {
            reject(place + " " + textOf(item, ID.name),
                   "a topic filter with a line feed is not possible");
        }
    }
}

} // namespace

void checkDocument(const json_t *document)
{
    checkFields(document, {}, {"subscription", "publication"}, "document");
    const json_t *const items = json_object_get(document, "subscription");
    checkItems(items, SUBSCRIPTION_FIELDS, ITEM_ID, "subscription");
    checkOneLine(items, "subscription");
    const json_t *const publication = json_object_get(document, "publication");
    if (publication == nullptr) {
        return;
    }
    checkFields(publication, SETTINGS, {"eventFilter"}, "publication");
    checkItems(json_object_get(publication, "eventFilter"), FILTER_FIELDS, FILTER_ID,
               "publication.eventFilter");
}

} // namespace tovrelctl
