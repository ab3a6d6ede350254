#include "fakes/fake_config_paths.h"

#include "mqtt/config_paths.h"

#include <string>

namespace tovrel {

const char *subscriptionsFile() noexcept
{
    static const std::string path = test::configFolder() / "subscriptions_v2.conf";
    return path.c_str();
}

const char *legacySubscriptionsFile() noexcept
{
    static const std::string path = test::configFolder() / "subscriptions.conf";
    return path.c_str();
}

} // namespace tovrel
