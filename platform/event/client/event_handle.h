/** What stands behind event_t. */
#pragma once

#include "event/core/event_content.h"

#include <norq/event_types.h>

#include <cstdint>
#include <memory>

/**
 * One event. A received one is never changed, so that its copies share the content; a prepared one
 * has its content for itself.
 */
struct event {
    std::shared_ptr<norq::event::EventContent> content;
    std::uint64_t producer = 0; // identity of the producer that prepared it; 0: received
    int declarationId = -1;     // of a prepared event
};
