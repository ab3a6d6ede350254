/** One received event on its way to MQTT. */
#pragma once

#include "events/event_filter_config.h"

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace tovrel {

/**
 * What of an event is needed to publish it. Made on the event service's thread, handed to the
 * publish worker through the queue, never changed after that.
 */
struct EventContainer {
    /** Of the event filter whose subscription delivered the event. */
    RetainPolicy retainPolicy = RetainPolicy::NONE;
    std::int32_t qos = 0;
    /** Whether the event is a property (stateful) event. */
    bool isProperty = false;
    /** (level, namespace alias) of each level of the event's topic. */
    std::vector<std::pair<std::string, std::string>> topicLevels;
    /** Name and value of the items tagged as source, and of those tagged as key. */
    std::map<std::string, std::string> sources;
    std::map<std::string, std::string> keys;
    /** The JSON document. */
    std::string payload;
};

} // namespace tovrel
