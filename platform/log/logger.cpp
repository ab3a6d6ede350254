#include "log/logger.h"

#include "log/line.h"

#include <glib.h>
#include <sys/uio.h>
#include <syslog.h>
#include <unistd.h>

// The place in the code would be this file's.
#define SD_JOURNAL_SUPPRESS_LOCATION
#include <systemd/sd-journal.h>

#include <array>
#include <cerrno>
#include <vector>

namespace norq::log {

namespace {

constexpr const char *JOURNAL_SOCKET = "/run/systemd/journal/socket";

iovec toIovec(const std::string &text)
{
    // The parts are read only; iovec knows no constants.
    return {const_cast<char *>(text.data()), text.size()};
}

bool writeToJournal(const std::string &identity, int priority, const char *domain,
                    const std::string &line)
{
    // Looked at each time, because the library takes a missing journal for success.
    if (access(JOURNAL_SOCKET, W_OK) != 0) {
        return false;
    }
    std::vector<std::string> fields{"MESSAGE=" + line, "PRIORITY=" + std::to_string(priority),
                                    "SYSLOG_IDENTIFIER=" + identity};
    if (domain != nullptr) {
        fields.push_back("GLIB_DOMAIN=" + toLine(domain));
    }
    std::vector<iovec> parts;
    parts.reserve(fields.size());
    for (const std::string &field : fields) {
        parts.push_back(toIovec(field));
    }
    return sd_journal_sendv(parts.data(), static_cast<int>(parts.size())) >= 0;
}

const char *colourOf(int priority)
{
    switch (priority) {
    case LOG_ERR:
        return "\x1b[1;31m"; // bright red
    case LOG_WARNING:
        return "\x1b[1;33m"; // bright yellow
    case LOG_DEBUG:
        return "\x1b[2m"; // dim
    default:
        return "";
    }
}

} // namespace

Logger::Logger(std::string_view name)
    : identity(toLine(name)),
      coloured(isatty(STDERR_FILENO) == 1),
      onStandardError(coloured || g_strcmp0(g_getenv("NORQ_LOG_STDERR"), "1") == 0)
{
    openlog(identity.c_str(), LOG_PID, LOG_DAEMON);
}

void Logger::write(unsigned int level, const char *domain, std::string_view message)
{
    const int savedErrno = errno;
    const int priority = priorityOf(level);
    const std::string line = toLine(message);
    // The journal has a field of its own for it.
    const std::string lineWithDomain = domain != nullptr ? toLine(domain) + ": " + line : line;
    if (!writeToJournal(identity, priority, domain, line)) {
        syslog(priority, "%s", lineWithDomain.c_str());
    }
    if (onStandardError) {
        writeToStandardError(priority, lineWithDomain);
    }
    errno = savedErrno;
}

void Logger::writeToStandardError(int priority, const std::string &line)
{
    const char *colour = coloured ? colourOf(priority) : "";
    const char *end = *colour != '\0' ? "\x1b[0m\n" : "\n";
    const std::string text = colour + identity + ": " + priorityName(priority) + ": " + line + end;
    const std::lock_guard lock(standardErrorMutex);
    std::string_view rest = text;
    while (!rest.empty()) {
        const ssize_t written = ::write(STDERR_FILENO, rest.data(), rest.size());
        if (written < 0 && errno != EINTR) {
            return;
        }
        rest.remove_prefix(written > 0 ? static_cast<std::size_t>(written) : 0);
    }
}

} // namespace norq::log
