/** What one kind of call costs, beside calls that do nothing in the same moments. */
#pragma once

#include "operations.h"
#include "service.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <string>

namespace configuration {

/** The processes that share the work of a call. */
enum Part : std::size_t { SERVICE, BUS, EVENT_SERVICE, DEVICE_SERVICES, BROKER, PARTS };

/** How much is measured. */
struct Options {
    std::chrono::milliseconds time{1500}; // of each of the two ways of calling
    int items = 256;
    std::size_t changes = 15; // of calls that change something, so many at most
    std::size_t fewest = 5;   // of all calls, however long they take
    std::string only;         // part of the names of the operations that are measured
};

/** Times are milliseconds. */
struct Result {
    double median = 0; // of one call, made when the service was at rest
    double best = 0;   // likewise
    double empty = 0;  // median of an empty call just before
    double sameSize =
        0;           // median of a call that carries as many bytes and does nothing, just before
    double rate = 0; // calls a second, each made as soon as the one before is answered
    double rest = 0; // what is still to be done after the last of these, for each of them
    std::array<double, PARTS> cpu{}; // CPU time of a call of these, that rest included
};

/** Measures one operation; `bus` is the client's connection. */
Result measure(sd_bus *bus, const Service &service, const Operation &operation,
               const Options &options);

} // namespace configuration
