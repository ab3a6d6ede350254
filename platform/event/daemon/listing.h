/** The declarations as a text for people and tools. */
#pragma once

#include "event/core/expression.h"
#include "event/daemon/client.h"

#include <optional>
#include <string>
#include <vector>

namespace norq::event {

/**
 * The declarations of which an event can match, as JSON; nothing when that is too long. An empty
 * expression gives all of them.
 */
std::optional<std::string> listDeclarations(const std::vector<Client *> &clients,
                                            const Expression &expression);

} // namespace norq::event
