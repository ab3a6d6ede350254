/** What "norq-event send" is asked to do. */
#pragma once

#include "event/tool/item.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace norq::tool {

/** One declaration and what to send of it. */
struct SendOptions {
    std::vector<Item> items; /**< topic levels of --topic first, then as given */
    std::vector<std::pair<std::string, std::string>> tags; /**< key, tag */
    std::optional<std::string> property;                   /**< the property key */
    bool internal = false;
    bool hold = false;         /**< stay, and keep the declaration */
    bool readInput = false;    /**< take new values from standard input while holding */
    unsigned int count = 1;    /**< events to send without being told new values */
    unsigned int interval = 0; /**< milliseconds between them */
    unsigned int timeout = 5;  /**< seconds to wait for the service with one event */
};

/** Reads the command line behind "send"; throws UsageError. */
SendOptions parseSendOptions(const std::vector<std::string> &words);

} // namespace norq::tool
