#include "tovrelctl/items.h"

#include "command_line/usage_error.h"
#include "tovrelctl/failure.h"
#include "tovrelctl/output.h"

#include <algorithm>
#include <utility>

namespace tovrelctl {

namespace {

using command_line::UsageError;

/** More adds than there are ids cannot be needed. */
constexpr int MOST_TRIES = 256;

int listItems(const GlobalOptions &options, const Path &collection,
              std::string (*table)(const json_t *))
{
    Service service;
    const Json items = service.request({.operation = "listKeys", .path = collection});
    options.json ? printJson(items.get()) : print(table(items.get()));
    return 0;
}

int removeItems(const GlobalOptions &options, const Path &collection, const Path &ids)
{
    if (ids.empty()) {
        throw UsageError("an ID is missing");
    }
    Service service;
    for (const std::string &id : ids) {
        service.request({.operation = "remove", .path = below(collection, id)});
    }
    if (options.json) {
        printJson(json_null());
    }
    return 0;
}

} // namespace

std::string qosNumber(const json_t *item)
{
    const std::string qos = textOf(item, "qos");
    return qos.empty() ? qos : qos.substr(qos.size() - 1);
}

std::vector<const json_t *> inOrder(const json_t *array)
{
    std::vector<const json_t *> items;
    for (std::size_t index = 0; index < json_array_size(array); ++index) {
        items.push_back(json_array_get(array, index));
    }
    std::ranges::stable_sort(items, {}, [](const json_t *item) {
        const std::string id = textOf(item, "id");
        return std::pair(id.size(), id);
    });
    return items;
}

Path below(Path collection, const std::string &id)
{
    collection.push_back(id);
    return collection;
}

void printItem(const GlobalOptions &options, const json_t *item)
{
    options.json ? printJson(item) : print(textOf(item, "id") + '\n');
}

Json addItem(Service &service, const Path &collection, const Json &data)
{
    const Json before = service.request({.operation = "listKeys", .path = collection});
    for (int attempt = 0; attempt < MOST_TRIES; ++attempt) {
        Json created =
            service.request({.operation = "add", .path = collection, .data = share(data.get())});
        const std::string id = textOf(created.get(), "id");
        bool isNew = true;
        for (const json_t *item : inOrder(before.get())) {
            isNew = isNew && textOf(item, "id") != id;
        }
        if (isNew) {
            return created;
        }
    }
    throw Failure("the service found no free id; remove an item that is not needed");
}

std::string onlyOne(const Path &words, const char *what)
{
    if (words.size() != 1) {
        throw UsageError(std::string("exactly one ") + what + " is expected");
    }
    return words.front();
}

void requireChange(const Json &data)
{
    if (json_object_size(data.get()) == 0) {
        throw UsageError("nothing to change is given");
    }
}

int runOn(const Collection &collection, const GlobalOptions &options, const Path &words)
{
    const std::string command = words.empty() ? std::string() : words.front();
    const Path rest(words.empty() ? words.end() : words.begin() + 1, words.end());
    if (command == "list") {
        if (!rest.empty()) {
            throw UsageError("'" + rest.front() + "': no argument is expected here");
        }
        return listItems(options, collection.path, collection.table);
    }
    if (command == "add") {
        return collection.add(options, rest);
    }
    if (command == "set") {
        return collection.set(options, rest);
    }
    if (command == "remove") {
        return removeItems(options, collection.path, rest);
    }
    if (command == "--help" || command == "-h" || command == "help") {
        print(collection.help);
        return 0;
    }
    throw UsageError("list, add, set or remove is expected");
}

} // namespace tovrelctl
