/** The commands of tovrelctl. */
#pragma once

#include <string>
#include <vector>

namespace command_line {
class CommandLine;
}

namespace tovrelctl {

class Service;

using Words = std::vector<std::string>;

/** What every command takes, before or behind its name. */
struct GlobalOptions {
    /** Print what programs read. */
    bool json = false;
    /** How long an answer of the service is waited for. */
    unsigned int timeoutSeconds = 60;

    /** A connection to the service that waits so long. Throws Unreachable. */
    [[nodiscard]] Service connect() const;
};

/**
 * Parses the words behind a command's name by its own options and the global ones. Gives what
 * follows the options; throws UsageError.
 */
Words parse(command_line::CommandLine &line, GlobalOptions &options, const Words &words);

/** Throws UsageError, with what they should be, when there are no words. */
void requireSome(const Words &words, const char *what);

/** Throws UsageError, with what it should be, when there is more than one word. */
void requireNoMore(const Words &words, const char *what);

/** The only word that is given; throws UsageError, with what it should be, for none and several. */
std::string onlyOne(const Words &words, const char *what);

/** A command: takes the words behind its name, gives the exit status, throws what failed. */
using Command = int (*)(GlobalOptions options, const Words &words);

int runShow(GlobalOptions options, const Words &words);
int runGet(GlobalOptions options, const Words &words);
int runSet(GlobalOptions options, const Words &words);
int runSubscription(GlobalOptions options, const Words &words);
int runFilter(GlobalOptions options, const Words &words);
int runExport(GlobalOptions options, const Words &words);
int runImport(GlobalOptions options, const Words &words);

/**
 * Runs the command that the words name. Failures are written to standard error; nothing is thrown.
 */
int runTool(const Words &words) noexcept;

} // namespace tovrelctl
