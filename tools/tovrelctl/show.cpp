/** The command that shows the configuration, and how the MQTT client is doing. */
#include "command_line/command_line.h"
#include "command_line/output.h"
#include "tovrelctl/answer.h"
#include "tovrelctl/commands.h"
#include "tovrelctl/failure.h"
#include "tovrelctl/items.h"
#include "tovrelctl/output.h"
#include "tovrelctl/printable.h"
#include "tovrelctl/setting_table.h"

namespace tovrelctl {

namespace {

using Status = std::optional<std::map<std::string, std::string>>;

std::string member(const Status &status, const char *name)
{
    const auto found = status->find(name);
    return found == status->end() ? std::string() : printable(found->second);
}

std::string brokerLine(const Status &status)
{
    if (!status) {
        return "unknown: nobody on the system bus tells how the MQTT client is doing";
    }
    const std::string broker = member(status, "host") + ":" + member(status, "port") + ", ";
    const std::string settings = member(status, "settingsFile");
    const std::string connected = member(status, "connected");
    if (member(status, "enabled") == "false") {
        return broker + "switched off in " + settings;
    }
    if (connected == "true") {
        return broker + "connected";
    }
    if (connected == "false") {
        return broker + "not connected: see journalctl -u tovrel, and " + settings;
    }
    return broker + "no MQTT client has told whether it is connected";
}

/** "3 of 256 filters" with the table of them below, if there are any. */
std::string section(const std::string &title, const json_t *items, const char *word,
                    const Table &table)
{
    const std::size_t count = json_array_size(items);
    return "\n" + title + ": " + std::to_string(count) + " of 256 " + word + "\n" +
           (count == 0 ? "" : "\n" + table.text(outputWidth()));
}

std::string overview(const json_t *document, const Status &status)
{
    const json_t *const publication = json_object_get(document, "publication");
    const json_t *const filters = json_object_get(publication, "eventFilter");
    const json_t *const items = json_object_get(document, "subscription");
    return "Broker: " + brokerLine(status) + "\n" +
           "Device topic prefix: " + printable(textOf(document, DEVICE_TOPIC_PREFIX.name)) + "\n" +
           section("Events to MQTT", filters, "filters", filterTable(filters)) + "\n" +
           settingTable(publication).text(outputWidth()) +
           section("MQTT to events", items, "subscriptions", subscriptionTable(items));
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

int runShow(GlobalOptions options, const Words &words)
{
    command_line::CommandLine line(
        "tovrelctl", "show", "", "Shows the whole configuration, and whether the broker is there.",
        "A table on a terminal is cut to its width; \"| cat\" shows all of it.");
    parse(line, options, words);
    Service service = options.connect();
    const Json document = service.request({.operation = "get"});
    requireDocument(document.get(), true);
    const Status status = service.mqttStatus();
    if (!options.json) {
        command_line::print(overview(document.get(), status));
        return EXIT_DONE;
    }
    Json object = owned(json_object());
    put(object.get(), "mqttClient", statusValue(status));
    put(object.get(), "configuration", share(document.get()));
    printJson(object.get());
    return EXIT_DONE;
}

} // namespace tovrelctl
