/** Calls of the service's methods and what became of them, both as lines of text. */
#pragma once

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <memory>
#include <string>

namespace clients {

constexpr const char *SERVICE_NAME = "com.norq.Tovrel1";

using Bus = std::unique_ptr<sd_bus, decltype(&sd_bus_flush_close_unref)>;
using Event = std::unique_ptr<sd_event, decltype(&sd_event_unref)>;
using Message = std::unique_ptr<sd_bus_message, decltype(&sd_bus_message_unref)>;

/** Ends the program with status 2 when a step that cannot fail has; the result of the step. */
int require(int result, const char *step);

/** The thread's event loop. */
Event openEventLoop();

/** The system bus, attached to an event loop. */
Bus openBus(sd_event *loop);

/**
 * A call that is not sent yet, from its line: the method and behind a blank its arguments.
 *
 * "HandleRequest TEXT" carries the rest of the line. "SetMQTTToEventConfig WORD..." and
 * "SetEventToMQTTConfig WORD..." make an item of each word, its topic or topic filter; all else has
 * the value of a fresh configuration. "GetMQTTToEventConfig" and "GetEventToMQTTConfig" have no
 * arguments. "Sync" asks the bus daemon: when it answers, it has passed on all earlier calls of
 * this connection. "ServicePid" asks it for the process of the running service. Any other method
 * ends the program with status 2.
 */
Message newCall(sd_bus *bus, const std::string &line);

/**
 * "ok" and behind a blank the answer's text or number, or its items' topics; "error" with name and
 * message when the call failed.
 */
std::string describe(sd_bus_message *reply);

} // namespace clients
