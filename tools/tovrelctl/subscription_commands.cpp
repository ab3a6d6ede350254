/** Commands on MQTT-to-event items. */
#include "command_line/command_line.h"
#include "tovrelctl/items.h"
#include "tovrelctl/output.h"
#include "tovrelctl/settings.h"
#include "tovrelctl/table.h"

namespace tovrelctl {

namespace {

using command_line::CommandLine;

const Path SUBSCRIPTIONS{"subscription"};

constexpr const char *SUBSCRIPTION_HELP =
    "Usage: tovrelctl subscription list|add|set|remove [OPTION...]\n"
    "\n"
    "Which MQTT messages become device events.\n"
    "\n"
    "  list                print all items\n"
    "  add TOPIC_FILTER    add one [--qos N] [--state] [--device-prefix]\n"
    "  set ID              change one [--topic-filter F] [--qos N] [--state yes|no]\n"
    "                      [--device-prefix yes|no]\n"
    "  remove ID...        remove items\n";

std::string yesNo(const json_t *item, const char *field)
{
    return isTrue(item, field) ? "yes" : "no";
}

void putTruth(const Json &data, const char *name, const std::optional<std::string> &text)
{
    if (text) {
        put(data.get(), name, parseValue({name, Kind::TRUTH}, *text));
    }
}

int addSubscription(const GlobalOptions &options, const Path &words)
{
    std::optional<std::string> qos;
    bool state = false;
    bool prefix = false;
    CommandLine line("tovrelctl subscription", "add", "TOPIC_FILTER",
                     "Makes device events of the MQTT messages that a topic filter selects.\n"
                     "Prints the id of the new item.",
                     "Example: tovrelctl subscription add 'building/+/door' --qos 1");
    line.text("qos", "0|1|2", "QoS to subscribe with (default 0)", qos);
    line.flag("state", "The events are stateful; no wildcards then", state);
    line.flag("device-prefix", "The device's topic prefix stands before the filter", prefix);
    const Json data = owned(json_object());
    put(data.get(), "topicFilter", textValue(onlyOne(line.parse(words), "TOPIC_FILTER")));
    put(data.get(), "qos", parseQos(qos.value_or("0")));
    put(data.get(), "isStateData", owned(json_boolean(state)));
    put(data.get(), "useDeviceTopicPrefix", owned(json_boolean(prefix)));
    Service service;
    printItem(options, addItem(service, SUBSCRIPTIONS, data).get());
    return 0;
}

int setSubscription(const GlobalOptions &options, const Path &words)
{
    std::optional<std::string> topicFilter;
    std::optional<std::string> qos;
    std::optional<std::string> state;
    std::optional<std::string> prefix;
    CommandLine line("tovrelctl subscription", "set", "ID",
                     "Changes an item; what is not given stays as it is.", "");
    line.text("topic-filter", "FILTER", "Which messages", topicFilter);
    line.text("qos", "0|1|2", "QoS to subscribe with", qos);
    line.text("state", "yes|no", "Whether the events are stateful", state);
    line.text("device-prefix", "yes|no", "Whether the device's topic prefix stands before", prefix);
    const std::string id = onlyOne(line.parse(words), "ID");
    Json data = owned(json_object());
    if (topicFilter) {
        put(data.get(), "topicFilter", textValue(*topicFilter));
    }
    if (qos) {
        put(data.get(), "qos", parseQos(*qos));
    }
    putTruth(data, "isStateData", state);
    putTruth(data, "useDeviceTopicPrefix", prefix);
    requireChange(data);
    Service service;
    const Path path = below(SUBSCRIPTIONS, id);
    service.request({.operation = "set", .path = path, .data = std::move(data)});
    printItem(options, service.request({.operation = "get", .path = path}).get());
    return 0;
}

} // namespace

std::string subscriptionTable(const json_t *items)
{
    Table table({"ID", "TOPIC FILTER", "QOS", "STATE", "DEVICE PREFIX"});
    for (const json_t *item : inOrder(items)) {
        table.add({textOf(item, "id"), textOf(item, "topicFilter"), qosNumber(item),
                   yesNo(item, "isStateData"), yesNo(item, "useDeviceTopicPrefix")});
    }
    return table.text();
}

int runSubscription(const GlobalOptions &options, const std::vector<std::string> &words)
{
    return runOn(
        {SUBSCRIPTIONS, SUBSCRIPTION_HELP, subscriptionTable, addSubscription, setSubscription},
        options, words);
}

} // namespace tovrelctl
