#include "event/tool/send_options.h"

#include "command_line/command_line.h"
#include "event/json_topic.h"
#include "event/tool/failure.h"
#include "event/tool/topic.h"

#include <algorithm>

namespace norq::tool {

using command_line::CommandLine;

namespace {

constexpr unsigned int MOST_EVENTS = 1'000'000'000;
constexpr unsigned int LONGEST_INTERVAL = 24 * 3600 * 1000;
constexpr unsigned int LONGEST_TIMEOUT = 3600;

constexpr const char *SUMMARY =
    "Declares an event, sends it, and takes the declaration back.\n"
    "\n"
    "TYPE is int, bool, double or string, which is the default. NS is the namespace\n"
    "of the key. A backslash before \"@\", \":\" or \"=\" makes it a part of the key.";

constexpr const char *DESCRIPTION =
    "With --hold the declaration stays, and with it the last value of a property,\n"
    "until SIGINT, SIGTERM or the end of standard input. Each line of standard\n"
    "input, \"KEY=VALUE ...\" with shell quoting, changes these values and sends the\n"
    "event again; an empty line sends it as it is. \"holding\" on standard error says\n"
    "that the declaration is there. A key given without \"=VALUE\" gets its first\n"
    "value that way; no event is sent before every key has one.\n"
    "\n"
    "Exit status: 0 all was sent, 1 wrong usage, or something could not be sent.\n"
    "\n"
    "Examples:\n"
    "  norq-event send --topic tns1:Device/tnsnorq:Beta index:int=1 \\\n"
    "      --tag index=onvif-source state:bool=true\n"
    "  norq-event send --hold --property state --topic tnsnorq:Door state:bool=false";

/** The command line as it stands, before its parts are checked against each other. */
struct Given {
    std::optional<std::string> topic;
    std::vector<std::string> tags;
    std::vector<std::string> fixedKeys;
    std::optional<unsigned int> count;
    std::optional<unsigned int> interval;
    std::optional<unsigned int> timeout;
    bool noInput = false;
    std::vector<std::string> items;
};

Given parseWords(const std::vector<std::string> &words, SendOptions &options)
{
    Given given;
    CommandLine line("norq-event", "send", "KEY[@NS][:TYPE]=VALUE...", SUMMARY, DESCRIPTION);
    line.text("topic", "NS:LEVEL/...", "Set topic0, topic1, ... of the event", given.topic);
    line.texts("tag", "KEY=TAG", "Tag a key, e.g. index=onvif-source; may be repeated", given.tags);
    line.text("property", "KEY", "Declare a property event with this state key", options.property);
    line.texts("fixed", "KEY", "Make the value part of the declaration; may be repeated",
               given.fixedKeys);
    line.flag("internal", "Declare the event as internal to the device", options.internal);
    line.number("count", "N", "Send the event N times (default 1)", MOST_EVENTS, given.count);
    line.number("interval", "MS", "Milliseconds between the events (default 0)", LONGEST_INTERVAL,
                given.interval);
    line.number("timeout", "SECONDS", "Longest wait for the service to take an event (default 5)",
                LONGEST_TIMEOUT, given.timeout);
    line.flag("hold", "Stay and keep the declaration", options.hold);
    line.flag("no-input", "With --hold: do not read standard input", given.noInput);
    given.items = line.parse(words);
    return given;
}

Item &itemOf(std::vector<Item> &items, const std::string &key, const char *option)
{
    const auto found = std::find_if(items.begin(), items.end(),
                                    [&key](const Item &item) { return item.key == key; });
    if (found == items.end()) {
        throw UsageError(std::string(option) + ": the event has no key '" + key + "'");
    }
    return *found;
}

std::vector<Item> topicItems(const std::string &topic)
{
    std::vector<Item> items;
    for (const TopicLevel &level : parseTopic(topic)) {
        Item item;
        item.key = topicKey(items.size());
        item.nameSpace = level.nameSpace.value_or("");
        item.value = Value::parse(item.key, EVENT_VALUE_STRING, level.name);
        items.push_back(std::move(item));
    }
    return items;
}

/** A topic level is what subscriptions select by: it is fixed unless its value is still to come. */
void fixTopic(std::vector<Item> &items)
{
    for (Item &item : items) {
        item.fixed = json::topicLevel(item.key).has_value() && item.value.has_value();
    }
}

void check(const SendOptions &options, const Given &given)
{
    if (options.items.empty()) {
        throw UsageError("an event needs a --topic or a KEY=VALUE");
    }
    if (given.noInput && !options.hold) {
        throw UsageError("--no-input is for --hold");
    }
    for (const Item &item : options.items) {
        if (!item.value && (item.fixed || !options.readInput)) {
            throw UsageError("key '" + item.key + "' has no value: write KEY=VALUE");
        }
    }
}

} // namespace

SendOptions parseSendOptions(const std::vector<std::string> &words)
{
    SendOptions options;
    const Given given = parseWords(words, options);
    if (given.topic) {
        options.items = topicItems(*given.topic);
    }
    for (const std::string &item : given.items) {
        options.items.push_back(parseItem(item));
    }
    fixTopic(options.items);
    for (const std::string &key : given.fixedKeys) {
        itemOf(options.items, key, "--fixed").fixed = true;
    }
    for (const std::string &tag : given.tags) {
        options.tags.push_back(parsePair(tag, "KEY=TAG"));
        itemOf(options.items, options.tags.back().first, "--tag");
    }
    if (options.property) {
        itemOf(options.items, *options.property, "--property");
    }
    options.readInput = options.hold && !given.noInput;
    options.count = given.count.value_or(options.count);
    options.interval = given.interval.value_or(options.interval);
    options.timeout = given.timeout.value_or(options.timeout);
    check(options, given);
    return options;
}

} // namespace norq::tool
