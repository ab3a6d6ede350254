/** The object that tells who the device is. */
#pragma once

#include "device/device_facts.h"
#include "event/core/bus_handles.h"

namespace norq::device {

/** Answers for com.norq.BasicDeviceInfo1. */
class DeviceInfoObject {
public:
    /** Well-known name of the service. */
    static constexpr const char *BUS_NAME = "com.norq.BasicDeviceInfo1";

    /** Reads the facts for each answer anew; `reader` outlives the object. */
    explicit DeviceInfoObject(FactsReader &reader) : facts(reader) {}

    /** Puts the object on the bus; negative errno when that fails. */
    int attach(sd_bus *bus);

private:
    static int getProperty(sd_bus *bus, const char *path, const char *interface, const char *name,
                           sd_bus_message *reply, void *self, sd_bus_error *error);

    static const sd_bus_vtable PROPERTIES[]; // NOLINT(modernize-avoid-c-arrays): given by sd-bus

    FactsReader &facts;
    event::BusSlot slot;
};

} // namespace norq::device
