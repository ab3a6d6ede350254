/** What an import makes of a configuration, and how two configurations differ. */
#pragma once

#include "tovrelctl/json.h"

#include <string>
#include <vector>

namespace tovrelctl {

/** One difference between two configurations. */
struct Change {
    /** What changes: "topicPrefix", "subscription 3", "filter 0". */
    std::string what;
    /** A setting's value, or an item whole; null when it was not there. */
    Json before;
    /** The same afterwards; null when it is not there any more. */
    Json after;
};

/** The configuration that an import leaves: `current` is an export, `imported` was checked. */
Json predict(const json_t *current, const json_t *imported, bool replace);

/** What is different between two exports: settings, event filters, items, each by its id. */
std::vector<Change> differences(const json_t *before, const json_t *after);

/**
 * What has to be imported to get from one document to the other: settings, and whole items, that
 * are different or new in the other, in this order. What is missing there does not count.
 */
Json additions(const json_t *before, const json_t *after);

/** A change on a line for people: '~ filter 0: qos "QOS_0" -> "QOS_1"'; "+" new, "-" gone. */
std::string describe(const Change &change);

} // namespace tovrelctl
