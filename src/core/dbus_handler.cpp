#include "core/dbus_handler.h"

#include "api/tovrel_v2_backend.h"
#include "core/bus_methods.h"
#include "core/sd_event_source.h"
#include "interfaces/callback_barrier.h"
#include "interfaces/exceptions.h"
#include "interfaces/log.h"

#include <glib-unix.h>

#include <csignal>
#include <cstring>

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

using ApiFailure = CHandle<dbh_error_t, dbh_error_free>;

int onDisconnected(sd_bus_message * /*message*/, void * /*data*/, sd_bus_error * /*error*/)
{
    // A service without its bus would stay up and deaf. Ending with a failure lets the service
    // manager bring it back.
    return carryToMainLoop(0, []() -> int {
        tovrel_log(LOG_LEVEL_FAILURE, "%sLost the connection to the system bus", LOG_PREFIX);
        throw SdBusException("Lost the connection to the system bus");
    });
}

int onNameReleased(sd_bus_message *reply, void *data, sd_bus_error * /*error*/)
{
    return carryToMainLoop(1, [reply, data] {
        // Every call that came before this has been answered, but a bus that has much to do may not
        // have taken all of the answers yet, and with the process they would be gone.
        sd_bus_flush(sd_bus_message_get_bus(reply));
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

DbusHandler::DbusHandler(BaseEventBridge *ownBridge) : bridge(ownBridge)
{
    static_assert(sizeof(legacyMethods) == sizeof(LEGACY_METHODS));
    static_assert(sizeof(apiMethods) == sizeof(API_METHODS));
    std::memcpy(legacyMethods.data(), LEGACY_METHODS.data(), sizeof(LEGACY_METHODS));
    std::memcpy(apiMethods.data(), API_METHODS.data(), sizeof(API_METHODS));
    setUpApi();
    openBus();
    addObject();
    requestName();
}

void DbusHandler::setUpApi()
{
    ApiFailure creation;
    ApiFailure registration;
    api.reset(tovrel_v2_create_api(bridge, nullptr, OutParameter(creation)));
    const auto *const interface = dbh_get_api_interface(api.get());
    requestHandler.reset(dbh_request_handler_new(interface));
    if (!dbh_request_handler_add_api(requestHandler.get(), interface, OutParameter(registration))) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sCould not setup Mirel API handling: %s", LOG_PREFIX,
                   dbh_error_message(creation ? creation.get() : registration.get()));
    }
}

MallocText DbusHandler::processRequest(const char *request)
{
    MallocText response;
    ApiFailure failure;
    if (!dbh_request_handler_process_request(requestHandler.get(), request, OutParameter(response),
                                             OutParameter(failure))) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sCould not process request: %s ", LOG_PREFIX,
                   dbh_error_message(failure.get()));
        response.reset();
    }
    return response;
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
    int result = sd_bus_add_object_vtable(bus, nullptr, OBJECT_PATH, API_INTERFACE,
                                          apiMethods.data(), static_cast<BaseDbusHandler *>(this));
    if (result < 0) {
        throw SdBusException("Could not add Mirel DBus object");
    }

    result = sd_bus_add_object_vtable(bus, nullptr, OBJECT_PATH, LEGACY_INTERFACE,
                                      legacyMethods.data(), static_cast<BaseDbusHandler *>(this));
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
