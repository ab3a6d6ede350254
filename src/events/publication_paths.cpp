#include "events/publication_paths.h"

namespace tovrel {

const char *publicationFile() noexcept
{
    return "/etc/tovrel/event_to_mqtt_v2.conf";
}

const char *legacyPublicationFile() noexcept
{
    return "/etc/tovrel/event_to_mqtt.conf";
}

} // namespace tovrel
