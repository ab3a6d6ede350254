/** Requests of the configuration API about a configuration of many items of each kind. */
#pragma once

#include <string>

namespace configuration {

/** What the MQTT-to-event items of a document are like. */
enum class Items {
    CONCRETE,  /**< each is declared to the event service */
    WILDCARDS, /**< none is declared */
    LAST_BAD,  /**< the last one is refused, when everything else has been taken over */
};

/** Topic filter of the MQTT-to-event item of this number. */
std::string itemTopicFilter(int number, Items items = Items::CONCRETE);

/** Topic filter of the event filter of this number. */
std::string eventTopicFilter(int number);

/** A request with the members given, and whatever else it takes. */
std::string request(const std::string &operation, const std::string &members = "");

/** Imports so many items of each kind. */
std::string importRequest(int count, bool replace, Items items = Items::CONCRETE);

/** Gets everything, as it can be imported. */
std::string exportRequest();

} // namespace configuration
