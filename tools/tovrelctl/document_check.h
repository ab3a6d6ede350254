/** What is wrong with a document to import. */
#pragma once

#include "tovrelctl/json.h"

namespace tovrelctl {

/**
 * Looks in a document to import for what the service would refuse without naming the place, or only
 * after it has reset its configuration: unknown fields, wrong types, missing and double ids, ids
 * and topic filters that it cannot keep. Its limits are left to the service.
 *
 * @throws Failure that names the place of the first finding
 */
void checkDocument(const json_t *document);

} // namespace tovrelctl
