/** The calls of the library to the event service. */
#pragma once

#include "event/core/bus_handles.h"
#include "event/core/declaration.h"
#include "event/core/expression.h"

#include <cstdint>
#include <string>

namespace norq::event {

/** What became of a call. */
enum class CallOutcome {
    DONE,
    REFUSED, /**< the service answered with an error */
    LOST     /**< the service did not answer: it has to be looked for anew */
};

/** Outcome with the service's words for people. */
struct CallResult {
    CallOutcome outcome = CallOutcome::LOST;
    std::string text;
};

/**
 * Calls one running event service by its unique name, so that no call reaches a successor that
 * knows nothing of this client. Blocks until the answer, some seconds at most. To be used on the
 * thread of the bus connection.
 */
class ServiceCalls {
public:
    ServiceCalls(sd_bus *connection, std::string uniqueName);

    CallResult declare(std::uint32_t id, const Declaration &declaration);
    CallResult undeclare(std::uint32_t id);
    CallResult subscribe(std::uint32_t id, const Expression &expression);
    CallResult unsubscribe(std::uint32_t id);

    /** Unique name of the service called. */
    [[nodiscard]] const std::string &serviceName() const { return service; }

private:
    BusMessage newCall(const char *method);
    CallResult callWithId(const char *method, std::uint32_t id);
    CallResult call(const BusMessage &message);

    sd_bus *bus;
    std::string service;
};

} // namespace norq::event
