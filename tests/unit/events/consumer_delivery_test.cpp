/** What becomes of a single event that the event service delivers. */
#include "events/event_consumer_handler.h"
#include "events/subscription_registry.h"
#include "fakes/call_record.h"
#include "support/wait_until.h"
#include "unit/events/consumer_fixture.h"
#include "unit/mqtt/case_name.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>

namespace tovrel::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using ConsumerDeliveryTest = ConsumerTest;

} // namespace

namespace {

/** Characters of one to four bytes. */
constexpr const char *PAYLOAD = "{\"name\":\"\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\"}";
constexpr std::size_t PAYLOAD_BYTES = 20;

struct WholeCase : NamedCase {
    const char *prefixSetting;
    const char *customPrefix;
    bool appendEventTopic;
    bool includeNamespaces;
    const char *topic;
    bool useDeviceTopicPrefix;
};

class WholePublication : public ConsumerDeliveryTest,
                         public testing::WithParamInterface<WholeCase> {};

} // namespace

TEST_P(WholePublication, IsMadeOfSettingsFilterAndEvent)
{
    startConsumer();
    auto &config = consumer->getPublicationConfig();
    config.setEventFilter("0", {"onvif:Device//.", 1, "property"});
    config.setTopicPrefixSetting(GetParam().prefixSetting);
    config.setCustomTopicPrefix(GetParam().customPrefix);
    config.setAppendEventTopic(GetParam().appendEventTopic);
    config.setIncludeTopicNamespaces(GetParam().includeNamespaces);
    activate(true);
    deliver({.items = {{"topic0", "Device", "tns1"},
                       {"topic1", "Beta", "tnsnorq"},
                       {"topic2", "Gamma", "tnsnorq"},
                       {"index", "1", std::nullopt, {"onvif-source"}},
                       {"state", "1"}},
             .isProperty = true,
             .json = PAYLOAD});
    ASSERT_TRUE(bridge.waitForPublications(1));
    EXPECT_THAT(bridge.publications(),
                ElementsAre(Publication{GetParam().topic, GetParam().useDeviceTopicPrefix, PAYLOAD,
                                        1, true}));
    EXPECT_EQ(bridge.payloads().front().size(), PAYLOAD_BYTES);
    EXPECT_EQ(log.take(), Lines());
}

INSTANTIATE_TEST_SUITE_P(
    Settings, WholePublication,
    testing::Values(
        WholeCase{{"DefaultWithNamespaces"},
                  "default",
                  "",
                  true,
                  true,
                  "event/tns:onvif/Device/tns:norq/Beta/Gamma/$source/index/1",
                  true},
        WholeCase{{"DefaultWithoutNamespaces"},
                  "default",
                  "",
                  true,
                  false,
                  "event/Device/Beta/Gamma/$source/index/1",
                  true},
        WholeCase{{"Custom"},
                  "custom",
                  "site/unit1",
                  true,
                  false,
                  "site/unit1/Device/Beta/Gamma/$source/index/1",
                  false},
        WholeCase{{"EmptyCustomWithoutEventTopic"}, "custom", "", false, true, "event", true},
        WholeCase{
            {"None"}, "none", "", true, false, "event/Device/Beta/Gamma/$source/index/1", true}),
    CaseName());

TEST_F(ConsumerDeliveryTest, AQosOutsideOfMqttsRangeIsPassedOn)
{
    startConsumer();
    consumer->getPublicationConfig().setEventFilter("0", {"onvif:Device", 7, "all"});
    consumer->getPublicationConfig().setEventFilter("1", {"onvif:Device//.", -1, "all"});
    activate(true);
    deliver(simpleEvent("x"), 0);
    deliver(simpleEvent("x"), 1);
    ASSERT_TRUE(bridge.waitForPublications(2));
    EXPECT_EQ(bridge.publications().at(0).qos, 7);
    EXPECT_EQ(bridge.publications().at(1).qos, -1);
}

TEST_F(ConsumerDeliveryTest, AnEventOfTwoFiltersIsPublishedForEachOfThem)
{
    startConsumer();
    consumer->getPublicationConfig().setEventFilter("0", {"onvif:Device", 0, "all"});
    consumer->getPublicationConfig().setEventFilter("1", {"onvif:Device//.", 1, "none"});
    activate(true);
    deliver(simpleEvent("x"), 0);
    deliver(simpleEvent("x"), 1);
    ASSERT_TRUE(bridge.waitForPublications(2));
    EXPECT_THAT(bridge.publications(),
                ElementsAre(Publication{"event/tns:onvif/Device", true, "x", 0, true},
                            Publication{"event/tns:onvif/Device", true, "x", 1, false}));
}

TEST_F(ConsumerDeliveryTest, SettingsChangedWhileAnEventWaitsShapeItsTopic)
{
    startConsumer({"onvif:Device"});
    activate();
    deliver(simpleEvent("x"));
    consumer->getPublicationConfig().setTopicPrefixSetting("custom");
    consumer->getPublicationConfig().setCustomTopicPrefix("site");
    consumer->getPublicationConfig().setIncludeTopicNamespaces(false);
    sendStatus("true", "true");
    ASSERT_TRUE(bridge.waitForPublications(1));
    EXPECT_EQ(bridge.publications().front().topic, "site/Device");
    EXPECT_FALSE(bridge.publications().front().useDeviceTopicPrefix);
}

TEST_F(ConsumerDeliveryTest, ThePayloadCarriesTheSerialNumberWhenTheSettingsSaySo)
{
    startConsumer({"onvif:Device"});
    activate();
    deliver(simpleEvent("x"));
    consumer->getPublicationConfig().setIncludeSerialNumberInPayload(true);
    deliver(simpleEvent("x"));
    EXPECT_EQ(recordedCalls({"event_get_json"}),
              (Calls{"event_get_json onvif=onvif norq=norq serial=(none)",
                     "event_get_json onvif=onvif norq=norq serial=SN1"}));
}

TEST_F(ConsumerDeliveryTest, AnInternalEventIsFreedWithoutTranslation)
{
    startConsumer({"onvif:Device"});
    activate(true);
    FakeReceivedEvent internal = simpleEvent("internal");
    internal.isInternal = true;
    deliver(internal);
    EXPECT_EQ(fakeLivingObjects().events, 0);
    deliver(simpleEvent("next"));
    ASSERT_TRUE(bridge.waitForPublications(1));
    EXPECT_THAT(bridge.payloads(), ElementsAre("next"));
    EXPECT_EQ(recordedCalls({"event_get_json"}).size(), 1U);
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(ConsumerDeliveryTest, AnEventOfAnUnknownSlotIsDroppedSilently)
{
    startConsumer({"onvif:Device"});
    activate(true);
    const auto subscription = filterSubscription();
    deactivate(true);
    subscription.callback(newFakeEvent(simpleEvent("late")), subscription.userData);
    EXPECT_EQ(fakeLivingObjects().events, 0);
    EXPECT_THAT(recordedCalls({"event_get_json"}), IsEmpty());
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(ConsumerDeliveryTest, AnEventWhoseRecordHasNoHandlerIsLoggedAndDropped)
{
    makeConsumer({"onvif:Device"});
    SubscriptionRegistry::instance().insert(0, {nullptr, 0, 0, RetainPolicy::NONE});
    consumer->subscribeEventFilters();
    deliver(simpleEvent("x"));
    EXPECT_EQ(fakeLivingObjects().events, 0);
    EXPECT_EQ(log.take(), Lines{failureLine("No event handler, can't translate")});
}

TEST_F(ConsumerDeliveryTest, E10AnEventThatCannotBeRenderedIsLoggedAndTheNextIsPublished)
{
    startConsumer({"onvif:Device"});
    activate(true);
    FakeReceivedEvent broken = simpleEvent("");
    broken.json.reset();
    deliver(broken);
    EXPECT_EQ(log.take(), Lines{failureLine("Exception in delivery callback: basic_string: "
                                            "construction from null is not valid")});
    deliver(simpleEvent("next"));
    ASSERT_TRUE(bridge.waitForPublications(1));
    EXPECT_THAT(bridge.payloads(), ElementsAre("next"));
    EXPECT_EQ(fakeLivingObjects().events, 0);
}

TEST_F(ConsumerDeliveryTest, AnEventWithoutMemoryForItsRenderingIsLoggedAndTheNextIsPublished)
{
    startConsumer({"onvif:Device"});
    activate(true);
    failCall("json_options_new", 1);
    deliver(simpleEvent("lost"));
    EXPECT_EQ(log.take(), Lines{failureLine("Exception in delivery callback: std::bad_alloc")});
    deliver(simpleEvent("next"));
    ASSERT_TRUE(bridge.waitForPublications(1));
    EXPECT_THAT(bridge.payloads(), ElementsAre("next"));
    EXPECT_EQ(fakeLivingObjects().events, 0);
}

TEST_F(ConsumerDeliveryTest, AnExceptionOutOfAPublicationIsLoggedAndTheNextIsPublished)
{
    bridge.onPublish = [](const Publication &publication) {
        if (publication.payload == "broken") {
            throw std::runtime_error("no such thing");
        }
    };
    startConsumer({"onvif:Device"});
    activate(true);
    deliver(simpleEvent("broken"));
    deliver(simpleEvent("next"));
    ASSERT_TRUE(bridge.waitForPublications(1));
    EXPECT_THAT(bridge.payloads(), ElementsAre("next"));
    EXPECT_EQ(log.take(), Lines{failureLine("Exception in publish worker: no such thing")});
}

TEST_F(ConsumerDeliveryTest, WithoutABridgeEveryEventIsLoggedAndDropped)
{
    EventConsumerHandler alone(nullptr);
    alone.publishEvent(EventContainer());
    EXPECT_EQ(log.take(), Lines{failureLine("No event_bridge, cannot publish")});
}

TEST_F(ConsumerDeliveryTest, E6AnEventThatThePublishWorkerHasTakenIsPublishedInSpiteOfADeactivation)
{
    std::atomic<bool> taken = false;
    std::atomic<bool> goOn = false;
    bridge.onPublish = [&](const Publication &) {
        taken = true;
        EXPECT_TRUE(test_support::waitUntil([&] { return goOn.load(); }));
    };
    startConsumer({"onvif:Device"});
    activate(true);
    deliver(simpleEvent("taken"));
    ASSERT_TRUE(test_support::waitUntil([&] { return taken.load(); }));
    deliver(simpleEvent("discarded"));
    deactivate(true);
    activate(true); // the deactivation is done
    goOn = true;
    deliver(simpleEvent("next"));
    ASSERT_TRUE(bridge.waitForPublications(2));
    EXPECT_THAT(bridge.payloads(), ElementsAre("taken", "next"));
}

} // namespace tovrel::test
