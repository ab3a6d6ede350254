/** Reading the event service's list of declarations. */
#pragma once

namespace norq::device {

/**
 * Whether a list, the JSON text that the event service gives, has a declaration of the MQTT
 * client's status for which a value is held. False for a text that is no such list.
 */
bool holdsClientStatus(const char *list);

} // namespace norq::device
