/** The bus of the sandbox as a client of its services uses it. */
#pragma once

#include "interfaces/sd_bus_handles.h"

#include <string>

namespace benchmarks {

using Bus = tovrel::CHandle<sd_bus, sd_bus_flush_close_unref>;

/** The name that a service of a benchmark may own, and everybody call. */
inline constexpr const char *OWN_NAME = "com.norq.Benchmark1";
/** The service under measurement. */
inline constexpr const char *SERVICE_NAME = "com.norq.Tovrel1";
inline constexpr const char *SERVICE_PATH = "/com/norq/Tovrel1";

/** Throws std::runtime_error unless an sd-bus call went well; gives its result. */
int checked(int result, const char *what);

/** A connection of its own, for the thread and process that opens it. */
Bus openBus();

/** Has the sandbox's bus let root own OWN_NAME, and everybody call it. */
void allowOwnName();

/** Makes a connection the owner of OWN_NAME. */
void takeOwnName(sd_bus *bus);

/** Serves a connection until the process is killed. */
[[noreturn]] void serve(sd_bus *bus);

/** Whether a name has an owner. */
bool isOwned(sd_bus *bus, const char *name);

/** The call that every object of every sd-bus service answers by itself. */
tovrel::BusMessage newPing(sd_bus *bus, const char *name);

/** Sends a call and waits for its answer; throws with the error's text when that is an error. */
tovrel::BusMessage call(sd_bus *bus, sd_bus_message *message);

} // namespace benchmarks
