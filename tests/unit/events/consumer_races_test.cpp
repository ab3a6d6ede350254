/** Threads of the consumer at the same time; the thread sanitizer sees what the asserts do not. */
#include "fakes/call_record.h"
#include "support/wait_until.h"
#include "unit/events/consumer_fixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace tovrel::test {

namespace {

/** Ends a thread's loop and joins it. */
class LoopingThread {
public:
    template <typename Body>
    explicit LoopingThread(Body body)
        : thread([this, body] {
              while (!ended) {
                  body();
                  ++rounds;
              }
          })
    {
    }
    LoopingThread(const LoopingThread &) = delete;
    LoopingThread &operator=(const LoopingThread &) = delete;
    ~LoopingThread()
    {
        ended = true;
        thread.join();
    }

    bool waitForRounds(int count)
    {
        return test_support::waitUntil([&] { return rounds >= count; });
    }

private:
    std::atomic<bool> ended = false;
    std::atomic<int> rounds = 0;
    std::thread thread; // last: uses the others
};

class ConsumerRacesTest : public ConsumerTest {
protected:
    void SetUp() override
    {
        ConsumerTest::SetUp();
        setRecording(false);
    }
    void TearDown() override
    {
        ConsumerTest::TearDown();
        setRecording(true);
    }

    /** Delivers to every filter that is subscribed. */
    static void deliverToAll(const std::string &json)
    {
        for (const auto &subscription : fakeSubscriptions()) {
            if (subscription.callback != statusCallbackAddress) {
                deliverFakeEvent(subscription.id, simpleEvent(json));
            }
        }
    }
    void start(const std::vector<const char *> &topicFilters)
    {
        startConsumer(topicFilters);
        statusCallbackAddress = fakeSubscriptions().at(0).callback;
    }

    static event_callback_t statusCallbackAddress;
};

event_callback_t ConsumerRacesTest::statusCallbackAddress = nullptr;

/** One character, too often for the text to be kept in place. */
std::string longText(int round)
{
    return std::string(static_cast<std::size_t>(40 + round % 40),
                       static_cast<char>('a' + round % 26));
}

/** One character many times: a text read while it is replaced would be mixed, or freed. */
bool isUniform(const std::string &text)
{
    return std::all_of(text.begin(), text.end(), [&](char c) { return c == text.front(); });
}

} // namespace

TEST_F(ConsumerRacesTest, SettingsChangedInPlaceAreReadWhole)
{
    start({"onvif:Device"});
    auto &config = consumer->getPublicationConfig();
    config.setTopicPrefixSetting("custom");
    config.setCustomTopicPrefix(std::string(60, 'a'));
    config.setAppendEventTopic(false);
    bridge.onPublish = [](const Publication &publication) {
        EXPECT_TRUE(publication.topic == "event" || isUniform(publication.topic))
            << publication.topic;
    };
    activate(true);
    {
        LoopingThread events([&] { deliverToAll("x"); });
        for (int round = 0; round < 2000; ++round) {
            config.setCustomTopicPrefix(longText(round));
            config.setTopicPrefixSetting(round % 3 == 0 ? "none" : "custom");
            config.setIncludeSerialNumberInPayload(round % 2 == 0);
            config.setIncludeTopicNamespaces(round % 5 == 0);
        }
        ASSERT_TRUE(events.waitForRounds(10));
    }
    EXPECT_TRUE(bridge.waitForPublications(1));
}

TEST_F(ConsumerRacesTest, FiltersChangedInPlaceAreCopiedWhole)
{
    start({"norq:A", "norq:B", "norq:C"});
    std::atomic<int> mixed = 0;
    setFakeKeptValues([&](const FakeSubscription &subscription) {
        const auto &conditions = subscription.conditions;
        const auto name = conditions.substr(conditions.rfind(':') + 1);
        mixed += isUniform(name.substr(0, name.find(' '))) ? 0 : 1;
        return std::vector<FakeReceivedEvent>();
    });
    activate();
    const int before = fakeSubscribeCount();
    auto &config = consumer->getPublicationConfig();
    for (int round = 0; round < 1000; ++round) {
        const std::string name = longText(round);
        config.setEventFilter("1", {("norq:" + name).c_str(), 1, "all"});
        config.getEventFilter("1").setQos(round % 3);
        config.getEventFilter("1").setRetainPolicy(round % 2 == 0 ? "all" : "none");
        config.getEventFilter("1").setTopicFilter("norq:" + name);
        config.getEventFilter("1") = EventFilterConfig(("norq:" + name).c_str(), 0, "all");
        const auto id = config.addEventFilter({("norq:" + name).c_str(), 0, "property"});
        if (round % 8 == 0) {
            consumer->refreshSubscriptions();
        }
        config.removeEventFilter(id);
        if (round % 16 == 0) {
            const PublicationConfig copy(config);
            consumer->setPublicationConfig(copy);
        }
    }
    EXPECT_TRUE(test_support::waitUntil([&] { return fakeSubscribeCount() > before + 3; }));
    consumer.reset(); // refreshes may still be under way, and a status is lost in their midst
    EXPECT_EQ(mixed, 0);
}

TEST_F(ConsumerRacesTest, DeliveriesReadTheRegistryWhileFiltersComeAndGo)
{
    start({"onvif:A", "onvif:B", "onvif:C", "onvif:D"});
    {
        LoopingThread one([&] { deliverToAll("x"); });
        LoopingThread other([&] { deliverToAll("y"); });
        for (int round = 0; round < 100; ++round) {
            activate(round % 2 == 0);
            deactivate(round % 2 == 0);
        }
        ASSERT_TRUE(one.waitForRounds(10));
        ASSERT_TRUE(other.waitForRounds(10));
    }
    activate(true);
    deliver(simpleEvent("last"));
    EXPECT_TRUE(test_support::waitUntil([&] {
        const auto payloads = bridge.payloads();
        return !payloads.empty() && payloads.back() == "last";
    }));
}

TEST_F(ConsumerRacesTest, DestructionMeetsDeliveriesAndStatusChanges)
{
    for (int round = 0; round < 50; ++round) {
        start({"onvif:A", "onvif:B"});
        activate(true);
        LoopingThread events([&] { deliverToAll("x"); });
        const int statusId = fakeSubscriptions().at(0).id;
        LoopingThread status([&] { deliverFakeEvent(statusId, statusEvent("true", "true")); });
        ASSERT_TRUE(events.waitForRounds(2));
        consumer.reset();
    }
}

} // namespace tovrel::test
