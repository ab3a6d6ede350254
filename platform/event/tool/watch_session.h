/** The run of "norq-event watch": subscribes, prints what comes, ends when it is time. */
#pragma once

#include "event/tool/handles.h"
#include "event/tool/watch_options.h"

#include <atomic>
#include <string>

namespace norq::tool {

/** run() waits in a main loop of its own; events come on the thread of the event library. */
class WatchSession {
public:
    explicit WatchSession(WatchOptions given);

    /** Watches until the end; gives the exit status. Throws Failure and UsageError. */
    int run();

private:
    static void onEvent(event_t *event, void *self) noexcept;
    static gboolean onTimeout(void *self) noexcept;
    static gboolean onQuit(void *self) noexcept;

    void subscribe();
    void print(const event_t *event);
    void fail(const std::string &text);
    /** Ends the main loop; from any thread, also before it runs. */
    void quit();
    [[nodiscard]] int exitStatus(bool interrupted) const;

    const WatchOptions options;
    MainLoop loop;
    std::atomic<unsigned int> printed = 0;
    std::atomic<bool> ended = false; // nothing is printed any more
    std::atomic<bool> failed = false;
    bool timedOut = false;
    Consumer consumer; // last: its end waits for a callback under way, which uses the rest
};

} // namespace norq::tool
