/** SIGINT and SIGTERM as an orderly end of a main loop. */
#pragma once

#include <glib.h>

#include <array>

namespace norq::tool {

/**
 * While it lives, the first SIGINT or SIGTERM quits the loop. A second one ends the process at
 * once, so that an output that nobody reads can't keep it. Runs on the loop's thread.
 */
class Interruption {
public:
    explicit Interruption(GMainLoop *watched);
    ~Interruption();
    Interruption(const Interruption &) = delete;
    Interruption &operator=(const Interruption &) = delete;

    /** Whether a signal came. */
    [[nodiscard]] bool happened() const { return interrupted; }

private:
    static gboolean onSignal(void *self) noexcept;
    void removeSources();

    GMainLoop *loop;
    std::array<guint, 2> sources;
    bool interrupted = false;
};

} // namespace norq::tool
