#include "event/tool/interruption.h"

#include <glib-unix.h>

#include <csignal>

namespace norq::tool {

Interruption::Interruption(GMainLoop *watched)
    : loop(watched),
      sources{g_unix_signal_add(SIGINT, onSignal, this), g_unix_signal_add(SIGTERM, onSignal, this)}
{
}

Interruption::~Interruption()
{
    removeSources();
}

gboolean Interruption::onSignal(void *self) noexcept
{
    auto *interruption = static_cast<Interruption *>(self);
    interruption->interrupted = true;
    g_main_loop_quit(interruption->loop);
    interruption->removeSources();
    return G_SOURCE_REMOVE;
}

void Interruption::removeSources()
{
    // without its sources, GLib gives the signals their default action back
    for (guint &source : sources) {
        if (source != 0) {
            g_source_remove(source);
            source = 0;
        }
    }
}

} // namespace norq::tool
