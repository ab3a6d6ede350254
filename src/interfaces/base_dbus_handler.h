/** The service's presence on the system bus, as the rest of the service sees it. */
#pragma once

#include <glib.h>
#include <systemd/sd-bus.h>

#include <string>

namespace tovrel {

/** Everything here runs on the main thread. */
class BaseDbusHandler {
public:
    BaseDbusHandler() = default;
    BaseDbusHandler(const BaseDbusHandler &) = delete;
    BaseDbusHandler &operator=(const BaseDbusHandler &) = delete;
    virtual ~BaseDbusHandler() = default;

    /** Lets the GLib main loop serve the bus. Throws SdBusException. */
    virtual void start() = 0;

    /**
     * Body of the legacy method that replaces the MQTT-to-event items: reads them from `message`
     * and sends the reply itself. Returns the sd-bus result of sending. Throws SdBusException, with
     * too many items NoSuchConfigException, and what the bridge throws but
     * SubscribeConfigException.
     */
    virtual int handleSetMQTTToEventConfig(sd_bus_message *message, sd_bus_error *error) = 0;

    /** Fills `reply` with the MQTT-to-event items and sends it. Throws SdBusException. */
    virtual int fillMQTTToEventConfigReply(sd_bus_message *reply) = 0;

    /**
     * Body of the legacy method that replaces the event-to-MQTT configuration: its status. Throws
     * ConfigException when there are too many filters.
     */
    virtual int handleSetEventToMQTTConfig(sd_bus_message *message) = 0;

    /**
     * Fills `reply` with the event-to-MQTT configuration and sends it. Throws SdBusException,
     * EventBridgeException when there is no consumer, and ConfigException for a retain policy
     * without a text.
     */
    virtual int fillEventToMQTTConfigReply(sd_bus_message *reply) = 0;

    /** The device's serial number, "no_serial" when it cannot be read. Blocks; never throws. */
    virtual std::string getSerialNumber() = 0;

    /** The device's MQTT topic prefix, empty when it cannot be read. Blocks; never throws. */
    virtual std::string getDeviceTopicPrefix() = 0;

    /**
     * Starts giving the bus name back; `mainLoop` (borrowed, must outlive the release) is quit when
     * that is done. False when it could not be started: the caller then quits the loop.
     */
    virtual bool releaseNameAndQuit(GMainLoop *mainLoop) = 0;
};

} // namespace tovrel
