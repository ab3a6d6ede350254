#include "tovrelctl/document_changes.h"

#include "tovrelctl/fields.h"

#include <algorithm>
#include <map>
#include <string_view>
#include <utility>

namespace tovrelctl {

namespace {

/** Ids as people count: 2 before 10. */
struct ById {
    bool operator()(const std::string &one, const std::string &other) const
    {
        return std::pair(one.size(), std::string_view(one)) <
               std::pair(other.size(), std::string_view(other));
    }
};

using Items = std::map<std::string, json_t *, ById>;

/** Where items stand in a document, and what they have. */
struct Collection {
    const char *parent;
    const char *name;
    /** The word for one of them. */
    const char *word;
    Fields fields;
    /** Whether an import keeps the fields that it leaves out of an item that is there. */
    bool keepsFields;
};

constexpr Collection FILTERS{"publication", "eventFilter", "filter", FILTER_FIELDS, true};
constexpr Collection SUBSCRIPTIONS{nullptr, "subscription", "subscription", SUBSCRIPTION_FIELDS,
                                   false};

const json_t *arrayOf(const json_t *document, const Collection &collection)
{
    const json_t *const parent =
        collection.parent == nullptr ? document : json_object_get(document, collection.parent);
    return json_object_get(parent, collection.name);
}

Items itemsOf(const json_t *document, const Collection &collection)
{
    const json_t *const array = arrayOf(document, collection);
    Items items;
    for (std::size_t index = 0; index < json_array_size(array); ++index) {
        json_t *const item = json_array_get(array, index);
        items.emplace(textOf(item, ID.name), item);
    }
    return items;
}

json_t *settingOf(const json_t *document, const Field &field)
{
    return json_object_get(json_object_get(document, "publication"), field.name);
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
    const bool isRetain = std::string_view(field.name) == "retain";
    return textValue(isRetain ? "property" : field.choices.front());
}

/** All fields of an item: those given, those of `base` (may be null), defaults. */
Json completed(const json_t *item, const json_t *base, Fields fields)
{
    Json result = owned(json_object());
    put(result.get(), ID.name, textValue(textOf(item, ID.name)));
    for (const Field &field : fields) {
        json_t *value = json_object_get(item, field.name);
        value = value != nullptr ? value : json_object_get(base, field.name);
        put(result.get(), field.name, value != nullptr ? share(value) : defaultOf(field));
    }
    return result;
}

Json merged(const json_t *current, const json_t *imported, const Collection &collection)
{
    std::map<std::string, Json, ById> result;
    const Items before = itemsOf(current, collection);
    for (const auto &[id, item] : before) {
        result[id] = share(item);
    }
    for (const auto &[id, item] : itemsOf(imported, collection)) {
        const auto known = before.find(id);
        const bool keeps = collection.keepsFields && known != before.end();
        result[id] = completed(item, keeps ? known->second : nullptr, collection.fields);
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

bool isEqual(const json_t *one, const json_t *other, Fields fields)
{
    return std::ranges::all_of(fields, [one, other](const Field &field) {
        return json_equal(json_object_get(one, field.name), json_object_get(other, field.name)) !=
               0;
    });
}

void compareItems(const json_t *before, const json_t *after, const Collection &collection,
                  std::vector<Change> &changes)
{
    const std::string word = std::string(collection.word) + " ";
    const Items old = itemsOf(before, collection);
    const Items now = itemsOf(after, collection);
    for (const auto &[id, item] : old) {
        const auto kept = now.find(id);
        if (kept == now.end()) {
            changes.push_back({word + id, share(item), Json()});
        } else if (!isEqual(item, kept->second, collection.fields)) {
            changes.push_back({word + id, share(item), share(kept->second)});
        }
    }
    for (const auto &[id, item] : now) {
        if (!old.contains(id)) {
            changes.push_back({word + id, Json(), share(item)});
        }
    }
}

/**
 * The items that are different, and behind them those that are new: the service refuses an item
 * when there are as many as there can be, even one that replaces another.
 */
Json addedItems(const json_t *before, const json_t *after, const Collection &collection)
{
    const Items old = itemsOf(before, collection);
    Json array = owned(json_array());
    std::vector<json_t *> added;
    for (const auto &[id, item] : itemsOf(after, collection)) {
        const auto known = old.find(id);
        if (known == old.end()) {
            added.push_back(item);
        } else if (!isEqual(known->second, item, collection.fields)) {
            append(array.get(), share(item));
        }
    }
    for (json_t *item : added) {
        append(array.get(), share(item));
    }
    return array;
}

void putUnlessEmpty(const Json &object, const char *name, Json value)
{
    if (json_array_size(value.get()) + json_object_size(value.get()) > 0) {
        put(object.get(), name, std::move(value));
    }
}

/** The members of an item, without its id; those that differ from `other` if that is not null. */
std::string memberList(const json_t *item, const json_t *other)
{
    std::string text;
    const char *name = nullptr;
    json_t *value = nullptr;
    json_object_foreach(const_cast<json_t *>(item), name, value)
    {
        const json_t *const now = json_object_get(other, name);
        if (name == std::string_view(ID.name) || (now != nullptr && json_equal(value, now) != 0)) {
            continue;
        }
        text += (text.empty() ? "" : ", ") + std::string(name) + " " + dump(value, false);
        text += now == nullptr ? "" : " -> " + dump(now, false);
    }
    return text;
}

} // namespace

Json predict(const json_t *current, const json_t *imported, bool replace)
{
    const Json fresh = freshConfiguration();
    const json_t *const base = replace ? fresh.get() : current;
    Json publication = owned(json_object());
    for (const Field &field : SETTINGS) {
        json_t *const value = settingOf(imported, field);
        put(publication.get(), field.name,
            share(value != nullptr ? value : settingOf(base, field)));
    }
    put(publication.get(), FILTERS.name, merged(base, imported, FILTERS));

    Json result = owned(json_object());
    put(result.get(), SUBSCRIPTIONS.name, merged(base, imported, SUBSCRIPTIONS));
    put(result.get(), FILTERS.parent, std::move(publication));
    return result;
}

std::vector<Change> differences(const json_t *before, const json_t *after)
{
    std::vector<Change> changes;
    for (const Field &field : SETTINGS) {
        json_t *const old = settingOf(before, field);
        json_t *const now = settingOf(after, field);
        if (json_equal(old, now) == 0) {
            changes.push_back({field.name, share(old), share(now)});
        }
    }
    compareItems(before, after, FILTERS, changes);
    compareItems(before, after, SUBSCRIPTIONS, changes);
    return changes;
}

Json additions(const json_t *before, const json_t *after)
{
    Json publication = owned(json_object());
    for (const Field &field : SETTINGS) {
        json_t *const value = settingOf(after, field);
        if (value != nullptr && json_equal(settingOf(before, field), value) == 0) {
            put(publication.get(), field.name, share(value));
        }
    }
    putUnlessEmpty(publication, FILTERS.name, addedItems(before, after, FILTERS));
    Json result = owned(json_object());
    putUnlessEmpty(result, SUBSCRIPTIONS.name, addedItems(before, after, SUBSCRIPTIONS));
    putUnlessEmpty(result, FILTERS.parent, std::move(publication));
    return result;
}

std::string describe(const Change &change)
{
    const bool isSetting =
        !json_is_object(change.before ? change.before.get() : change.after.get());
    if (isSetting) {
        return "~ " + change.what + ": " + dump(change.before.get(), false) + " -> " +
               dump(change.after.get(), false);
    }
    if (!change.before) {
        return "+ " + change.what + ": " + memberList(change.after.get(), nullptr);
    }
    const char *const sign = change.after ? "~ " : "- ";
    return sign + change.what + ": " + memberList(change.before.get(), change.after.get());
}

} // namespace tovrelctl
