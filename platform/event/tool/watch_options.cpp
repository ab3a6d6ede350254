#include "event/tool/watch_options.h"

#include "command_line/command_line.h"
#include "event/tool/failure.h"
#include "event/tool/item.h"

#include <optional>

namespace norq::tool {

using command_line::CommandLine;

namespace {

constexpr unsigned int MOST_EVENTS = 1'000'000'000;
constexpr unsigned int LONGEST_TIMEOUT = 1'000'000;

constexpr const char *SUMMARY =
    "Prints events as they come, one a line. All conditions must hold; without any,\n"
    "every event is printed. \"watching\" on standard error says that from now on no\n"
    "event is missed.";

constexpr const char *DESCRIPTION =
    "The topic filter NS:LEVEL/... selects one topic, with \"//.\" at its end also\n"
    "everything below. A level without \"NS:\" is in the namespace of the one before.\n"
    "\n"
    "Exit status: 0 the count was reached, the time is over without a count, or\n"
    "interrupted without a count; 1 wrong usage or a failure, an interruption before\n"
    "the count was reached among them; 3 the time is over before the count was\n"
    "reached.\n"
    "\n"
    "Examples:\n"
    "  norq-event watch --topic tns1:Device//.\n"
    "  norq-event watch --topic tnsnorq:Door --match state=1 --json --count 1 --timeout 10";

bool parseInitial(const std::string &text)
{
    if (text != "yes" && text != "no") {
        throw UsageError("--initial: '" + text + "' is neither yes nor no");
    }
    return text == "yes";
}

} // namespace

WatchOptions parseWatchOptions(const std::vector<std::string> &words)
{
    WatchOptions options;
    std::optional<std::string> topic;
    std::optional<std::string> initial;
    std::vector<std::string> matches;
    std::vector<std::string> nameSpaces;

    CommandLine line("norq-event", "watch", "", SUMMARY, DESCRIPTION);
    line.text("topic", "FILTER", "Events of this topic", topic);
    line.texts("match", "KEY=VALUE", "Events in which KEY has VALUE; may be repeated", matches);
    line.texts("namespace", "KEY=NS", "Events in which KEY is in NS; may be repeated", nameSpaces);
    line.texts("absent", "KEY", "Events without KEY; may be repeated", options.absent);
    line.flag("json", "Print each event as JSON", options.json);
    line.number("count", "N", "End after N events", MOST_EVENTS, options.count);
    line.number("timeout", "SECONDS", "End after this time", LONGEST_TIMEOUT, options.timeout);
    line.text("initial", "yes|no", "Print the kept values of properties first (default yes)",
              initial);
    line.parse(words);

    if (topic) {
        options.topic = parseTopicFilter(*topic);
    }
    options.initial = !initial || parseInitial(*initial);
    for (const std::string &match : matches) {
        options.matches.push_back(parsePair(match, "KEY=VALUE"));
    }
    for (const std::string &nameSpace : nameSpaces) {
        options.nameSpaces.push_back(parsePair(nameSpace, "KEY=NS"));
    }
    return options;
}

} // namespace norq::tool
