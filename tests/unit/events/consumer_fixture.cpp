#include "unit/events/consumer_fixture.h"

#include "fakes/call_record.h"
#include "fakes/config_folder.h"
#include "fakes/fake_confutils.h"
#include "support/wait_until.h"
#include "unit/events/held_worker.h"

#include <stdexcept>

namespace tovrel::test {

namespace {

constexpr const char *STATUS_CONDITIONS = "topic0=Device topic1=MQTT topic2=ClientStatus";

std::vector<FakeSubscription> filterSubscriptions()
{
    auto subscriptions = fakeSubscriptions();
    std::erase_if(subscriptions, [](const FakeSubscription &subscription) {
        return subscription.conditions == STATUS_CONDITIONS;
    });
    return subscriptions;
}

} // namespace

void PrintTo(const Publication &publication, std::ostream *stream)
{
    *stream << publication.topic << (publication.useDeviceTopicPrefix ? " with" : " without")
            << " prefix, qos " << publication.qos << (publication.retain ? ", retained: " : ": ")
            << publication.payload;
}

void RecordingBridge::publish(const std::string &topic, bool useDeviceTopicPrefix,
                              const char *payload, std::size_t payloadLength, int qos, bool retain)
{
    const Publication publication{
        topic, useDeviceTopicPrefix, {payload, payloadLength}, qos, retain};
    if (onPublish) {
        onPublish(publication);
    }
    {
        const std::lock_guard lock(mutex);
        published.push_back(publication);
    }
    more.notify_all();
}

std::vector<Publication> RecordingBridge::publications() const
{
    const std::lock_guard lock(mutex);
    return published;
}

std::vector<std::string> RecordingBridge::payloads() const
{
    std::vector<std::string> payloads;
    for (const auto &publication : publications()) {
        payloads.push_back(publication.payload);
    }
    return payloads;
}

bool RecordingBridge::waitForPublications(std::size_t count)
{
    std::unique_lock lock(mutex);
    return more.wait_for(lock, test_support::DEADLINE,
                         [this, count] { return published.size() >= count; });
}

PublicationConfig configWith(const char *topicFilter)
{
    PublicationConfig config;
    config.addEventFilter({topicFilter, 2, "all"});
    config.setCustomTopicPrefix("site");
    return config;
}

FakeReceivedEvent simpleEvent(const std::string &json)
{
    return {.items = {{"topic0", "Device", "tns1"}}, .json = json};
}

FakeReceivedEvent statusEvent(const std::optional<std::string> &active,
                              const std::optional<std::string> &connected)
{
    FakeReceivedEvent event;
    if (active) {
        event.items.push_back({"active", *active});
    }
    if (connected) {
        event.items.push_back({"connected", *connected});
    }
    return event;
}

void ConsumerTest::SetUp()
{
    workerConditionOffset(Worker::STATUS); // runs a consumer, whose traces are removed here
    resetCalls();
    resetFakeEventConsumer();
    fakeConfutils() = {};
    emptyConfigFolder();
}

void ConsumerTest::TearDown()
{
    consumer.reset();
    EXPECT_EQ(fakeLivingObjects(), FakeLivingObjects());
}

void ConsumerTest::makeConsumer(const std::vector<const char *> &topicFilters)
{
    consumer = std::make_unique<EventConsumerHandler>(&bridge);
    for (const char *topicFilter : topicFilters) {
        consumer->getPublicationConfig().addEventFilter({topicFilter, 1, "property"});
    }
}

void ConsumerTest::startConsumer(const std::vector<const char *> &topicFilters)
{
    makeConsumer(topicFilters);
    consumer->start("SN1");
}

void ConsumerTest::sendStatus(const FakeReceivedEvent &event)
{
    for (const auto &subscription : fakeSubscriptions()) {
        if (subscription.conditions == STATUS_CONDITIONS) {
            deliverFakeEvent(subscription.id, event);
            return;
        }
    }
    throw std::logic_error("the consumer does not follow the status");
}

void ConsumerTest::sendStatus(const std::string &active, const std::string &connected)
{
    sendStatus(statusEvent(active, connected));
}

void ConsumerTest::activate(bool connected)
{
    const auto expected = fakeSubscribeCount() + static_cast<int>(consumer->eventFilterCount());
    sendStatus("true", connected ? "true" : "false");
    ASSERT_TRUE(test_support::waitUntil([&] { return fakeSubscribeCount() >= expected; }));
}

void ConsumerTest::deactivate(bool connected)
{
    sendStatus("false", connected ? "true" : "false");
    ASSERT_TRUE(test_support::waitUntil([] { return filterSubscriptionCount() == 0; }));
}

std::size_t ConsumerTest::filterSubscriptionCount()
{
    return filterSubscriptions().size();
}

FakeSubscription ConsumerTest::filterSubscription(std::size_t index)
{
    return filterSubscriptions().at(index);
}

void ConsumerTest::deliver(const FakeReceivedEvent &event, std::size_t index)
{
    if (!deliverFakeEvent(filterSubscription(index).id, event)) {
        throw std::logic_error("the subscription has ended");
    }
}

Calls ConsumerTest::subscriptionCalls()
{
    return recordedCalls({"event_consumer_subscribe", "event_consumer_unsubscribe"});
}

} // namespace tovrel::test
