/** The least that a service on the bus can do, for comparison. */
#pragma once

#include "bus.h"

#include <cstddef>

namespace configuration {

/** Serves the two methods below as benchmarks::OWN_NAME until its process is killed. */
[[noreturn]] void serveEmptyMethods();

/** A call of the method that takes nothing, does nothing and gives nothing. */
tovrel::BusMessage newEmptyCall(sd_bus *bus);

/** A call of the method that takes a text of so many bytes and gives one of so many. */
tovrel::BusMessage newExchange(sd_bus *bus, std::size_t requestBytes, std::size_t answerBytes);

} // namespace configuration
