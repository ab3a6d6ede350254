/** What the service takes, but does not do what was probably meant. */
#pragma once

#include "tovrelctl/json.h"

#include <string>
#include <vector>

namespace tovrelctl {

/** Each of them a line for people, with the place first. */
using Findings = std::vector<std::string>;

/** On an MQTT-to-event item. */
Findings findingsOnSubscription(const json_t *item);

/** On an event filter. */
Findings findingsOnFilter(const json_t *filter);

/** On those settings of "publication" that are there. */
Findings findingsOnSettings(const json_t *publication);

/** On all of the above that a document, or a part of one, has. */
Findings findingsOnDocument(const json_t *document);

/** Tells the person. */
void warn(const Findings &findings);

} // namespace tovrelctl
