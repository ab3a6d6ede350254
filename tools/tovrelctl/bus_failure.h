/** What a call that got no answer tells a person. */
#pragma once

#include "tovrelctl/failure.h"

#include <string>
#include <string_view>

namespace tovrelctl {

/** How a call on the bus failed. */
struct BusFailure {
    /** The D-Bus error; may be empty. */
    std::string_view name{};
    /** Its message; may be empty. */
    std::string_view message{};
    /** What sd-bus returned, an errno without its sign. */
    int number = 0;
    /** Whether the call might have changed something. */
    bool mightHaveChanged = false;
};

/** The failure in words, and what can be done about it. */
Unreachable explain(const BusFailure &failure);

/** Why there is no connection to the bus: an errno. */
Unreachable explainNoBus(int number);

} // namespace tovrelctl
