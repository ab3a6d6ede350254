/** Commands on the settings of the way from events to MQTT. */
#include "command_line/command_line.h"
#include "command_line/output.h"
#include "command_line/usage_error.h"
#include "tovrelctl/answer.h"
#include "tovrelctl/commands.h"
#include "tovrelctl/failure.h"
#include "tovrelctl/fields.h"
#include "tovrelctl/findings.h"
#include "tovrelctl/output.h"
#include "tovrelctl/service.h"
#include "tovrelctl/setting_table.h"

namespace tovrelctl {

namespace {

using command_line::CommandLine;
using command_line::UsageError;

const Path &publicationPath()
{
    static const Path path{"publication"};
    return path;
}

int printSettings(const GlobalOptions &options)
{
    Service service = options.connect();
    const Json publication = service.request({.operation = "get", .path = publicationPath()});
    requireFields(publication.get(), SETTINGS);
    json_object_del(publication.get(), "eventFilter");
    if (options.json) {
        printJson(publication.get());
    } else {
        command_line::print(settingTable(publication.get()).text(outputWidth()));
    }
    return EXIT_DONE;
}

int printSetting(const GlobalOptions &options, const std::string &name)
{
    const Field &field = readableOf(name);
    const bool ofDevice = &field == &DEVICE_TOPIC_PREFIX;
    Service service = options.connect();
    const Json answer = service.request({.operation = "get",
                                         .path = ofDevice ? Path() : publicationPath(),
                                         .property = field.name});
    requireFields(answer.get(), {&field, 1});
    const json_t *const value = json_object_get(answer.get(), field.name);
    options.json ? printJson(value) : printText(plainText(value));
    return EXIT_DONE;
}

/** Puts a setting with its value, which is null when none is given. */
void putSetting(const Json &data, const std::string &name, const std::string *value)
{
    const Field &field = settingOf(name);
    if (value == nullptr) {
        throw UsageError(name + ": VALUE is missing");
    }
    if (json_object_get(data.get(), field.name) != nullptr) {
        throw UsageError(name + " is given more than once");
    }
    put(data.get(), field.name, parseValue(field, name, *value));
}

} // namespace

Table settingTable(const json_t *publication)
{
    Table table({"SETTING", "VALUE"});
    for (const Field &field : SETTINGS) {
        table.add({field.name, plainText(json_object_get(publication, field.name))});
    }
    return table;
}

int runGet(GlobalOptions options, const Words &words)
{
    CommandLine line("tovrelctl", "get", "[SETTING]",
                     "Prints one setting of the way from events to MQTT, or all of them.",
                     "SETTING is topicPrefix, customTopicPrefix, appendEventTopic,\n"
                     "includeTopicNamespaces, includeSerialNumberInPayload or\n"
                     "deviceTopicPrefix, which can only be read.");
    const Words names = parse(line, options, words);
    requireNoMore(names, "SETTING");
    return names.empty() ? printSettings(options) : printSetting(options, names.front());
}

int runSet(GlobalOptions options, const Words &words)
{
    CommandLine line(
        "tovrelctl", "set", "SETTING VALUE [SETTING VALUE...]",
        "Changes settings of the way from events to MQTT, at once.",
        "  SETTING                       VALUE\n"
        "  topicPrefix                   default: topics begin with the device's topic\n"
        "                                prefix and \"event\"; custom: with\n"
        "                                customTopicPrefix alone, unless that is\n"
        "                                empty: then as default; none: as default\n"
        "  customTopicPrefix             a text\n"
        "  appendEventTopic              yes or no: whether the event's topic follows\n"
        "  includeTopicNamespaces        yes or no: whether with its namespaces\n"
        "  includeSerialNumberInPayload  yes or no");
    const Words given = parse(line, options, words);
    requireSome(given, "SETTING");
    const Json data = owned(json_object());
    for (std::size_t index = 0; index < given.size(); index += 2) {
        putSetting(data, given[index], index + 1 < given.size() ? &given[index + 1] : nullptr);
    }
    Service service = options.connect();
    service.request({.operation = "set", .path = publicationPath(), .data = share(data.get())});
    if (options.json) {
        printJson(data.get());
    }
    warn(findingsOnSettings(data.get()));
    return EXIT_DONE;
}

} // namespace tovrelctl
