#include "event/tool/commands.h"

#include <glib.h>

#include <clocale>
#include <cstdio>

namespace {

/** What the event library has to say, in the tool's own manner. Any thread. */
void printLog(const char *, GLogLevelFlags level, const char *message, void *) noexcept
{
    if ((level & (G_LOG_LEVEL_INFO | G_LOG_LEVEL_DEBUG)) == 0) {
        std::fprintf(stderr, "norq-event: %s\n", message);
    }
}

} // namespace

/**
 * Everything happens in the command that the first argument names (commands.h); it waits in a main
 * loop on this thread, while events arrive on a thread of the event library. The exit status is 0
 * when the command did what it was asked for, 1 after wrong usage or a failure, and 3 when "watch"
 * ran out of time.
 */
int main(int argc, char *argv[])
{
    // for the texts of the help; numbers keep their own notation
    std::setlocale(LC_CTYPE, ""); // NOLINT(concurrency-mt-unsafe): there is no other thread yet
    g_log_set_default_handler(printLog, nullptr);
    return norq::tool::runTool({argv + 1, argv + argc});
}
