/** Commands on MQTT-to-event items. */
#include "command_line/command_line.h"
#include "tovrelctl/commands.h"
#include "tovrelctl/failure.h"
#include "tovrelctl/findings.h"
#include "tovrelctl/items.h"
#include "tovrelctl/output.h"

namespace tovrelctl {

namespace {

using command_line::CommandLine;

constexpr const char *HELP =
    "Usage: tovrelctl subscription list|add|set|remove [OPTION...]\n"
    "\n"
    "Which MQTT messages become device events.\n"
    "\n"
    "  list                print all of them\n"
    "  add TOPIC_FILTER    add one [--qos N] [--state] [--device-prefix]\n"
    "  set ID              change one [--topic-filter F] [--qos N] [--state yes|no]\n"
    "                      [--device-prefix yes|no]\n"
    "  remove ID...        remove some\n"
    "\n"
    "Each of them has a --help of its own.\n";

std::string yesNo(const json_t *item, const char *field)
{
    return isTrue(item, field) ? "yes" : "no";
}

int addSubscription(GlobalOptions options, const Words &words)
{
    std::optional<std::string> qos;
    bool state = false;
    bool prefix = false;
    CommandLine line("tovrelctl subscription", "add", "TOPIC_FILTER",
                     "Makes device events of the MQTT messages that a topic filter selects.\n"
                     "Prints the id of the new item, with --json the item.",
                     "Example: tovrelctl subscription add 'building/+/door' --qos 1");
    line.text("qos", "0|1|2", "QoS to subscribe with (default 0)", qos);
    line.flag("state", "The events are stateful; no wildcards then", state);
    line.flag("device-prefix", "The device's topic prefix stands before the filter", prefix);
    const Words given = parse(line, options, words);
    const Json data = owned(json_object());
    put(data.get(), "qos", parseQos(qos.value_or("0")));
    put(data.get(), "topicFilter", textValue(onlyOne(given, "TOPIC_FILTER")));
    put(data.get(), "isStateData", owned(json_boolean(state)));
    put(data.get(), "useDeviceTopicPrefix", owned(json_boolean(prefix)));

    Service service = options.connect();
    const Json item = addItem(service, subscriptionPath(), SUBSCRIPTION_FIELDS, data);
    options.json ? printJson(item.get()) : printText(textOf(item.get(), "id"));
    warn(findingsOnSubscription(item.get()));
    return EXIT_DONE;
}

int setSubscription(GlobalOptions options, const Words &words)
{
    std::optional<std::string> topicFilter;
    std::optional<std::string> qos;
    std::optional<std::string> state;
    std::optional<std::string> prefix;
    CommandLine line("tovrelctl subscription", "set", "ID",
                     "Changes an item; what is not given stays as it is. With --json, prints it.",
                     "");
    line.text("topic-filter", "FILTER", "Which messages", topicFilter);
    line.text("qos", "0|1|2", "QoS to subscribe with", qos);
    line.text("state", "yes|no", "Whether the events are stateful", state);
    line.text("device-prefix", "yes|no", "Whether the device's topic prefix stands before", prefix);
    const std::string id = onlyOne(parse(line, options, words), "ID");
    const Json data = owned(json_object());
    putGiven(data, {"topicFilter", Kind::TEXT}, "--topic-filter", topicFilter);
    putGivenQos(data, qos);
    putGiven(data, {"isStateData", Kind::TRUTH}, "--state", state);
    putGiven(data, {"useDeviceTopicPrefix", Kind::TRUTH}, "--device-prefix", prefix);
    requireChange(data);

    Service service = options.connect();
    const Path path = below(subscriptionPath(), id);
    onItem("subscription", id,
           [&] { service.request({.operation = "set", .path = path, .data = share(data.get())}); });
    const Json item = getItem(service, path, SUBSCRIPTION_FIELDS);
    if (options.json) {
        printJson(item.get());
    }
    warn(findingsOnSubscription(item.get()));
    return EXIT_DONE;
}

} // namespace

Table subscriptionTable(const json_t *items)
{
    Table table({"ID", "TOPIC FILTER", "QOS", "STATE", "DEVICE PREFIX"});
    for (const json_t *item : inOrder(items)) {
        table.add({textOf(item, "id"), textOf(item, "topicFilter"), qosNumber(item),
                   yesNo(item, "isStateData"), yesNo(item, "useDeviceTopicPrefix")});
    }
    return table;
}

int runSubscription(GlobalOptions options, const Words &words)
{
    return runOn({"subscription", subscriptionPath(), SUBSCRIPTION_FIELDS, HELP, subscriptionTable,
                  addSubscription, setSubscription},
                 options, words);
}

} // namespace tovrelctl
