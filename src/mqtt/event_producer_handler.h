/** Declares and sends the device events that MQTT messages become. */
#pragma once

#include "interfaces/base_event_producer_handler.h"
#include "interfaces/c_handles.h"
#include "mqtt/event_declarations.h"

#include <norq/event_producer.h>

#include <map>
#include <string>
#include <vector>

namespace tovrel {

/**
 * Owns the service's one event producer. Main thread only.
 *
 * Stateless messages are all sent as one generic event; the stateless events of single filters
 * only tell other parts of the device what may come.
 */
class EventProducerHandler final : public BaseEventProducerHandler {
public:
    EventProducerHandler();

    void start() override;
    void declareStatelessEvent(const std::string &topicFilter, bool useDeviceTopicPrefix) override;
    void declareStatefulEvent(const std::string &topicFilter, bool useDeviceTopicPrefix) override;
    void sendStatelessEvent(const std::string &topic, bool devicePrefix,
                            const char *payload) override;
    void sendStatefulEvent(const std::string &topic, bool devicePrefix,
                           const char *payload) override;
    void undeclareAllEvents() override;

private:
    int declare(const DeclarationHandle &declaration);
    void send(int declarationId, const char *kind, const std::string &topic, bool devicePrefix,
              const char *payload);

    // The library is given the address of statefulDeclarations, so the object must not move.
    CHandle<event_producer_t, event_producer_free> producer;
    std::map<std::string, int> statefulDeclarations; // topic filter to declaration id
    std::vector<int> statelessDeclarations;
    int genericStatelessDeclaration = -1; // negative: not declared
};

} // namespace tovrel
