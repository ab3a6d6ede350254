/** An event as one line for people. */
#pragma once

#include <string>

namespace norq::tool {

/**
 * Turns the document of event_get_json() into a line without line feed:
 *
 *   2026-11-21T08:00:00.250Z tns1:Device/tnsnorq:Beta Changed Source(index=1) Data(state=true)
 *
 * Values are written as in JSON, so that texts, numbers and booleans can be told apart; a name
 * that is not a plain word is written as a JSON text, too. Throws Failure for another text.
 */
std::string eventLine(const char *document);

} // namespace norq::tool
