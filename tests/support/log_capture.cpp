#include "support/log_capture.h"

#include <cstring>

namespace test_support {
namespace {

/** The level as a number: the user-defined levels have no enumerator that C++ could name. */
int numberOf(const GLogLevelFlags &level)
{
    static_assert(sizeof(GLogLevelFlags) == sizeof(int));
    int number = 0;
    std::memcpy(&number, &level, sizeof number);
    return number;
}

} // namespace

LogCapture::LogCapture() : former(g_log_set_default_handler(take, this)) {}

LogCapture::~LogCapture()
{
    g_log_set_default_handler(former, nullptr);
}

std::vector<LogLine> LogCapture::lines() const
{
    const std::lock_guard guard(mutex);
    return collected;
}

int LogCapture::count(int level, const std::string &part) const
{
    int found = 0;
    for (const LogLine &line : lines()) {
        const bool levelFits = level == 0 || line.level == level;
        if (levelFits && line.text.find(part) != std::string::npos) {
            ++found;
        }
    }
    return found;
}

void LogCapture::clear()
{
    const std::lock_guard guard(mutex);
    collected.clear();
}

void LogCapture::take(const char * /*domain*/, GLogLevelFlags level, const char *message,
                      void *self)
{
    auto *capture = static_cast<LogCapture *>(self);
    const std::lock_guard guard(capture->mutex);
    capture->collected.push_back({numberOf(level), message == nullptr ? "" : message});
}

} // namespace test_support
