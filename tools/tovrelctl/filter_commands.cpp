/** Commands on event filters. */
#include "command_line/command_line.h"
#include "tovrelctl/commands.h"
#include "tovrelctl/failure.h"
#include "tovrelctl/findings.h"
#include "tovrelctl/import_steps.h"
#include "tovrelctl/items.h"
#include "tovrelctl/output.h"

namespace tovrelctl {

namespace {

using command_line::CommandLine;

constexpr const Field &RETAIN = FILTER_FIELDS.back();

constexpr const char *HELP =
    "Usage: tovrelctl filter list|add|set|remove [OPTION...]\n"
    "\n"
    "Which device events are published as MQTT messages.\n"
    "\n"
    "  list                print all of them\n"
    "  add TOPIC_FILTER    add one [--qos N] [--retain none|property|all]\n"
    "  set ID              change one [--topic-filter F] [--qos N] [--retain R]\n"
    "  remove ID...        remove some\n"
    "\n"
    "Each of them has a --help of its own.\n";

int addFilter(GlobalOptions options, const Words &words)
{
    std::optional<std::string> qos;
    std::optional<std::string> retain;
    CommandLine line(
        "tovrelctl filter", "add", "TOPIC_FILTER",
        "Publishes the device events that a topic filter selects: levels between \"/\",\n"
        "\"onvif:\" or \"norq:\" before a level is the namespace from there on, \"//.\"\n"
        "at the end stands for all below, and alone for every event.\n"
        "Prints the id of the new filter, with --json the filter.",
        "Example: tovrelctl filter add 'onvif:Device//.' --qos 1");
    line.text("qos", "0|1|2", "QoS to publish with (default 0)", qos);
    line.text("retain", "none|property|all", "Which messages are retained (default property)",
              retain);
    const Words given = parse(line, options, words);
    const Json data = owned(json_object());
    put(data.get(), "qos", parseQos(qos.value_or("0")));
    put(data.get(), "retain", parseValue(RETAIN, "--retain", retain.value_or("property")));
    put(data.get(), "topicFilter", textValue(onlyOne(given, "TOPIC_FILTER")));

    Service service = options.connect();
    const Json filter = addItem(service, filterPath(), FILTER_FIELDS, data);
    options.json ? printJson(filter.get()) : printText(textOf(filter.get(), "id"));
    warn(findingsOnFilter(filter.get()));
    return EXIT_DONE;
}

/** Changes a filter that is there. */
void changeFilter(Service &service, const Path &path, const Json &changes)
{
    const Json before = getItem(service, path, FILTER_FIELDS);
    if (json_object_size(changes.get()) == 1 && !textOf(changes.get(), "retain").empty()) {
        service.request({.operation = "set", .path = path, .data = share(changes.get())});
        return;
    }
    // Not by "set": that stores QoS 0, whatever it is told, and adds the levels of a topic filter
    // to those of the old one.
    const Json after = owned(json_copy(before.get()));
    if (json_object_update(after.get(), changes.get()) != 0) {
        throw std::bad_alloc();
    }
    importChanges(service, documentWithFilters({before.get()}), documentWithFilters({after.get()}));
}

int setFilter(GlobalOptions options, const Words &words)
{
    std::optional<std::string> topicFilter;
    std::optional<std::string> qos;
    std::optional<std::string> retain;
    CommandLine line("tovrelctl filter", "set", "ID",
                     "Changes a filter; what is not given stays as it is. With --json, prints it.",
                     "");
    line.text("topic-filter", "FILTER", "Which events", topicFilter);
    line.text("qos", "0|1|2", "QoS to publish with", qos);
    line.text("retain", "none|property|all", "Which messages are retained", retain);
    const std::string id = onlyOne(parse(line, options, words), "ID");
    const Json changes = owned(json_object());
    putGiven(changes, {"topicFilter", Kind::TEXT}, "--topic-filter", topicFilter);
    putGivenQos(changes, qos);
    putGiven(changes, RETAIN, "--retain", retain);
    requireChange(changes);

    Service service = options.connect();
    const Path path = below(filterPath(), id);
    onItem("filter", id, [&] { changeFilter(service, path, changes); });
    const Json filter = getItem(service, path, FILTER_FIELDS);
    if (options.json) {
        printJson(filter.get());
    }
    warn(findingsOnFilter(filter.get()));
    return EXIT_DONE;
}

} // namespace

Table filterTable(const json_t *filters)
{
    Table table({"ID", "TOPIC FILTER", "QOS", "RETAIN"});
    for (const json_t *item : inOrder(filters)) {
        table.add({textOf(item, "id"), textOf(item, "topicFilter"), qosNumber(item),
                   textOf(item, "retain")});
    }
    return table;
}

int runFilter(GlobalOptions options, const Words &words)
{
    return runOn({"filter", filterPath(), FILTER_FIELDS, HELP, filterTable, addFilter, setFilter},
                 options, words);
}

} // namespace tovrelctl
