/** Catches what is logged through g_log(), from any thread, and keeps it off the terminal. */
#pragma once

#include <glib.h>

#include <functional>
#include <mutex>
#include <ostream>
#include <string>
#include <vector>

namespace tovrel::test {

/** One logged message. */
struct LogLine {
    int level = 0; // as given to g_log(), without its internal flags
    std::string text;

    bool operator==(const LogLine &) const = default;
};

/** For test output. */
void PrintTo(const LogLine &line, std::ostream *stream);

/** Catches while it lives. One at a time. */
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    /** The lines since the last call of this function, in their order. */
    std::vector<LogLine> take();

    /** Runs after each line, on the thread that logged it. To be set before there are others. */
    std::function<void()> onLine;

    /** Adds a line; for the handler. */
    void add(int level, const char *message);

private:
    std::mutex mutex; // guards lines
    std::vector<LogLine> lines;
    GLogFunc former;
};

} // namespace tovrel::test
