#include "tovrelctl/commands.h"

#include "command_line/command_line.h"
#include "command_line/output.h"
#include "command_line/usage_error.h"
#include "tovrelctl/failure.h"
#include "tovrelctl/output.h"

#include <glib.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <exception>
#include <new>
#include <string_view>

namespace tovrelctl {

namespace {

using command_line::CommandLine;
using command_line::UsageError;

constexpr const char *HELP =
    "Usage: tovrelctl [OPTION...] COMMAND [ARGUMENT...]\n"
    "\n"
    "Shows and changes how tovrel connects device events and MQTT.\n"
    "\n"
    "  show                            everything, and whether the broker is there\n"
    "\n"
    "Device events that become MQTT messages:\n"
    "  filter list\n"
    "  filter add TOPIC_FILTER         for example 'onvif:Device//.'\n"
    "  filter set ID                   change one\n"
    "  filter remove ID...\n"
    "  get [SETTING]                   topics and payloads of the messages\n"
    "  set SETTING VALUE\n"
    "\n"
    "MQTT messages that become device events:\n"
    "  subscription list\n"
    "  subscription add TOPIC_FILTER   for example 'building/+/door'\n"
    "  subscription set ID             change one\n"
    "  subscription remove ID...\n"
    "\n"
    "The whole configuration:\n"
    "  export FILE                     write it to a file\n"
    "  import FILE                     read it from a file [--replace] [--dry-run]\n"
    "\n"
    "  --json                          print JSON, for programs\n"
    "  --timeout SECONDS               how long to wait for the service (default 60)\n"
    "  --version\n"
    "  --help                          after a command: its options and arguments;\n"
    "                                  so does \"help COMMAND\"\n"
    "\n"
    "Exit status: 0 done, 1 refused or failed, 2 wrong usage, 3 no answer from the\n"
    "service.\n";

struct NamedCommand {
    std::string_view name;
    Command run;
    /** File names are bytes; everything else becomes text. */
    bool takesFile = false;
};

constexpr std::array COMMANDS{
    NamedCommand{"show", runShow},
    NamedCommand{"get", runGet},
    NamedCommand{"set", runSet},
    NamedCommand{"subscription", runSubscription},
    NamedCommand{"filter", runFilter},
    NamedCommand{"export", runExport, true},
    NamedCommand{"import", runImport, true},
};

const NamedCommand &commandOf(const std::string &name)
{
    const auto *const found = std::ranges::find(COMMANDS, name, &NamedCommand::name);
    if (found == COMMANDS.end()) {
        throw UsageError("unknown command '" + name +
                         "', expected show, get, set, subscription, "
                         "filter, export or import");
    }
    return *found;
}

int printHelp(const GlobalOptions &options, Words words)
{
    if (words.empty()) {
        command_line::print(HELP);
        return EXIT_DONE;
    }
    words.emplace_back("--help");
    return commandOf(words.front()).run(options, {words.begin() + 1, words.end()});
}

int runNamed(const Words &words)
{
    GlobalOptions options;
    bool help = false;
    bool version = false;
    CommandLine line("tovrelctl", "", "COMMAND", "", "");
    line.flag("help", "", help, 'h');
    line.flag("version", "", version);
    line.leaveToCaller();
    Words rest = parse(line, options, words);
    if (help || version) {
        command_line::print(help ? HELP : "tovrelctl " TOVREL_VERSION "\n");
        return EXIT_DONE;
    }
    if (rest.empty()) {
        throw UsageError("a command is missing");
    }
    const std::string name = rest.front();
    rest.erase(rest.begin());
    if (name == "help") {
        return printHelp(options, rest);
    }
    const NamedCommand &command = commandOf(name);
    if (!command.takesFile) {
        command_line::requireUtf8(rest);
    }
    return command.run(options, rest);
}

/** Runs, and tells what failed. */
int runAndTell(const Words &words)
{
    try {
        return runNamed(words);
    } catch (const UsageError &error) {
        complain(error.what());
        // The name of the command whose line was parsed last.
        advise(std::string("Try '") + g_get_prgname() + " --help'.");
        return EXIT_USAGE;
    } catch (const Unreachable &failure) {
        complain(failure.what());
        advise(failure.advice());
        return EXIT_UNREACHABLE;
    } catch (const Failure &failure) {
        complain(failure.what());
        advise(failure.advice());
    } catch (const std::bad_alloc &) {
        complain("there is not enough memory");
    } catch (const std::exception &failure) {
        complain(failure.what());
    }
    return EXIT_FAILED;
}

} // namespace

int runTool(const Words &words) noexcept
{
    g_set_prgname("tovrelctl");
    try {
        return runAndTell(words);
    } catch (const std::exception &) {
        // telling it has failed as well
        std::fputs("tovrelctl: failed\n", stderr);
        return EXIT_FAILED;
    }
}

} // namespace tovrelctl
