#include "status_producer.h"

#include <stdexcept>

namespace device_test {

namespace {

constexpr int TIMEOUT_MS = 5000;

using Declaration = std::unique_ptr<event_declaration_t, decltype(&event_declaration_free)>;
using Event = std::unique_ptr<event_t, decltype(&event_free)>;

bool addFixed(event_declaration_t *declaration, const char *key, const char *value,
              const char *nameSpace)
{
    return event_declaration_add_key_value(declaration, key, event_value_string(value), nullptr) &&
           event_declaration_set_name_space(declaration, key, nameSpace);
}

} // namespace

StatusProducer::StatusProducer()
    : producer(event_producer_new("status-of-the-test", nullptr, TIMEOUT_MS, 0),
               event_producer_free)
{
    const Declaration status(event_declaration_new(EVENT_DECLARATION_DEFAULT, nullptr),
                             event_declaration_free);
    const bool isComplete =
        addFixed(status.get(), "topic0", "Device", "tns1") &&
        addFixed(status.get(), "topic1", "MQTT", "tnsnorq") &&
        addFixed(status.get(), "topic2", "ClientStatus", "tnsnorq") &&
        event_declaration_add_key(status.get(), "active", EVENT_VALUE_BOOLEAN, nullptr) &&
        event_declaration_add_key(status.get(), "connected", EVENT_VALUE_BOOLEAN, nullptr) &&
        event_declaration_set_property(status.get(), "connected", 0, nullptr);
    declaration = isComplete ? event_producer_declare(producer.get(), status.get()) : -1;
    if (declaration < 0) {
        throw std::runtime_error("the status cannot be declared");
    }
}

bool StatusProducer::announce(bool active, bool connected)
{
    const Event event(event_producer_prepare_event(producer.get(), declaration, 0, nullptr),
                      event_free);
    return event && event_set_value(event.get(), "active", event_value_boolean(active), nullptr) &&
           event_set_value(event.get(), "connected", event_value_boolean(connected), nullptr) &&
           event_producer_send_event(producer.get(), event.get(), nullptr);
}

} // namespace device_test
