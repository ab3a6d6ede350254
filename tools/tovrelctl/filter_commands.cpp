/** Commands on event filters. */
#include "command_line/command_line.h"
#include "tovrelctl/failure.h"
#include "tovrelctl/items.h"
#include "tovrelctl/output.h"
#include "tovrelctl/settings.h"
#include "tovrelctl/table.h"

namespace tovrelctl {

namespace {

using command_line::CommandLine;

const Path FILTERS{"publication", "eventFilter"};

constexpr const char *FILTER_HELP =
    "Usage: tovrelctl filter list|add|set|remove [OPTION...]\n"
    "\n"
    "Which device events are published as MQTT messages.\n"
    "\n"
    "  list                print all filters\n"
    "  add TOPIC_FILTER    add one [--qos N] [--retain none|property|all]\n"
    "  set ID              change one [--topic-filter F] [--qos N] [--retain R]\n"
    "  remove ID...        remove filters\n";

int addFilter(const GlobalOptions &options, const Path &words)
{
    std::optional<std::string> qos;
    std::optional<std::string> retain;
    CommandLine line("tovrelctl filter", "add", "TOPIC_FILTER",
                     "Publishes the device events that a topic filter selects.\n"
                     "Prints the id of the new filter.",
                     "Example: tovrelctl filter add 'onvif:Device//.' --qos 1");
    line.text("qos", "0|1|2", "QoS to publish with (default 0)", qos);
    line.text("retain", "none|property|all", "Which messages are retained (default property)",
              retain);
    const Json data = owned(json_object());
    put(data.get(), "topicFilter", textValue(onlyOne(line.parse(words), "TOPIC_FILTER")));
    put(data.get(), "qos", parseQos(qos.value_or("0")));
    put(data.get(), "retain", parseValue(FILTER_FIELDS.back(), retain.value_or("property")));
    Service service;
    printItem(options, addItem(service, FILTERS, data).get());
    return 0;
}

/** A document with one event filter, to be imported. */
Json documentWith(const Json &filter)
{
    Json filters = owned(json_array());
    append(filters.get(), share(filter.get()));
    Json publication = owned(json_object());
    put(publication.get(), "eventFilter", std::move(filters));
    Json document = owned(json_object());
    put(document.get(), "publication", std::move(publication));
    return document;
}

int setFilter(const GlobalOptions &options, const Path &words)
{
    std::optional<std::string> topicFilter;
    std::optional<std::string> qos;
    std::optional<std::string> retain;
    CommandLine line("tovrelctl filter", "set", "ID",
                     "Changes a filter; what is not given stays as it is.", "");
    line.text("topic-filter", "FILTER", "Which events", topicFilter);
    line.text("qos", "0|1|2", "QoS to publish with", qos);
    line.text("retain", "none|property|all", "Which messages are retained", retain);
    const std::string id = onlyOne(line.parse(words), "ID");
    const Json changes = owned(json_object());
    if (topicFilter) {
        put(changes.get(), "topicFilter", textValue(*topicFilter));
    }
    if (qos) {
        put(changes.get(), "qos", parseQos(*qos));
    }
    if (retain) {
        put(changes.get(), "retain", parseValue(FILTER_FIELDS.back(), *retain));
    }
    requireChange(changes);

    Service service;
    const Path path = below(FILTERS, id);
    const Json filter = service.request({.operation = "get", .path = path});
    const Json old = owned(json_copy(filter.get()));
    json_object_update(filter.get(), changes.get());
    // Not by "set": that stores QoS 0, whatever it is told, and adds the levels of a topic filter to
    // those of the old one. A new filter under the same id has what it was given.
    service.request({.operation = "remove", .path = path});
    try {
        service.request({.operation = "import", .data = documentWith(filter)});
    } catch (const Refused &) {
        service.request({.operation = "import", .data = documentWith(old)});
        throw;
    }
    printItem(options, service.request({.operation = "get", .path = path}).get());
    return 0;
}

} // namespace

std::string filterTable(const json_t *filters)
{
    Table table({"ID", "TOPIC FILTER", "QOS", "RETAIN"});
    for (const json_t *item : inOrder(filters)) {
        table.add({textOf(item, "id"), textOf(item, "topicFilter"), qosNumber(item),
                   textOf(item, "retain")});
    }
    return table.text();
}

int runFilter(const GlobalOptions &options, const std::vector<std::string> &words)
{
    return runOn({FILTERS, FILTER_HELP, filterTable, addFilter, setFilter}, options, words);
}

} // namespace tovrelctl
