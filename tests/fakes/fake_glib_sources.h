/**
 * Stands in for GLib's ready-made sources and for running a main loop: what is added is noted and
 * runs only when the test says so, so that nothing is waited for. Every call is put on the list of
 * call_record.h. Linked by wrapping GLib's functions (see CMakeLists.txt). One thread.
 */
#pragma once

#include <glib.h>

#include <functional>
#include <string>
#include <vector>

namespace tovrel::test {

class FakeGlibSources {
public:
    struct Source {
        guint id;
        /** "timeout", "idle" or "signal". */
        std::string kind;
        /** Seconds of a timeout, number of a signal, 0 for an idle source. */
        guint value;
        GSourceFunc function;
        gpointer data;
        /** Whether the main loop still knows the source. */
        bool attached = true;
    };

    /** The one fake of the test program. */
    static FakeGlibSources &instance();

    /** Forgets all sources and lets everything succeed; ids go on. */
    void reset();

    /** Adds a source and gives its id. */
    guint add(const std::string &kind, guint value, GSourceFunc function, gpointer data);

    /** The sources of a kind that the main loop still knows, in the order in which they came. */
    std::vector<Source> attached(const std::string &kind) const;

    /** Dispatches a source, which leaves the loop if it says so. Gives what the source said. */
    gboolean dispatch(guint id);

    /** Every source that was ever added, in order. */
    std::vector<Source> sources;
    /** Lets g_source_remove() fail. */
    bool removalFails = false;

    /** What happens while a main loop runs; nothing by default, so that it ends at once. */
    std::function<void()> whileRunning;
    /** The loops that were run. */
    std::vector<GMainLoop *> runLoops;
    /** The loops that were quit. */
    std::vector<GMainLoop *> quitLoops;

private:
    guint nextId = 1;
};

} // namespace tovrel::test
