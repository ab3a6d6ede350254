/**
 * Configuration changes through every operation, status flips and a stream of events, all at once.
 *
 * Takes as many seconds as TOVREL_STRESS_SECONDS says, 5 without it; 60 under the sanitizers is
 * what a release is checked with.
 */
#include "fakes/call_record.h"
#include "support/wait_until.h"
#include "unit/events/consumer_fixture.h"
#include "unit/events/event_fates.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace tovrel::test {

namespace {

constexpr std::size_t MAX_FILTERS = 20;

std::chrono::seconds stressDuration()
{
    const char *const text =
        std::getenv("TOVREL_STRESS_SECONDS"); // NOLINT(concurrency-mt-unsafe): nobody sets it
    return std::chrono::seconds(text == nullptr ? 5 : std::stoi(text));
}

/** Notes every publication without keeping it. */
class FollowingBridge : public PublishingBridge {
public:
    void publish(const std::string & /*topic*/, bool /*useDeviceTopicPrefix*/, const char *payload,
                 std::size_t payloadLength, int /*qos*/, bool /*retain*/) override
    {
        fates->notePublished({payload, payloadLength});
    }

    EventFates *fates = nullptr;
};

class ConsumerStressTest : public ConsumerTest {
protected:
    void SetUp() override
    {
        ConsumerTest::SetUp();
        setRecording(false);
        consumer = std::make_unique<EventConsumerHandler>(&following);
        fates = std::make_unique<EventFates>(*consumer);
        following.fates = fates.get();
        mainThread = std::this_thread::get_id();
        setFakeConsumerHook([this] {
            if (std::this_thread::get_id() != mainThread) {
                fates->noteStatusWorker();
            }
        });
        consumer->getPublicationConfig().addEventFilter({"onvif:Device", 1, "property"});
        consumer->start("SN1");
        statusSubscription = fakeSubscriptions().at(0).id;
    }
    void TearDown() override
    {
        consumer.reset();
        fates.reset();
        ConsumerTest::TearDown();
        setRecording(true);
    }

    /** Waits until that many more events have been delivered, or the time is over. */
    void letPass(std::size_t events) const
    {
        const auto goal = fates->deliveredCount() + events;
        static_cast<void>(
            test_support::waitUntil([&] { return over || fates->deliveredCount() >= goal; }));
    }

    void streamEvents();
    void flipStatus();
    void changeConfiguration();
    void changeFilters(PublicationConfig &config, std::mt19937 &random);
    static void changeSettings(PublicationConfig &config, std::mt19937 &random);

    FollowingBridge following;
    std::unique_ptr<EventFates> fates;
    int statusSubscription = -1;
    std::thread::id mainThread;
    std::atomic<bool> over = false;
    std::atomic<std::size_t> delivered = 0;
};

void ConsumerStressTest::streamEvents()
{
    std::mt19937 random(1);
    while (!over) {
        auto subscriptions = fakeSubscriptions();
        std::erase_if(subscriptions,
                      [&](const auto &entry) { return entry.id == statusSubscription; });
        if (subscriptions.empty()) {
            std::this_thread::yield();
            continue;
        }
        const int id = subscriptions.at(random() % subscriptions.size()).id;
        for (int count = 0; count < 20; ++count) {
            FakeReceivedEvent event = simpleEvent(fates->nextPayload());
            event.isInternal = random() % 50 == 0;
            event.isProperty = random() % 2 == 0;
            if (random() % 50 == 0) {
                event.json.reset();
            }
            delivered += deliverFakeEvent(id, event) && !event.isInternal ? 1 : 0;
        }
    }
}

void ConsumerStressTest::flipStatus()
{
    std::mt19937 random(2);
    while (!over) {
        const bool active = random() % 6 != 0;
        const bool connected = random() % 3 != 0;
        deliverFakeEvent(statusSubscription,
                         statusEvent(active ? "true" : "false", connected ? "true" : "false"));
        letPass(active ? random() % 4000 : 0);
    }
}

void ConsumerStressTest::changeSettings(PublicationConfig &config, std::mt19937 &random)
{
    config.setTopicPrefixSetting(random() % 2 == 0 ? "custom" : "a setting with a long name");
    config.setCustomTopicPrefix(std::string(random() % 100, 'x'));
    config.setAppendEventTopic(random() % 2 == 0);
    config.setIncludeTopicNamespaces(random() % 2 == 0);
    config.setIncludeSerialNumberInPayload(random() % 2 == 0);
}

void ConsumerStressTest::changeFilters(PublicationConfig &config, std::mt19937 &random)
{
    const auto id = config.addEventFilter({"norq:Added//.", 0, "none"});
    config.setEventFilter("set", {"onvif:Set", 2, "all"});
    config.getEventFilter("set").setQos(static_cast<std::int32_t>(random() % 3));
    config.getEventFilter("set").setRetainPolicy(random() % 2 == 0 ? "property" : "all");
    config.getEventFilter("set").setTopicFilter("norq:Changed");
    if (random() % 2 == 0 || config.getEventFilters().size() > MAX_FILTERS) {
        config.removeEventFilter(id);
    }
    config.releaseId(config.allocateId());
}

void ConsumerStressTest::changeConfiguration()
{
    std::mt19937 random(3);
    auto &config = consumer->getPublicationConfig();
    while (!over) {
        changeSettings(config, random);
        changeFilters(config, random);
        if (random() % 2 == 0) {
            PublicationConfig edited(config);
            changeFilters(edited, random);
            consumer->setPublicationConfig(edited);
        } else {
            config.save();
            consumer->refreshSubscriptions();
        }
        ASSERT_GE(consumer->eventFilterCount(), 1U);
        letPass(random() % 6000);
    }
}

} // namespace

TEST_F(ConsumerStressTest, EveryEventIsPublishedDroppedByTheBoundOrDiscarded)
{
    std::thread events([this] { streamEvents(); });
    std::thread status([this] { flipStatus(); });
    std::thread clock([this] {
        // How long the stress lasts; nothing is waited for.
        std::this_thread::sleep_for(stressDuration());
        over = true;
    });
    changeConfiguration(); // on the thread that made the consumer, as ever
    clock.join();
    events.join();
    status.join();

    // A deactivation that is followed by an activation is done when that is.
    // It is asked for again and again, because a request in the midst of a refresh is lost.
    const auto statusIs = [&](const char *active, std::size_t subscriptions) {
        return test_support::waitUntil([&] {
            deliverFakeEvent(statusSubscription, statusEvent(active, "false"));
            return fakeSubscriptions().size() == 1 + subscriptions;
        });
    };
    ASSERT_TRUE(statusIs("true", consumer->eventFilterCount()));
    ASSERT_TRUE(statusIs("false", 0));
    consumer.reset();

    const FateCounts counts = fates->counts();
    std::cout << delivered << " events: " << counts << '\n';
    EXPECT_EQ(fates->deliveredCount(), delivered);
    EXPECT_EQ(counts.unaccounted, 0U);
    EXPECT_GT(counts.published, 0U);
    EXPECT_GT(counts.droppedByBound, 0U);
    EXPECT_GT(counts.discarded, 0U);
    EXPECT_GT(counts.notQueued, 0U);
    const auto lines = log.take();
    const auto overflowLines =
        std::count(lines.begin(), lines.end(),
                   progressLine("Too many queued events, dropping the oldest one"));
    EXPECT_GE(overflowLines, 1);
    EXPECT_LE(overflowLines, static_cast<std::ptrdiff_t>(counts.droppedByBound));
    const auto renderingLines =
        std::count(lines.begin(), lines.end(),
                   failureLine("Exception in delivery callback: basic_string: construction from "
                               "null is not valid"));
    EXPECT_EQ(renderingLines, static_cast<std::ptrdiff_t>(counts.notQueued));
    EXPECT_EQ(static_cast<std::ptrdiff_t>(lines.size()), overflowLines + renderingLines);
}

} // namespace tovrel::test
