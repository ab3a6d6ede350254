/** Event filters that the service takes, but that select nothing. */
#pragma once

#include <string>
#include <vector>

namespace tovrelctl {

/** What keeps the topic filter of an event filter from selecting what was probably meant. */
std::vector<std::string> findingsOnEventTopic(const std::string &topicFilter);

} // namespace tovrelctl
