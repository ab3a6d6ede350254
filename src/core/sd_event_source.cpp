#include "core/sd_event_source.h"

#include "interfaces/c_handles.h"
#include "interfaces/exceptions.h"

#include <string>

namespace tovrel {

namespace {

/** Allocated, zeroed and freed by GLib. The header comes first: GLib sees only that. */
struct SdEventSource {
    GSource header;
    GPollFD pollRecord;
    sd_event *loop;
};

sd_event *loopOf(GSource *source)
{
    return reinterpret_cast<SdEventSource *>(source)->loop;
}

// The four functions call nothing but sd-event. What sd-event calls in turn, the handlers of the
// bus, stands behind a barrier of its own, so no exception passes through here.

gboolean prepareSource(GSource *source, gint * /*timeout*/)
{
    // When another source was ready, GLib skips check, and sd-event answers the next prepare with
    // "busy": not ready then, and the check that follows goes on from there.
    return sd_event_prepare(loopOf(source)) > 0 ? TRUE : FALSE;
}

gboolean checkSource(GSource *source)
{
    return sd_event_wait(loopOf(source), 0) > 0 ? TRUE : FALSE;
}

gboolean dispatchSource(GSource *source, GSourceFunc /*callback*/, gpointer /*data*/)
{
    return sd_event_dispatch(loopOf(source)) > 0 ? G_SOURCE_CONTINUE : G_SOURCE_REMOVE;
}

void finalizeSource(GSource *source)
{
    sd_event_unref(loopOf(source));
}

/** GLib's interface is not const, though it only reads the functions. */
GSourceFuncs sourceFunctions = {
    prepareSource, checkSource, dispatchSource, finalizeSource, nullptr, nullptr,
};

} // namespace

guint attachSdEventSource(sd_event *loop)
{
    const int descriptor = sd_event_get_fd(loop);
    if (descriptor < 0) {
        throw SdBusException(std::string("Failed to get event loop descriptor, error: ") +
                             g_strerror(-descriptor));
    }

    const CHandle<GSource, g_source_unref> source(
        g_source_new(&sourceFunctions, sizeof(SdEventSource)));
    auto *own = reinterpret_cast<SdEventSource *>(source.get());
    own->loop = sd_event_ref(loop);
    own->pollRecord.fd = descriptor;
    own->pollRecord.events = G_IO_IN | G_IO_ERR | G_IO_HUP;
    g_source_add_poll(source.get(), &own->pollRecord);
    return g_source_attach(source.get(), nullptr);
}

} // namespace tovrel
