#include "core/dbus_handler.h"

#include "core/sd_event_source.h"
#include "interfaces/callback_barrier.h"
#include "interfaces/exceptions.h"
#include "interfaces/log.h"

#include <glib-unix.h>

#include <csignal>

namespace tovrel {

namespace {

constexpr const char *SERVICE_NAME = "com.norq.Tovrel1";
constexpr const char *OBJECT_PATH = "/com/norq/Tovrel1";
constexpr const char *LEGACY_INTERFACE = "com.norq.Tovrel1";
constexpr const char *API_INTERFACE = "com.norq.Mirel.Backend1";

/** sd-bus makes this signal up itself when the connection has ended; no bus daemon sends it. */
constexpr const char *LOCAL_SENDER = "org.freedesktop.DBus.Local";
constexpr const char *LOCAL_PATH = "/org/freedesktop/DBus/Local";
constexpr const char *LOCAL_INTERFACE = "org.freedesktop.DBus.Local";

int onDisconnected(sd_bus_message * /*message*/, void * /*data*/, sd_bus_error * /*error*/)
{
    // A service without its bus would stay up and deaf. Ending with a failure lets the service
    // manager bring it back.
    return carryToMainLoop(0, []() -> int {
        tovrel_log(LOG_LEVEL_FAILURE, "%sLost the connection to the system bus", LOG_PREFIX);
        throw SdBusException("Lost the connection to the system bus");
    });
}

int onNameReleased(sd_bus_message * /*reply*/, void *data, sd_bus_error * /*error*/)
{
    return carryToMainLoop(1, [data] {
        tovrel_log(LOG_LEVEL_PROGRESS, "%sName released - quitting main loop", LOG_PREFIX);
        g_main_loop_quit(static_cast<GMainLoop *>(data));
        return 1;
    });
}

gboolean onTerminationSignal(gpointer /*data*/)
{
    return G_SOURCE_REMOVE;
}

} // namespace

DbusHandler::DbusHandler(BaseEventBridge &ownBridge)
    : bridge(&ownBridge),
      legacyMethods{{SD_BUS_VTABLE_START(0), SD_BUS_VTABLE_END}},
      apiMethods{{SD_BUS_VTABLE_START(0), SD_BUS_VTABLE_END}}
{
    openBus();
    addObject();
    requestName();
}

void DbusHandler::openBus()
{
    if (sd_bus_default_system(&bus) < 0) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sFailed adding to open bus!", LOG_PREFIX);
        throw SdBusException("Failed adding to open bus!");
    }
}

void DbusHandler::addObject()
{
    int result =
        sd_bus_add_object_vtable(bus, nullptr, OBJECT_PATH, API_INTERFACE, apiMethods.data(), this);
    if (result < 0) {
        throw SdBusException("Could not add Mirel DBus object");
    }

    result = sd_bus_add_object_vtable(bus, nullptr, OBJECT_PATH, LEGACY_INTERFACE,
                                      legacyMethods.data(), this);
    if (result < 0) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sFailed adding to vtable", LOG_PREFIX);
        throw SdBusException(std::string("Failed to add object to vtable: ") + g_strerror(-result));
    }
}

void DbusHandler::requestName()
{
    const int result = sd_bus_request_name(bus, SERVICE_NAME, 0);
    if (result < 0) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sFailed getting service name: error: %s", LOG_PREFIX,
                   g_strerror(-result));
        throw SdBusException(std::string("Service name request failed: error: ") +
                             g_strerror(-result));
    }
}

void DbusHandler::start()
{
    int result = sd_event_default(&eventLoop);
    if (result < 0) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sFailed to setup event loop", LOG_PREFIX);
        throw SdBusException(std::string("Failed to setup event loop, error: ") +
                             g_strerror(-result));
    }

    result = sd_bus_attach_event(bus, eventLoop, 0);
    if (result < 0) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sFailed to attach", LOG_PREFIX);
        throw SdBusException(std::string("Failed to attach to sd bus event loop, error: ") +
                             g_strerror(-result));
    }

    watchConnection();
    mainLoopSourceId = attachSdEventSource(eventLoop);
}

void DbusHandler::watchConnection()
{
    const int result = sd_bus_match_signal(bus, nullptr, LOCAL_SENDER, LOCAL_PATH, LOCAL_INTERFACE,
                                           "Disconnected", onDisconnected, nullptr);
    if (result < 0) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sFailed to watch the bus connection", LOG_PREFIX);
        throw SdBusException(std::string("Failed to watch the bus connection, error: ") +
                             g_strerror(-result));
    }
}

bool DbusHandler::releaseNameAndQuit(GMainLoop *mainLoop)
{
    // The service manager may send SIGTERM as soon as the name is gone, before the completion has
    // arrived here; without a handler it would turn an orderly end into a death by signal.
    const guint guard = g_unix_signal_add(SIGTERM, onTerminationSignal, nullptr);

    tovrel_log(LOG_LEVEL_PROGRESS, "%sReleasing DBus name", LOG_PREFIX);
    const int result =
        sd_bus_release_name_async(bus, nullptr, SERVICE_NAME, onNameReleased, mainLoop);
    if (result < 0) {
        tovrel_log(LOG_LEVEL_PROGRESS, "%sCould not release DBus name.", LOG_PREFIX);
        g_source_remove(guard);
        return false;
    }
    return true;
}

} // namespace tovrel
