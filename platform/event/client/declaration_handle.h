/** What stands behind event_declaration_t. */
#pragma once

#include "event/core/declaration.h"

/** A declaration that is being built. */
struct event_declaration {
    norq::event::Declaration content;
};
