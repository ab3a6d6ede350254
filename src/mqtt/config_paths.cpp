#include "mqtt/config_paths.h"

namespace tovrel {

const char *subscriptionsFile() noexcept
{
    return "/etc/tovrel/subscriptions_v2.conf";
}

const char *legacySubscriptionsFile() noexcept
{
    return "/etc/tovrel/subscriptions.conf";
}

} // namespace tovrel
