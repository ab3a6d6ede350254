#include "events/publication_paths.h"

#include <gtest/gtest.h>

TEST(PublicationPaths, AreThoseOfTheService)
{
    EXPECT_STREQ(tovrel::publicationFile(), "/etc/tovrel/event_to_mqtt_v2.conf");
    EXPECT_STREQ(tovrel::legacyPublicationFile(), "/etc/tovrel/event_to_mqtt.conf");
}
