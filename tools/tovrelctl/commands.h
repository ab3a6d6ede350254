/** The commands of tovrelctl. */
#pragma once

#include <string>
#include <vector>

namespace tovrelctl {

/** What the words before the command ask for. */
struct GlobalOptions {
    /** Print what programs read. */
    bool json = false;
};

/** A command: takes the words behind its name, gives the exit status, throws what failed. */
using Command = int (*)(const GlobalOptions &options, const std::vector<std::string> &words);

int runShow(const GlobalOptions &options, const std::vector<std::string> &words);
int runGet(const GlobalOptions &options, const std::vector<std::string> &words);
int runSet(const GlobalOptions &options, const std::vector<std::string> &words);
int runSubscription(const GlobalOptions &options, const std::vector<std::string> &words);
int runFilter(const GlobalOptions &options, const std::vector<std::string> &words);
int runExport(const GlobalOptions &options, const std::vector<std::string> &words);
int runImport(const GlobalOptions &options, const std::vector<std::string> &words);

/**
 * Runs the command that the words name. Failures are written to standard error; nothing is thrown.
 */
int runTool(const std::vector<std::string> &words) noexcept;

} // namespace tovrelctl
