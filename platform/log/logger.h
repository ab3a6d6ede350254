/** Writes lines to the system log, and to standard error where somebody may be reading. */
#pragma once

#include <mutex>
#include <string>
#include <string_view>

namespace norq::log {

/** One process's access to the logs. Any thread. */
class Logger {
public:
    /**
     * Looks once at standard error and at the environment variable NORQ_LOG_STDERR.
     *
     * @param name identity of all lines
     */
    explicit Logger(std::string_view name);
    Logger(const Logger &) = delete;
    Logger &operator=(const Logger &) = delete;
    ~Logger() = default;

    /** Writes a message; `domain` may be NULL. Leaves errno alone. */
    void write(unsigned int level, const char *domain, std::string_view message);

private:
    void writeToStandardError(int priority, const std::string &line);

    const std::string identity;
    const bool coloured;
    const bool onStandardError;
    std::mutex standardErrorMutex; // keeps the lines of two threads apart
};

} // namespace norq::log
