/** Owning types for the handles of sd-bus and sd-event. */
#pragma once

#include "interfaces/c_handles.h"

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

namespace tovrel {

/** A reference to a message. */
using BusMessage = CHandle<sd_bus_message, sd_bus_message_unref>;

/** A D-Bus error record, empty until a call fills it. */
class BusError {
public:
    BusError() = default;
    BusError(const BusError &) = delete;
    BusError &operator=(const BusError &) = delete;
    ~BusError() { sd_bus_error_free(&record); }

    /** Where a call stores its error; borrowed. */
    sd_bus_error *slot() { return &record; }

    /** The error's message, borrowed; null when it carries none. */
    const char *message() const { return record.message; }

private:
    sd_bus_error record = SD_BUS_ERROR_NULL;
};

} // namespace tovrel
