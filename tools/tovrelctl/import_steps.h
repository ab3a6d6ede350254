/** Imports that leave the service with what was meant, or with what it had. */
#pragma once

#include "tovrelctl/json.h"

#include <vector>

namespace tovrelctl {

class Service;

/** How many subscriptions, and how many filters, the service takes. */
inline constexpr std::size_t MOST_ITEMS = 256;

/** A document with these event filters and nothing else. */
Json documentWithFilters(const std::vector<json_t *> &filters);

/**
 * Makes `after` of the configuration that is `before` now. In `after`, nothing may be missing.
 *
 * The service would add the levels of a filter's new topic filter to those of the old one: a filter
 * that changes is taken out first, and put in again under its id. Nor does it import what replaces
 * a subscription when it has as many as it takes: then one of those that change is taken out first.
 * When that fails, what was taken out is put back. Nobody interrupts this.
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
