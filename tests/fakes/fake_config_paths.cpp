#include "fakes/fake_config_paths.h"

#include "mqtt/config_paths.h"

#include <string>

namespace tovrel {

const char *subscriptionsFile() noexcept
{
    static const std::string PATH = test::configFolder() / "subscriptions_v2.conf";
    return PATH.c_str();
}

const char *legacySubscriptionsFile() noexcept
{
    static const std::string PATH = test::configFolder() / "subscriptions.conf";
    return PATH.c_str();
}

} // namespace tovrel
