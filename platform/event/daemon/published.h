/** What clients have declared and subscribed, as the service holds it. */
#pragma once

#include "event/core/event_content.h"
#include "event/core/expression.h"
#include "event/daemon/match_table.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace norq::event {

class Client;

/** Body of an event, shared by everything that waits to be delivered. */
using SharedBody = std::shared_ptr<const std::string>;

/** A subscription of a client. */
struct Subscription {
    Client &client;
    std::uint32_t id;
    Expression expression;
};

/** A declaration as deliveries refer to it; lives on while one of them waits. */
struct Published {
    std::uint64_t serial; // never used again, other than the id that the client chose
    Declaration declaration;
};

/** A declaration of a client, with the value kept for it and its matching subscriptions. */
struct DeclarationRecord {
    std::shared_ptr<const Published> published;
    SharedBody kept; // of a property with a value
    MatchTable matches;
    std::uint64_t matchesEpoch = 0; // the state of all subscriptions that `matches` reflects
};

} // namespace norq::event
