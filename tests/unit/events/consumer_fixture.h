/** A consumer on the faked event service, with a bridge that notes what is published. */
#pragma once

#include "events/event_consumer_handler.h"
#include "fakes/fake_event_consumer.h"
#include "fakes/log_capture.h"
#include "unit/events/publishing_bridge.h"
#include "unit/mqtt/log_lines.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace tovrel::test {

/** A message as it was handed to the bridge. */
struct Publication {
    std::string topic;
    bool useDeviceTopicPrefix = false;
    std::string payload;
    int qos = -1;
    bool retain = false;

    bool operator==(const Publication &) const = default;
};

void PrintTo(const Publication &publication, std::ostream *stream);

/** Notes what is published, on any thread. */
class RecordingBridge : public PublishingBridge {
public:
    void publish(const std::string &topic, bool useDeviceTopicPrefix, const char *payload,
                 std::size_t payloadLength, int qos, bool retain) override;

    [[nodiscard]] std::vector<Publication> publications() const;
    [[nodiscard]] std::vector<std::string> payloads() const;

    /** Waits for at least that many publications; false when they do not come in time. */
    [[nodiscard]] bool waitForPublications(std::size_t count);

    /** Runs in each publication, before it is noted, on the publish worker's thread. */
    std::function<void(const Publication &)> onPublish; // to be set before there are events

private:
    mutable std::mutex mutex; // guards published
    std::condition_variable more;
    std::vector<Publication> published;
};

/** How the subscription of the status stands in the record of a consumer that was just started. */
inline constexpr const char *STATUS_SUBSCRIPTION =
    "event_consumer_subscribe 0 topic0=Device topic1=MQTT topic2=ClientStatus";

/** A configuration with one filter, under the id "0", and a custom prefix "site" that is not used.
 */
PublicationConfig configWith(const char *topicFilter);

/** One event with a topic of one level; its JSON document is `json`. */
FakeReceivedEvent simpleEvent(const std::string &json);

/** The status event of the MQTT client; without a value when its text is none. */
FakeReceivedEvent statusEvent(const std::optional<std::string> &active,
                              const std::optional<std::string> &connected);

/** Fixture with an empty configuration folder and no event filter. */
class ConsumerTest : public testing::Test {
protected:
    void SetUp() override;
    /** Checks that nothing of the event library is left. */
    void TearDown() override;

    /** Makes the consumer with these event filters, under the ids "0", "1", ... */
    void makeConsumer(const std::vector<const char *> &topicFilters = {});
    /** Makes it, and starts it with the serial number "SN1". */
    void startConsumer(const std::vector<const char *> &topicFilters = {});

    /** Delivers a status event. */
    static void sendStatus(const std::string &active, const std::string &connected);
    static void sendStatus(const FakeReceivedEvent &event);

    /** Status "active", waited for. */
    void activate(bool connected = false);
    /** Status "inactive", waited for. Whatever the status worker had to do before is done then. */
    void deactivate(bool connected = false);

    /** The subscription of the n-th filter that is subscribed. */
    static FakeSubscription filterSubscription(std::size_t index = 0);
    static std::size_t filterSubscriptionCount();
    /** Delivers an event to the n-th subscribed filter. */
    static void deliver(const FakeReceivedEvent &event, std::size_t index = 0);

    /** The subscriptions made and ended since the last reset, in their order. */
    static Calls subscriptionCalls();

    LogCapture log;
    RecordingBridge bridge;
    std::unique_ptr<EventConsumerHandler> consumer;
};

} // namespace tovrel::test
