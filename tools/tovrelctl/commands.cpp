#include "tovrelctl/commands.h"

#include "command_line/usage_error.h"
#include "tovrelctl/failure.h"
#include "tovrelctl/output.h"

#include <glib.h>

#include <array>
#include <cstdio>
#include <exception>
#include <string_view>

namespace tovrelctl {

namespace {

using command_line::UsageError;

constexpr const char *HELP =
    "Usage: tovrelctl [--json] COMMAND [ARGUMENT...]\n"
    "\n"
    "Shows and changes how tovrel connects device events and MQTT.\n"
    "\n"
    "  show                          everything, and whether the broker is there\n"
    "  filter add TOPIC_FILTER       publish these device events as MQTT messages\n"
    "  filter list|set|remove\n"
    "  subscription add TOPIC_FILTER make device events of these MQTT messages\n"
    "  subscription list|set|remove\n"
    "  get [SETTING]                 how events are published\n"
    "  set SETTING VALUE\n"
    "  export FILE                   write the configuration to a file\n"
    "  import FILE [--replace] [--dry-run]\n"
    "                                read it from a file\n"
    "\n"
    "  --json                        print JSON, for programs\n"
    "  --help, --version             after a command: help for that\n"
    "\n"
    "To begin: tovrelctl filter add 'onvif:Device//.'\n"
    "\n"
    "Exit status: 0 done, 1 refused or failed, 2 wrong usage, 3 no answer from the\n"
    "service.\n";

struct NamedCommand {
    std::string_view name;
    Command run;
};

constexpr std::array COMMANDS{
    NamedCommand{"show", runShow},     NamedCommand{"get", runGet},
    NamedCommand{"set", runSet},       NamedCommand{"subscription", runSubscription},
    NamedCommand{"filter", runFilter}, NamedCommand{"export", runExport},
    NamedCommand{"import", runImport},
};

void checkEncoding(const std::vector<std::string> &words)
{
    for (const std::string &word : words) {
        if (g_utf8_validate(word.c_str(), -1, nullptr) == FALSE) {
            throw UsageError("an argument is not valid UTF-8");
        }
    }
}

int runNamed(const std::vector<std::string> &words)
{
    checkEncoding(words);
    GlobalOptions options;
    auto word = words.begin();
    if (word != words.end() && *word == "--json") {
        options.json = true;
        ++word;
    }
    if (word == words.end()) {
        throw UsageError("a command is missing");
    }
    if (*word == "--help" || *word == "-h" || *word == "help") {
        print(HELP);
        return EXIT_DONE;
    }
    if (*word == "--version") {
        print("tovrelctl " TOVREL_VERSION "\n");
        return EXIT_DONE;
    }
    for (const NamedCommand &command : COMMANDS) {
        if (command.name == *word) {
            return command.run(options, {word + 1, words.end()});
        }
    }
    throw UsageError("unknown command '" + *word + "'");
}

} // namespace

int runTool(const std::vector<std::string> &words) noexcept
{
    try {
        return runNamed(words);
    } catch (const UsageError &error) {
        std::fprintf(stderr, "tovrelctl: %s\nTry 'tovrelctl --help'.\n", error.what());
        return EXIT_USAGE;
    } catch (const Unreachable &failure) {
        std::fprintf(stderr, "tovrelctl: %s\n", failure.what());
        return EXIT_UNREACHABLE;
    } catch (const std::exception &failure) {
        std::fprintf(stderr, "tovrelctl: %s\n", failure.what());
        return EXIT_FAILED;
    }
}

} // namespace tovrelctl
