/** The declarations of the event service as lines for people. */
#pragma once

#include <string>

namespace norq::tool {

/**
 * Turns the service's JSON text of all declarations into lines, each with its line feed:
 *
 *   tovrel 0: tnsnorq:MQTT/Message/Stateful (property, held)
 *     mqtt-topic string = "a/b" [onvif-source]
 *     mqtt-payload string, state [onvif-data]
 *
 * The keys of the topic have no line of their own unless they carry a tag. Throws Failure for a
 * text that is not such a document.
 */
std::string declarationLines(const std::string &document);

} // namespace norq::tool
