/** The declarations as a text for people and tools. */
#pragma once

#include "event/daemon/client.h"

#include <optional>
#include <string>
#include <vector>

namespace norq::event {

/** All declarations as JSON, as ListDeclarations gives them; nothing when that is too long. */
std::optional<std::string> listDeclarations(const std::vector<Client *> &clients);

} // namespace norq::event
