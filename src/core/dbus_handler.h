/**
 * The service on the system bus: its connection, its object with the methods of both interfaces,
 * its name, and the device's other services that it asks. Belongs to the main thread.
 */
#pragma once

#include "interfaces/base_dbus_handler.h"
#include "interfaces/c_handles.h"

#include <norq/dbh.h>
#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <array>
#include <string>

namespace tovrel {

class BaseEventBridge;

/**
 * The bus connection, the sd-event loop and the GLib source are the thread's default ones and are
 * deliberately not released here: they live until the process ends, and whoever destroys this
 * object must not run the main loop afterwards, because the methods on the bus point at it.
 */
class DbusHandler final : public BaseDbusHandler {
public:
    /**
     * Connects to the system bus, puts the object there and takes the service's name. `ownBridge`
     * is borrowed, may be null, and outlives this object. Throws SdBusException.
     */
    explicit DbusHandler(BaseEventBridge *ownBridge);

    void start() override;

    int handleSetMQTTToEventConfig(sd_bus_message *message, sd_bus_error *error) override;
    int fillMQTTToEventConfigReply(sd_bus_message *reply) override;
    int handleSetEventToMQTTConfig(sd_bus_message *message) override;
    int fillEventToMQTTConfigReply(sd_bus_message *reply) override;

    std::string getSerialNumber() override;
    std::string getDeviceTopicPrefix() override;

    bool releaseNameAndQuit(GMainLoop *mainLoop) override;

    /**
     * The answer of the configuration API to a request text, which may be null; nothing, logged,
     * when there is none.
     */
    MallocText processRequest(const char *request);

private:
    using RequestHandler = CHandle<dbh_request_handler_t, dbh_request_handler_free>;
    using Api = CHandle<dbh_api_t, dbh_delete_api>;

    void setUpApi();
    void openBus();
    void addObject();
    void requestName();
    void watchConnection();

    BaseEventBridge *bridge;
    sd_bus *bus = nullptr;
    sd_event *eventLoop = nullptr;
    // Both tables stand between a start and an end entry; sd-bus reads them where they are. To be
    // filled byte by byte only: see core/bus_methods.h.
    std::array<sd_bus_vtable, 6> legacyMethods{};
    std::array<sd_bus_vtable, 3> apiMethods{};
    guint mainLoopSourceId = 0;
    Api api;
    RequestHandler requestHandler; // goes before the API that it serves
};

} // namespace tovrel
