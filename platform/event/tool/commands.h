/** The commands of the tool. Each takes the words behind its name and gives the exit status. */
#pragma once

#include <string>
#include <vector>

namespace norq::tool {

/** Prints all declarations of the event service. */
int runList(const std::vector<std::string> &words);

/** Declares an event and sends it. */
int runSend(const std::vector<std::string> &words);

/** Prints events as they come. */
int runWatch(const std::vector<std::string> &words);

/**
 * Runs the command that the first word names, after checking that all are UTF-8. Failures are
 * written to standard error; nothing is thrown.
 */
int runTool(const std::vector<std::string> &words) noexcept;

} // namespace norq::tool
