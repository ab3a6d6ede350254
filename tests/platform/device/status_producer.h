/** Announces the status of an MQTT client as the device's MQTT client does. */
#pragma once

#include <norq/event_producer.h>

#include <memory>

namespace device_test {

/** Announces until it goes, which withdraws the status. */
class StatusProducer {
public:
    StatusProducer();

    /** Announces a status; false when the event service does not take it. */
    bool announce(bool active, bool connected);

private:
    std::unique_ptr<event_producer_t, decltype(&event_producer_free)> producer;
    int declaration = -1;
};

} // namespace device_test
