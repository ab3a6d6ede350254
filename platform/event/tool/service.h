/** The event service as the tool meets it on the system bus, beside the client library. */
#pragma once

#include <string>

namespace norq::tool {

/** Makes sure that the service answers, starting it by activation; throws Failure if it doesn't. */
void requireService();

/** The service's JSON text of all declarations; throws Failure. */
std::string listDeclarations();

} // namespace norq::tool
