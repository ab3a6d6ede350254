/** Topic filters of MQTT that the service takes, and that do not do what was meant. */
#pragma once

#include <string>

namespace tovrelctl {

/**
 * What is wrong with the topic filter of an MQTT-to-event item, though the service keeps it, for
 * people; "" when nothing is.
 */
std::string findingOn(const std::string &topicFilter, bool isStateful);

} // namespace tovrelctl
