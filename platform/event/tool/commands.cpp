#include "event/tool/commands.h"

#include "command_line/command_line.h"
#include "command_line/output.h"
#include "event/tool/declaration_text.h"
#include "event/tool/failure.h"
#include "event/tool/send_session.h"
#include "event/tool/service.h"
#include "event/tool/watch_session.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <exception>
#include <string_view>

namespace norq::tool {

using command_line::CommandLine;

namespace {

constexpr const char *HELP =
    "Usage: norq-event COMMAND [OPTION...]\n"
    "\n"
    "Looks into the device's event service and sends events through it.\n"
    "\n"
    "Commands:\n"
    "  list    print the declarations of all producers\n"
    "  send    declare an event and send it, once, often, or held with new values\n"
    "  watch   print events as they come, selected by topic and values\n"
    "\n"
    "norq-event COMMAND --help describes a command.\n"
    "Exit status: 0 done, 1 wrong usage or a failure, 3 the time was over (watch).\n";

struct Command {
    std::string_view name;
    int (*run)(const std::vector<std::string> &);
};

constexpr std::array COMMANDS{Command{"list", runList}, Command{"send", runSend},
                              Command{"watch", runWatch}};

int runNamed(const std::vector<std::string> &words)
{
    command_line::requireUtf8(words);
    if (words.empty()) {
        throw UsageError("a command is missing: list, send or watch");
    }
    if (words.front() == "--help" || words.front() == "-h" || words.front() == "help") {
        command_line::print(HELP);
        return EXIT_DONE;
    }
    for (const Command &command : COMMANDS) {
        if (command.name == words.front()) {
            return command.run({words.begin() + 1, words.end()});
        }
    }
    throw UsageError("unknown command '" + words.front() + "', expected list, send or watch");
}

bool isCommand(std::string_view word)
{
    return std::ranges::any_of(COMMANDS,
                               [word](const Command &command) { return command.name == word; });
}

} // namespace

int runList(const std::vector<std::string> &words)
{
    bool json = false;
    CommandLine line("norq-event", "list", "", "Prints the declarations of all producers.",
                     "Exit status: 0 printed, 1 wrong usage or a failure.");
    line.flag("json", "Print the JSON text of the event service", json);
    line.parse(words);

    const std::string document = listDeclarations();
    command_line::print(json ? document + '\n' : declarationLines(document));
    return EXIT_DONE;
}

int runSend(const std::vector<std::string> &words)
{
    const SendOptions options = parseSendOptions(words);
    requireService();
    return SendSession(options).run();
}

int runWatch(const std::vector<std::string> &words)
{
    return WatchSession(parseWatchOptions(words)).run();
}

int runTool(const std::vector<std::string> &words) noexcept
{
    const bool named = !words.empty() && isCommand(words.front());
    try {
        const std::string tool = named ? "norq-event " + words.front() : "norq-event";
        try {
            return runNamed(words);
        } catch (const UsageError &error) {
            std::fprintf(stderr, "%s: %s\nTry '%s --help'.\n", tool.c_str(), error.what(),
                         tool.c_str());
        }
    } catch (const std::exception &failure) {
        std::fprintf(stderr, "norq-event: %s\n", failure.what());
    }
    return EXIT_FAILED;
}

} // namespace norq::tool
