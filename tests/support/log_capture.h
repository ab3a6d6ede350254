/** The log lines of this process, collected for a test. */
#pragma once

#include <glib.h>

#include <mutex>
#include <string>
#include <vector>

namespace test_support {

/** One line as it was handed to g_log(). */
struct LogLine {
    int level;
    std::string text;
};

/**
 * Takes the place of GLib's default log handler while it lives. Lines of any thread are kept.
 * One at a time.
 */
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    /** A copy of all lines so far. */
    [[nodiscard]] std::vector<LogLine> lines() const;
    /** How many lines of this level (0: of any) contain `part`. */
    [[nodiscard]] int count(int level, const std::string &part) const;
    /** Forgets what was collected. */
    void clear();

private:
    static void take(const char *domain, GLogLevelFlags level, const char *message, void *self);

    mutable std::mutex mutex; // guards collected
    std::vector<LogLine> collected;
    GLogFunc former;
};

} // namespace test_support
