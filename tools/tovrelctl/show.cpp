/** Commands that show the configuration, and set its single settings. */
#include "command_line/command_line.h"
#include "command_line/usage_error.h"
#include "tovrelctl/commands.h"
#include "tovrelctl/items.h"
#include "tovrelctl/output.h"
#include "tovrelctl/service.h"
#include "tovrelctl/settings.h"
#include "tovrelctl/table.h"

namespace tovrelctl {

namespace {

using command_line::CommandLine;
using command_line::UsageError;

using Status = std::optional<std::map<std::string, std::string>>;

std::string member(const Status &status, const char *name)
{
    const auto found = status->find(name);
    return found == status->end() ? std::string() : found->second;
}

std::string brokerLine(const Status &status)
{
    if (!status) {
        return "unknown: nobody on the system bus tells how the MQTT client is doing\n";
    }
    const std::string broker =
        printable(member(status, "host") + ":" + member(status, "port")) + ", ";
    const std::string settings = printable(member(status, "settingsFile"));
    if (member(status, "enabled") == "false") {
        return broker + "switched off in " + settings + "\n";
    }
    if (member(status, "connected") == "true") {
        return broker + "connected\n";
    }
    if (member(status, "connected") == "false") {
        return broker + "not connected: see journalctl -u tovrel, and " + settings + "\n";
    }
    return broker + "no MQTT client has told whether it is connected\n";
}

std::string settingLines(const json_t *publication)
{
    Table table({"SETTING", "VALUE"});
    for (const Field &field : SETTINGS) {
        table.add({field.name, plainText(json_object_get(publication, field.name))});
    }
    return table.text();
}

std::string count(const json_t *items, const char *word)
{
    return std::to_string(json_array_size(items)) + " of 256 " + word;
}

std::string overview(const json_t *document, const Status &status)
{
    const json_t *const publication = json_object_get(document, "publication");
    const json_t *const filters = json_object_get(publication, "eventFilter");
    const json_t *const items = json_object_get(document, "subscription");
    return "Broker: " + brokerLine(status) +
           "Device topic prefix: " + printable(textOf(document, DEVICE_TOPIC_PREFIX)) + "\n" +
           "\nEvents to MQTT (" + count(filters, "filters") + ")\n\n" + settingLines(publication) +
           (json_array_size(filters) == 0 ? "" : "\n" + filterTable(filters)) +
           "\nMQTT to events (" + count(items, "subscriptions") + ")\n" +
           (json_array_size(items) == 0 ? "" : "\n" + subscriptionTable(items));
}

Json statusValue(const Status &status)
{
    if (!status) {
        return owned(json_null());
    }
    Json object = owned(json_object());
    for (const auto &[name, value] : *status) {
        put(object.get(), name.c_str(), textValue(value));
    }
    return object;
}

} // namespace

int runShow(const GlobalOptions &options, const std::vector<std::string> &words)
{
    CommandLine line("tovrelctl", "show", "",
                     "Shows the whole configuration, and whether the broker is there.", "");
    line.parse(words);
    Service service;
    const Json document = service.request({.operation = "get"});
    const Status status = service.mqttStatus();
    if (!options.json) {
        print(overview(document.get(), status));
        return 0;
    }
    Json object = owned(json_object());
    put(object.get(), "mqttClient", statusValue(status));
    put(object.get(), "configuration", share(document.get()));
    printJson(object.get());
    return 0;
}

int runGet(const GlobalOptions &options, const std::vector<std::string> &words)
{
    CommandLine line("tovrelctl", "get", "[SETTING]",
                     "Prints one setting of the way from events to MQTT, or all of them.",
                     "SETTING is topicPrefix, customTopicPrefix, appendEventTopic,\n"
                     "includeTopicNamespaces, includeSerialNumberInPayload or\n"
                     "deviceTopicPrefix, which can only be read.");
    const std::vector<std::string> names = line.parse(words);
    if (names.size() > 1) {
        throw UsageError("only one setting can be asked for");
    }
    Service service;
    if (names.empty()) {
        Json publication = service.request({.operation = "get", .path = {"publication"}});
        json_object_del(publication.get(), "eventFilter");
        options.json ? printJson(publication.get()) : print(settingLines(publication.get()));
        return 0;
    }
    const bool ofDevice = names.front() == DEVICE_TOPIC_PREFIX;
    const std::string name = ofDevice ? names.front() : settingOf(names.front()).name;
    const Json answer = ofDevice ? service.request({.operation = "get"})
                                 : service.request({.operation = "get", .path = {"publication"}});
    const json_t *const value = json_object_get(answer.get(), name.c_str());
    options.json ? printJson(value) : print(printable(plainText(value)) + '\n');
    return 0;
}

int runSet(const GlobalOptions &options, const std::vector<std::string> &words)
{
    CommandLine line("tovrelctl", "set", "SETTING VALUE",
                     "Changes one setting of the way from events to MQTT, at once.",
                     "SETTING                       VALUE\n"
                     "  topicPrefix                   default, custom or none\n"
                     "  customTopicPrefix             a text\n"
                     "  appendEventTopic              yes or no\n"
                     "  includeTopicNamespaces        yes or no\n"
                     "  includeSerialNumberInPayload  yes or no");
    const std::vector<std::string> given = line.parse(words);
    if (given.size() != 2) {
        throw UsageError("a SETTING and a VALUE are expected");
    }
    const Field &field = settingOf(given.front());
    Json data = owned(json_object());
    put(data.get(), field.name, parseValue(field, given.back()));
    Service service;
    service.request({.operation = "set", .path = {"publication"}, .data = std::move(data)});
    if (options.json) {
        printJson(json_null());
    }
    return 0;
}

} // namespace tovrelctl
