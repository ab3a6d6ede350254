#include "command_line/command_line.h"
#include "command_line/usage_error.h"
#include "tovrelctl/commands.h"
#include "tovrelctl/service.h"

#include <chrono>

namespace tovrelctl {

namespace {

using command_line::UsageError;

constexpr unsigned int LONGEST_TIMEOUT = 86400;

} // namespace

Service GlobalOptions::connect() const
{
    return Service(std::chrono::seconds(timeoutSeconds));
}

Words parse(command_line::CommandLine &line, GlobalOptions &options, const Words &words)
{
    std::optional<unsigned int> timeout;
    line.flag("json", "Print JSON, for programs", options.json);
    line.number("timeout", "SECONDS", "How long to wait for the service (default 60)",
                LONGEST_TIMEOUT, timeout, 1);
    Words rest = line.parse(words);
    options.timeoutSeconds = timeout.value_or(options.timeoutSeconds);
    return rest;
}

void requireSome(const Words &words, const char *what)
{
    if (words.empty()) {
        throw UsageError(std::string(what) + " is missing");
    }
}

void requireNoMore(const Words &words, const char *what)
{
    if (words.size() > 1) {
        throw UsageError("'" + words[1] + "': only one " + what + " is expected");
    }
}

std::string onlyOne(const Words &words, const char *what)
{
    requireSome(words, what);
    requireNoMore(words, what);
    return words.front();
}

} // namespace tovrelctl
