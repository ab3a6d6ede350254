#include "mqtt/config_paths.h"

#include <gtest/gtest.h>

TEST(ConfigPaths, AreThoseOfTheService)
{
    EXPECT_STREQ(tovrel::subscriptionsFile(), "/etc/tovrel/subscriptions_v2.conf");
    EXPECT_STREQ(tovrel::legacySubscriptionsFile(), "/etc/tovrel/subscriptions.conf");
}
