#include <norq/log.h>

#include "log/glib_hooks.h"
#include "log/logger.h"

#include <syslog.h>

#include <atomic>
#include <cerrno>
#include <exception>

namespace {

using norq::log::Logger;

/** Never freed: destructors of the process's other objects may log. */
std::atomic<Logger *> processLogger{nullptr};

} // namespace

void nq_log_syslog(const char *identity)
{
    if (processLogger != nullptr) {
        return;
    }
    try {
        processLogger = new Logger(identity != nullptr ? identity : program_invocation_short_name);
        norq_log_install_hooks();
    } catch (const std::exception &) {
        // GLib's own handlers stay, on the standard streams.
        syslog(LOG_ERR, "the logger cannot be set up");
    }
}

void norq_log_deliver(unsigned int level, const char *domain, const char *message, size_t length)
{
    try {
        processLogger.load()->write(level, domain, {message, length});
    } catch (const std::exception &) {
        syslog(LOG_ERR, "a message could not be logged: memory is exhausted");
    }
}
