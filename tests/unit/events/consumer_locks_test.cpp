/** No two locks of the consumer are held at once, and none over work that may take long. */
#include "events/living_handlers.h"
#include "events/subscription_registry.h"
#include "fakes/call_record.h"
#include "support/wait_until.h"
#include "unit/events/consumer_fixture.h"
#include "unit/events/held_worker.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <string>

namespace tovrel::test {

namespace {

/** Locks of the consumer, of the registry and of the set of handlers that the calling thread holds.
 */
thread_local int locksHeld = 0;

class ConsumerLocksTest : public ConsumerTest {
protected:
    void SetUp() override
    {
        ConsumerTest::SetUp();
        makeConsumer({"onvif:Device", "onvif:Device//."});
        syncHooks().afterLock = [this](const pthread_mutex_t *mutex) {
            if (isOurs(mutex)) {
                ++lockCount;
                ++locksHeld;
                mostHeld = std::max(mostHeld.load(), locksHeld);
            }
        };
        syncHooks().afterUnlock = [this](const pthread_mutex_t *mutex) {
            locksHeld -= isOurs(mutex) ? 1 : 0;
        };
        log.onLine = [this] { check(linesChecked); };
        bridge.onPublish = [this](const Publication &) { check(publicationsChecked); };
        setFakeConsumerHook([this] { check(consumerCallsChecked); });
    }
    void TearDown() override
    {
        consumer.reset();
        syncHooks() = {};
        log.onLine = nullptr;
        ConsumerTest::TearDown();
    }

    bool isOurs(const pthread_mutex_t *mutex) const
    {
        return isWithin(*address, mutex) || isWithin(SubscriptionRegistry::instance(), mutex) ||
               isWithin(LivingHandlers::instance(), mutex);
    }

    static void check(std::atomic<int> &counter)
    {
        ++counter;
        EXPECT_EQ(locksHeld, 0);
    }

    void makeConsumer(const std::vector<const char *> &topicFilters)
    {
        ConsumerTest::makeConsumer(topicFilters);
        address = consumer.get();
    }

    const EventConsumerHandler *address = nullptr;
    std::atomic<int> lockCount = 0;
    std::atomic<int> mostHeld = 0;
    std::atomic<int> linesChecked = 0;
    std::atomic<int> publicationsChecked = 0;
    std::atomic<int> consumerCallsChecked = 0;
};

} // namespace

TEST_F(ConsumerLocksTest, AreHeldOneAtATimeAndNeverOverPublishingSubscribingOrLogging)
{
    consumer->start("SN1");
    activate();
    for (int number = 0; number < 1030; ++number) { // overflows, which is logged
        deliver(simpleEvent(std::to_string(number)), static_cast<std::size_t>(number % 2));
    }
    FakeReceivedEvent broken = simpleEvent("");
    broken.json.reset();
    deliver(broken);
    sendStatus("true", "true");
    ASSERT_TRUE(bridge.waitForPublications(1024));
    sendStatus("true", "neither"); // logged

    auto &config = consumer->getPublicationConfig();
    config.setIncludeSerialNumberInPayload(true);
    config.addEventFilter({"norq:A", 0, "what"}); // logged
    config.getEventFilter("2").setTopicFilter("norq:B");
    config.removeEventFilter("1");
    const int before = fakeSubscribeCount();
    failCall("event_consumer_unsubscribe", 1); // logged
    failCall("confutils_set_file_contents_with_sync_mode", 1);
    consumer->setPublicationConfig(PublicationConfig(config)); // the failure is logged
    ASSERT_TRUE(test_support::waitUntil([&] { return fakeSubscribeCount() == before + 2; }));
    consumer.reset();

    EXPECT_EQ(mostHeld, 1);
    EXPECT_GT(lockCount, 1030);
    EXPECT_EQ(linesChecked, 6);
    EXPECT_EQ(publicationsChecked, 1024);
    EXPECT_GE(consumerCallsChecked, 8);
}

} // namespace tovrel::test
