/** The calls under measurement. */
#pragma once

#include "bus.h"
#include "documents.h"

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace configuration {

/** One kind of call to the service. */
struct Operation {
    std::string name;
    /** A call ready to be sent; another one for each number, so that a change is a change. */
    std::function<tovrel::BusMessage(sd_bus *bus, int number)> make;
    /** About how many bytes an answer has; throws when it is not the one that was to come. */
    std::function<std::size_t(sd_bus_message *answer)> check;
    /** About how many bytes a call has. */
    std::size_t requestBytes = 0;
    /** Whether something is left to be done when the answer has been given. */
    bool changes = false;
};

/** The empty call that the service's own library answers. */
Operation ping();

/** A whole import, which fails at its end with Items::LAST_BAD. */
Operation importing(const std::string &name, int count, bool replace, Items items);

/** Every operation on a configuration of so many items of each kind, which it stays. */
std::vector<Operation> allOperations(int count);

} // namespace configuration
