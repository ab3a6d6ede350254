#include "tovrelctl/import_steps.h"

#include "tovrelctl/answer.h"
#include "tovrelctl/document_changes.h"
#include "tovrelctl/failure.h"
#include "tovrelctl/held_signals.h"
#include "tovrelctl/items.h"
#include "tovrelctl/printable.h"

#include <algorithm>
#include <array>
#include <utility>

namespace tovrelctl {

namespace {

/** Items of one collection that are taken out to be put in again, as they were. */
struct TakenOut {
    const char *word;
    Path path;
    Fields fields;
    Json (*document)(const std::vector<json_t *> &items);
    std::vector<json_t *> items{};
};

json_t *filtersOf(const Json &document)
{
    return json_object_get(json_object_get(document.get(), "publication"), "eventFilter");
}

json_t *subscriptionsOf(const Json &document)
{
    return json_object_get(document.get(), "subscription");
}

Json arrayOf(const std::vector<json_t *> &items)
{
    Json array = owned(json_array());
    for (json_t *item : items) {
        append(array.get(), share(item));
    }
    return array;
}

Json documentWithSubscriptions(const std::vector<json_t *> &items)
{
    Json document = owned(json_object());
    put(document.get(), "subscription", arrayOf(items));
    return document;
}

/** The old forms, in `before`, of those that are in `added`, in the order of the latter. */
std::vector<json_t *> oldForms(json_t *before, const json_t *added)
{
    std::vector<json_t *> old;
    for (const json_t *item : valuesOf(added)) {
        for (std::size_t index = 0; index < json_array_size(before); ++index) {
            json_t *const known = json_array_get(before, index);
            if (textOf(known, ID.name) == textOf(item, ID.name)) {
                old.push_back(known);
            }
        }
    }
    return old;
}

TakenOut changedFilters(const Json &before, const Json &added)
{
    return {"filter", filterPath(), FILTER_FIELDS, documentWithFilters,
            oldForms(filtersOf(before), filtersOf(added))};
}

/** The subscription that makes room for the import of all that change: the last of them. */
TakenOut subscriptionInTheWay(const Json &before, const Json &after, const Json &added)
{
    TakenOut one{"subscription", subscriptionPath(), SUBSCRIPTION_FIELDS,
                 documentWithSubscriptions};
    const std::vector<json_t *> old = oldForms(subscriptionsOf(before), subscriptionsOf(added));
    // With new ones behind them there are too many, which the service is left to say.
    if (!old.empty() && json_array_size(subscriptionsOf(before)) == MOST_ITEMS &&
        json_array_size(subscriptionsOf(after)) == MOST_ITEMS) {
        one.items = {old.back()};
    }
    return one;
}

void takeOut(Service &service, const TakenOut &group)
{
    for (const json_t *item : group.items) {
        service.request({.operation = "remove", .path = below(group.path, textOf(item, ID.name))});
    }
}

/** Puts those back that are not there. */
void putBack(Service &service, const TakenOut &group)
{
    const Json there = service.request({.operation = "listKeys", .path = group.path});
    requireItems(there.get(), group.fields);
    std::vector<json_t *> missing = group.items;
    std::erase_if(missing, [&](const json_t *item) {
        return std::ranges::any_of(valuesOf(there.get()), [&](const json_t *known) {
            return textOf(known, ID.name) == textOf(item, ID.name);
        });
    });
    if (!missing.empty()) {
        service.request({.operation = "import", .data = group.document(missing)});
    }
}

/** Puts items back; gives what a person has to know. */
std::string tryToPutBack(Service &service, const TakenOut &group)
{
    if (group.items.empty()) {
        return {};
    }
    try {
        putBack(service, group);
        return {};
    } catch (const Failure &failure) {
        std::string text = "These may be missing now (" + printable(failure.what()) + "):";
        for (json_t *item : group.items) {
            const std::string name = std::string(group.word) + " " + textOf(item, ID.name);
            text += "\n" + printable(describe({name, share(item), Json()}));
        }
        return text;
    }
}

/** Undoes what a refused replacing import has done to the configuration, if anything. */
void putBack(Service &service, const Json &before, Refused &refusal)
{
    try {
        if (differences(before.get(), service.configuration().get()).empty()) {
            return;
        }
        service.request({.operation = "import", .data = share(before.get()), .replace = true});
    } catch (const Failure &failure) {
        refusal.addAdvice("What was there before could not be put back (" +
                          printable(failure.what()) +
                          ").\nIts files still have it: systemctl restart tovrel");
    }
}

} // namespace

Json documentWithFilters(const std::vector<json_t *> &filters)
{
    Json publication = owned(json_object());
    put(publication.get(), "eventFilter", arrayOf(filters));
    Json document = owned(json_object());
    put(document.get(), "publication", std::move(publication));
    return document;
}

void importChanges(Service &service, const Json &before, const Json &after)
{
    const Json added = additions(before.get(), after.get());
    if (json_object_size(added.get()) == 0) {
        return;
    }
    const std::array groups{subscriptionInTheWay(before, after, added),
                            changedFilters(before, added)};
    const HeldSignals held;
    try {
        for (const TakenOut &group : groups) {
            takeOut(service, group);
        }
        service.request({.operation = "import", .data = share(added.get())});
    } catch (Failure &failure) {
        for (const TakenOut &group : groups) {
            failure.addAdvice(tryToPutBack(service, group));
        }
        throw;
    }
}

void importReplacing(Service &service, const Json &before, const Json &document)
{
    const HeldSignals held;
    try {
        service.request({.operation = "import", .data = share(document.get()), .replace = true});
    } catch (Refused &refusal) {
        putBack(service, before, refusal);
        throw;
    }
}

} // namespace tovrelctl
