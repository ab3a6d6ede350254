#include "events/idle_event_consumer_handler.h"

#include <gtest/gtest.h>

#include <memory>

namespace tovrel::test {

TEST(IdleEventConsumerHandler, StartsWithTheDefaultConfiguration)
{
    IdleEventConsumerHandler handler;
    const PublicationConfig &config = handler.getPublicationConfig();
    EXPECT_EQ(handler.eventFilterCount(), 0U);
    EXPECT_TRUE(config.eventFilters.empty());
    for (const auto flag : config.idInUse) {
        EXPECT_EQ(flag, 0U);
    }
    EXPECT_EQ(config.topicPrefixSetting, "default");
    EXPECT_EQ(config.customTopicPrefix, "");
    EXPECT_TRUE(config.appendEventTopic);
    EXPECT_TRUE(config.includeTopicNamespaces);
    EXPECT_FALSE(config.includeSerialNumberInPayload);
}

TEST(IdleEventConsumerHandler, KeepsACopyOfTheConfigurationItIsGiven)
{
    IdleEventConsumerHandler handler;
    PublicationConfig config;
    config.customTopicPrefix = "mine";
    config.eventFilters["0"].topicFilter = "tns1:Device";
    handler.setPublicationConfig(config);
    config.customTopicPrefix = "changed later";
    EXPECT_EQ(handler.getPublicationConfig().customTopicPrefix, "mine");
    EXPECT_EQ(handler.eventFilterCount(), 1U);
}

TEST(IdleEventConsumerHandler, ServesNothing)
{
    IdleEventConsumerHandler handler;
    handler.start("serial");
    handler.setMessagingStatus(true, true);
    handler.refreshSubscriptions();
    handler.subscribeEventFilters();
    handler.enqueueEvent(nullptr, nullptr);
    handler.unsubscribeEventFilters();
    handler.statusWorker();
    handler.publishWorker();
    EXPECT_EQ(handler.eventFilterCount(), 0U);
}

TEST(EventFilterConfig, StartsEmptyWithoutRetaining)
{
    const EventFilterConfig filter;
    EXPECT_EQ(filter.topicFilter, "");
    EXPECT_EQ(filter.qos, 0);
    EXPECT_EQ(filter.retainPolicy, RetainPolicy::NONE);
    EXPECT_FALSE(filter.matchSubtopics);
    EXPECT_TRUE(filter.topicSegments.empty());
}

TEST(RetainPolicy, HasTheNumbersThatAreStored)
{
    EXPECT_EQ(static_cast<int>(RetainPolicy::NONE), 0);
    EXPECT_EQ(static_cast<int>(RetainPolicy::PROPERTY), 1);
    EXPECT_EQ(static_cast<int>(RetainPolicy::ALL), 2);
}

} // namespace tovrel::test
