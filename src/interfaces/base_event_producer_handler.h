/** Turns MQTT messages into device events, as the rest of the service sees it. */
#pragma once

#include <string>

namespace tovrel {

/** Used on the main thread only. Failures of the event service are logged, never thrown. */
class BaseEventProducerHandler {
public:
    BaseEventProducerHandler() = default;
    BaseEventProducerHandler(const BaseEventProducerHandler &) = delete;
    BaseEventProducerHandler &operator=(const BaseEventProducerHandler &) = delete;
    virtual ~BaseEventProducerHandler() = default;

    /** Declares the generic stateless event that every stateless message is sent as. */
    virtual void start() = 0;

    /** Advertises the stateless event of a filter without wildcards. Repeating it declares again.
     */
    virtual void declareStatelessEvent(const std::string &topicFilter,
                                       bool useDeviceTopicPrefix) = 0;

    /** Declares the stateful event of a topic; repeating it does nothing. */
    virtual void declareStatefulEvent(const std::string &topicFilter,
                                      bool useDeviceTopicPrefix) = 0;

    /** Sends a message as a stateless event. `payload` is NUL-terminated UTF-8. */
    virtual void sendStatelessEvent(const std::string &topic, bool devicePrefix,
                                    const char *payload) = 0;

    /** Sends a message as the stateful event declared for its topic; without one, nothing. */
    virtual void sendStatefulEvent(const std::string &topic, bool devicePrefix,
                                   const char *payload) = 0;

    /** Withdraws the events of all filters; the generic stateless event stays. */
    virtual void undeclareAllEvents() = 0;
};

} // namespace tovrel
