#include "fakes/log_capture.h"

#include "fakes/log_capture_handler.h"

#include <utility>

namespace tovrel::test {

void PrintTo(const LogLine &line, std::ostream *stream)
{
    *stream << line.level << " \"" << line.text << '"';
}

LogCapture::LogCapture() : former(g_log_set_default_handler(tovrel_test_capture_line, this)) {}

LogCapture::~LogCapture()
{
    g_log_set_default_handler(former, nullptr);
}

std::vector<LogLine> LogCapture::take()
{
    const std::lock_guard lock(mutex);
    return std::exchange(lines, {});
}

void LogCapture::add(int level, const char *message)
{
    {
        const std::lock_guard lock(mutex);
        lines.push_back({level, message});
    }
    if (onLine) {
        onLine();
    }
}

} // namespace tovrel::test

void tovrel_test_captured_line(int level, const char *message, void *user_data)
{
    static_cast<tovrel::test::LogCapture *>(user_data)->add(level, message);
}
