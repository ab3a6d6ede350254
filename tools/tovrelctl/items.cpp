#include "tovrelctl/items.h"

#include "command_line/command_line.h"
#include "command_line/output.h"
#include "command_line/usage_error.h"
#include "tovrelctl/answer.h"
#include "tovrelctl/failure.h"
#include "tovrelctl/output.h"
#include "tovrelctl/printable.h"

#include <algorithm>
#include <utility>

namespace tovrelctl {

namespace {

using command_line::CommandLine;
using command_line::UsageError;

/** More adds than there are ids cannot be needed. */
constexpr int MOST_TRIES = 256;

Json listed(Service &service, const Path &collection, Fields fields)
{
    Json items = service.request({.operation = "listKeys", .path = collection});
    requireItems(items.get(), fields);
    return items;
}

int listItems(const Collection &collection, GlobalOptions options, const Words &words)
{
    CommandLine line(std::string("tovrelctl ") + collection.word, "list", "", "Prints all of them.",
                     "A table on a terminal is cut to its width; \"| cat\" shows all of it.");
    parse(line, options, words);
    Service service = options.connect();
    const Json items = listed(service, collection.path, collection.fields);
    if (options.json) {
        printJson(items.get());
    } else {
        command_line::print(collection.table(items.get()).text(outputWidth()));
    }
    return EXIT_DONE;
}

/** Removes them one by one into `removed`; false when the service refused one. */
bool removeEach(Service &service, const Collection &collection, const Words &ids,
                const Json &removed)
{
    bool all = true;
    for (const std::string &id : ids) {
        try {
            service.request({.operation = "remove", .path = below(collection.path, id)});
            append(removed.get(), textValue(id));
        } catch (const Refused &refusal) {
            complain(std::string(collection.word) + " " + id + ": " + refusal.what());
            all = false;
        }
    }
    return all;
}

int removeItems(const Collection &collection, GlobalOptions options, const Words &words)
{
    CommandLine line(std::string("tovrelctl ") + collection.word, "remove", "ID...",
                     "Removes them. When one cannot be removed the others are all the same.", "");
    const Words ids = parse(line, options, words);
    requireSome(ids, "ID");
    Service service = options.connect();
    const Json removed = owned(json_array());
    bool all = false;
    try {
        all = removeEach(service, collection, ids, removed);
    } catch (Failure &failure) {
        std::string before;
        for (const json_t *id : valuesOf(removed.get())) {
            before += " " + printable(plainText(id));
        }
        failure.addAdvice(before.empty() ? "" : "Removed before that:" + before);
        throw;
    }
    if (options.json) {
        printJson(removed.get());
    }
    return all ? EXIT_DONE : EXIT_FAILED;
}

bool hasId(const Json &items, const std::string &id)
{
    return std::ranges::any_of(valuesOf(items.get()),
                               [&](const json_t *item) { return textOf(item, "id") == id; });
}

} // namespace

Path subscriptionPath()
{
    return {"subscription"};
}

Path filterPath()
{
    return {"publication", "eventFilter"};
}

std::string qosNumber(const json_t *item)
{
    const std::string qos = textOf(item, "qos");
    return qos.empty() ? qos : qos.substr(qos.size() - 1);
}

std::vector<const json_t *> inOrder(const json_t *array)
{
    std::vector<const json_t *> items = valuesOf(array);
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

Json addItem(Service &service, const Path &collection, Fields fields, const Json &data)
{
    const Json before = listed(service, collection, fields);
    for (int attempt = 0; attempt < MOST_TRIES; ++attempt) {
        Json created =
            service.request({.operation = "add", .path = collection, .data = share(data.get())});
        requireItem(created.get(), fields);
        if (!hasId(before, textOf(created.get(), "id"))) {
            return created;
        }
    }
    throw Failure("tovrel finds no free id", "Restart it: systemctl restart tovrel");
}

Json getItem(Service &service, const Path &path, Fields fields)
{
    Json item = service.request({.operation = "get", .path = path});
    requireItem(item.get(), fields);
    return item;
}

void putGiven(const Json &data, const Field &field, const std::string &option,
              const std::optional<std::string> &text)
{
    if (text) {
        put(data.get(), field.name, parseValue(field, option, *text));
    }
}

void putGivenQos(const Json &data, const std::optional<std::string> &text)
{
    if (text) {
        put(data.get(), "qos", parseQos(*text));
    }
}

void requireChange(const Json &data)
{
    if (json_object_size(data.get()) == 0) {
        throw UsageError("nothing to change is given");
    }
}

void onItem(const char *word, const std::string &id, const std::function<void()> &action)
{
    try {
        action();
    } catch (const Refused &refusal) {
        throw Refused(std::string(word) + " " + id + ": " + refusal.what(), refusal.advice());
    }
}

int runOn(const Collection &collection, GlobalOptions options, const Words &words)
{
    bool help = false;
    CommandLine line("tovrelctl", collection.word, "COMMAND", "", "");
    line.flag("help", "", help, 'h');
    line.leaveToCaller();
    Words rest = parse(line, options, words);
    if (help || (!rest.empty() && rest.front() == "help")) {
        command_line::print(collection.help);
        return EXIT_DONE;
    }
    if (rest.empty()) {
        throw UsageError("list, add, set or remove is expected");
    }
    const std::string command = rest.front();
    rest.erase(rest.begin());
    if (command == "list") {
        return listItems(collection, options, rest);
    }
    if (command == "add") {
        return collection.add(options, rest);
    }
    if (command == "set") {
        return collection.set(options, rest);
    }
    if (command == "remove") {
        return removeItems(collection, options, rest);
    }
    throw UsageError("unknown command '" + command + "', expected list, add, set or remove");
}

} // namespace tovrelctl
