/** Documents of the whole configuration: what they must be, and how two of them differ. */
#pragma once

#include "tovrelctl/json.h"

#include <optional>
#include <string>
#include <vector>

namespace tovrelctl {

/** One difference between two documents. Values are texts for people. */
struct Change {
    /** What changes: "publication.topicPrefix", "subscription 3", "filter 0". */
    std::string what;
    /** Before; nothing when it was not there. */
    std::optional<std::string> before;
    /** Afterwards; nothing when it is not there any more. */
    std::optional<std::string> after;
};

/**
 * Looks for all that the service would refuse in a document to import, and for what it takes but
 * could not use: unknown fields, wrong types, missing and double ids, ids that are no numbers from
 * 0 to 255 written plainly, more items than there may be, topic filters of two lines.
 *
 * The service resets its configuration before it looks at most of that when an import replaces.
 *
 * @throws Failure that names the place of the first finding
 */
void checkDocument(const json_t *document);

/** The document that an import leaves: `current` is an export, `imported` was checked. */
Json predict(const json_t *current, const json_t *imported, bool replace);

/** What is different between two exports: settings, event filters, items. */
std::vector<Change> differences(const json_t *before, const json_t *after);

} // namespace tovrelctl
