/** MQTT topic filters that the service takes, but cannot use. */
#pragma once

#include <string>
#include <vector>

namespace tovrelctl {

/**
 * What keeps an item's topic filter from doing what was probably meant. MQTT's own rules are looked
 * at as well: the service does so when an item is added, but not when it is changed or imported.
 */
std::vector<std::string> findingsOnMqttTopic(const std::string &topicFilter, bool isStateful);

/** Whether a text has characters that topics of MQTT must not have: "+", "#", or for control. */
bool hasMqttWildcard(const std::string &text);
bool hasControlCharacter(const std::string &text);

} // namespace tovrelctl
