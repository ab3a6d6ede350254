/** Puts the publication's files into the configuration folder of the tests. */
#include "events/publication_paths.h"
#include "fakes/config_folder.h"

#include <string>

namespace tovrel {

const char *publicationFile() noexcept
{
    static const std::string PATH = test::configFolder() / "event_to_mqtt_v2.conf";
    return PATH.c_str();
}

const char *legacyPublicationFile() noexcept
{
    static const std::string PATH = test::configFolder() / "event_to_mqtt.conf";
    return PATH.c_str();
}

} // namespace tovrel
