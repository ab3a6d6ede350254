#include "tovrelctl/import_steps.h"

#include "tovrelctl/answer.h"
#include "tovrelctl/document_changes.h"
#include "tovrelctl/failure.h"
#include "tovrelctl/held_signals.h"
#include "tovrelctl/items.h"
#include "tovrelctl/printable.h"

#include <algorithm>
#include <utility>

namespace tovrelctl {

namespace {

/** The old forms of the filters that an import changes. */
std::vector<json_t *> changedFilters(const Json &before, const json_t *added)
{
    const auto filtersOf = [](const json_t *document) {
        return json_object_get(json_object_get(document, "publication"), "eventFilter");
    };
    std::vector<json_t *> changed;
    for (const json_t *filter : valuesOf(filtersOf(added))) {
        for (std::size_t index = 0; index < json_array_size(filtersOf(before.get())); ++index) {
            json_t *const old = json_array_get(filtersOf(before.get()), index);
            if (textOf(old, ID.name) == textOf(filter, ID.name)) {
                changed.push_back(old);
            }
        }
    }
    return changed;
}

/** Puts those back that are not there. */
void putBack(Service &service, std::vector<json_t *> filters)
{
    const Json there = service.request({.operation = "listKeys", .path = filterPath()});
    requireItems(there.get(), FILTER_FIELDS);
    std::erase_if(filters, [&](const json_t *filter) {
        return std::ranges::any_of(valuesOf(there.get()), [&](const json_t *item) {
            return textOf(item, ID.name) == textOf(filter, ID.name);
        });
    });
    if (!filters.empty()) {
        service.request({.operation = "import", .data = documentWithFilters(filters)});
    }
}

/** Puts filters back; gives what a person has to know. */
std::string tryToPutBack(Service &service, const std::vector<json_t *> &filters)
{
    try {
        putBack(service, filters);
        return {};
    } catch (const Failure &failure) {
        std::string text = "These may be missing now (" + printable(failure.what()) + "):";
        for (json_t *filter : filters) {
            text +=
                "\n" +
                printable(describe({"filter " + textOf(filter, ID.name), share(filter), Json()}));
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
    Json array = owned(json_array());
    for (json_t *filter : filters) {
        append(array.get(), share(filter));
    }
    Json publication = owned(json_object());
    put(publication.get(), "eventFilter", std::move(array));
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
    const std::vector<json_t *> old = changedFilters(before, added.get());
    const HeldSignals held;
    try {
        for (const json_t *filter : old) {
            service.request(
                {.operation = "remove", .path = below(filterPath(), textOf(filter, ID.name))});
        }
        service.request({.operation = "import", .data = share(added.get())});
    } catch (Failure &failure) {
        failure.addAdvice(old.empty() ? "" : tryToPutBack(service, old));
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
