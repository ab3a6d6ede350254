/** The object that tells how the device's MQTT client is set up and how it is doing. */
#pragma once

#include "device/client_status.h"
#include "device/device_facts.h"
#include "event/core/bus_handles.h"

#include <optional>
#include <vector>

namespace norq::device {

/**
 * Answers for com.norq.MQTTMessagingService1.
 *
 * A status that the MQTT client announced holds for as long as the event service holds it. So the
 * event service is asked before such a status is told, without waiting for it: the call is
 * answered when the event service has answered, or has not within half a second.
 */
class MqttStatusObject {
public:
    /** Well-known name of the service. */
    static constexpr const char *BUS_NAME = "com.norq.MQTTMessagingService1";

    /** `reader` and `watch` outlive the object. */
    MqttStatusObject(FactsReader &reader, ClientStatusWatch &watch) : facts(reader), status(watch)
    {
    }

    /** Puts the object on the bus; negative errno when that fails. */
    int attach(sd_bus *connection);

private:
    static int onGetDefaultStatus(sd_bus_message *call, void *self, sd_bus_error *error);
    static int onDeclarations(sd_bus_message *answer, void *self, sd_bus_error *error);

    int getDefaultStatus(sd_bus_message *call);
    int askWhatIsHeld();
    void answerAll(sd_bus_message *declarations);
    int answer(sd_bus_message *call, const std::optional<ClientStatus> &known);

    static const sd_bus_vtable METHODS[]; // NOLINT(modernize-avoid-c-arrays): given by sd-bus

    FactsReader &facts;
    ClientStatusWatch &status;
    sd_bus *bus = nullptr;
    event::BusSlot slot;
    event::BusSlot question;                // the call to the event service under way
    std::uint64_t numberInQuestion = 0;     // of the announcement it is about
    std::vector<event::BusMessage> waiting; // calls to be answered after it
};

} // namespace norq::device
