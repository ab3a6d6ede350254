/** Reads declarations and expressions from bus messages. */
#pragma once

#include "event/core/declaration.h"
#include "event/core/expression.h"
#include "event/core/status.h"

#include <systemd/sd-bus.h>

#include <cstdint>
#include <optional>

namespace norq::event {

/** Reads the arguments of Declare. */
Status readDeclare(sd_bus_message *message, std::uint32_t &id,
                   std::optional<Declaration> &declaration);

/** Reads the arguments of ListMatching. */
Status readExpression(sd_bus_message *message, Expression &expression);

/** Reads the arguments of Subscribe. */
Status readSubscribe(sd_bus_message *message, std::uint32_t &id, Expression &expression);

} // namespace norq::event
