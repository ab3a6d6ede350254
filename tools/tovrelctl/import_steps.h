/** Imports that leave the service with what was meant, or with what it had. */
#pragma once

#include "tovrelctl/json.h"

#include <vector>

namespace tovrelctl {

class Service;

/** A document with these event filters and nothing else. */
Json documentWithFilters(const std::vector<json_t *> &filters);

/**
 * Makes `after` of the configuration that is `before` now. In `after`, nothing may be missing.
 *
 * The service would add the levels of a filter's new topic filter to those of the old one: a filter
 * that changes is taken out first, and put in again under its id. When that fails, the old filters
 * are put back. Nobody interrupts this.
 *
 * @throws what Service::request() throws; its advice tells what could not be put back
 */
void importChanges(Service &service, const Json &before, const Json &after);

/**
 * Replaces the configuration that is `before` now by a document. When the service refuses that,
 * having reset everything, `before` is put back. Nobody interrupts this.
 *
 * @throws what Service::request() throws; its advice tells when `before` could not be put back
 */
void importReplacing(Service &service, const Json &before, const Json &document);

} // namespace tovrelctl
