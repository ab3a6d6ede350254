/** What "norq-event watch" is asked to do. */
#pragma once

#include "event/tool/topic.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace norq::tool {

/** Which events to print, how, and how long. */
struct WatchOptions {
    TopicFilter topic{{}, true};
    std::vector<std::pair<std::string, std::string>> matches;    /**< key, value */
    std::vector<std::pair<std::string, std::string>> nameSpaces; /**< key, namespace */
    std::vector<std::string> absent;                             /**< keys */
    bool json = false;
    bool initial = true;                 /**< print the kept values of properties, too */
    std::optional<unsigned int> count;   /**< end after so many events */
    std::optional<unsigned int> timeout; /**< end after so many seconds */
};

/** Reads the command line behind "watch"; throws UsageError. */
WatchOptions parseWatchOptions(const std::vector<std::string> &words);

} // namespace norq::tool
