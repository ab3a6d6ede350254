#include "unit/mqtt/event_producer_fixture.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tovrel::test {

namespace {

FakeKey topicKey(const char *value, const char *niceName)
{
    FakeKey key;
    key.fixedValue = value;
    key.nameSpace = "tnsnorq";
    key.niceName = niceName;
    return key;
}

FakeKey messageKey(event_value_type type, const char *tag, std::optional<std::string> fixedValue,
                   bool isProperty = false)
{
    FakeKey key;
    key.type = type;
    key.fixedValue = std::move(fixedValue);
    key.tags = {tag};
    key.isProperty = isProperty;
    return key;
}

FakeDeclaration expectedDeclaration(const char *topic2, const char *niceName2,
                                    const std::optional<std::string> &topicFilter,
                                    const std::optional<std::string> &devicePrefix, bool isProperty)
{
    return {
        {"topic0", topicKey("MQTT", "External MQTT")},
        {"topic1", topicKey("Message", "MQTT Message")},
        {"topic2", topicKey(topic2, niceName2)},
        {"mqtt-topic", messageKey(EVENT_VALUE_STRING, "onvif-source", topicFilter)},
        {"mqtt-payload", messageKey(EVENT_VALUE_STRING, "onvif-data", std::nullopt, isProperty)},
        {"device-prefix", messageKey(EVENT_VALUE_BOOLEAN, "onvif-source", devicePrefix)}};
}

FakeSentEvent expectedEvent(int declarationId, const char *topic2, const std::string &mqttTopic,
                            const std::string &payload, const char *devicePrefix)
{
    return {declarationId,
            {{"topic0", "MQTT"},
             {"topic1", "Message"},
             {"topic2", topic2},
             {"mqtt-topic", mqttTopic},
             {"mqtt-payload", payload},
             {"device-prefix", devicePrefix}}};
}

using Sent = std::vector<FakeSentEvent>;

} // namespace

TEST_F(EventProducerHandlerTest, MakesOneProducerWithTheAddressOfItsMap)
{
    make();
    EXPECT_EQ(recordedCalls(), Calls{"event_producer_new tovrel"});
    const void *const address = fakeEvents().producerUserData;
    EXPECT_TRUE(std::greater_equal<>()(address, static_cast<const void *>(&*handler)));
    EXPECT_TRUE(std::less<>()(address, static_cast<const void *>(&*handler + 1)));
    EXPECT_EQ(fakeEvents().producerTimeoutMs, -1);
    EXPECT_EQ(fakeEvents().producerFlags, 0U);
}

TEST_F(EventProducerHandlerTest, StartDeclaresTheGenericStatelessEvent)
{
    make().start();
    ASSERT_EQ(fakeEvents().declarations.size(), 1U);
    EXPECT_EQ(
        fakeEvents().declarations.at(0),
        expectedDeclaration("Stateless", "Stateless Event", std::nullopt, std::nullopt, false));
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(EventProducerHandlerTest, AFiltersStatelessEventHasFixedTopicAndPrefixFlag)
{
    started().declareStatelessEvent("a/b", true);
    EXPECT_EQ(fakeEvents().declarations.at(1),
              expectedDeclaration("Stateless", "Stateless Event", "a/b", "1", false));
}

TEST_F(EventProducerHandlerTest, AFiltersStatefulEventHasItsPayloadAsState)
{
    started().declareStatefulEvent("a/b", false);
    EXPECT_EQ(fakeEvents().declarations.at(1),
              expectedDeclaration("Stateful", "Stateful Event", "a/b", "0", true));
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(EventProducerHandlerTest, DeclarationsAreMadeWithFlagsZero)
{
    started().declareStatefulEvent("a", false);
    EXPECT_EQ(recordedCalls({"event_declaration_new"}), Calls{"event_declaration_new 0"});
}

TEST_F(EventProducerHandlerTest, TheSameStatefulFilterIsDeclaredOnce)
{
    started();
    handler->declareStatefulEvent("a", false);
    handler->declareStatefulEvent("a", true);
    EXPECT_EQ(recordedCalls({"event_producer_declare"}).size(), 1U);
}

TEST_F(EventProducerHandlerTest, TheSameStatelessFilterIsDeclaredEachTime)
{
    started();
    handler->declareStatelessEvent("a", false);
    handler->declareStatelessEvent("a", false);
    EXPECT_EQ(recordedCalls({"event_producer_declare"}).size(), 2U);
}

TEST_F(EventProducerHandlerTest, AStatefulFilterThatFailedIsDeclaredWhenAskedAgain)
{
    started();
    failCall("event_producer_declare", 1);
    handler->declareStatefulEvent("a", false);
    EXPECT_EQ(log.take(), Lines{failureLine("Error declaring stateful event")});
    handler->sendStatefulEvent("a", false, "x");
    EXPECT_EQ(fakeEvents().sent, Sent());
    handler->declareStatefulEvent("a", false);
    handler->sendStatefulEvent("a", false, "x");
    EXPECT_EQ(fakeEvents().sent, Sent{expectedEvent(1, "Stateful", "a", "x", "0")});
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(EventProducerHandlerTest, AStatelessMessageIsSentAsTheGenericEvent)
{
    started().declareStatelessEvent("a/b", false);
    resetCalls();
    handler->sendStatelessEvent("a/b", true, "payload");
    EXPECT_EQ(fakeEvents().sent, Sent{expectedEvent(0, "Stateless", "a/b", "payload", "1")});
    EXPECT_EQ(recordedCalls(),
              (Calls{"event_producer_prepare_event 0", "event_set_value mqtt-topic",
                     "event_set_value mqtt-payload", "event_set_value device-prefix",
                     "event_producer_send_event 0"}));
    EXPECT_EQ(log.take(), Lines());
    EXPECT_EQ(fakeEvents().preparedTimeUs, 0) << "the time of sending";
}

TEST_F(EventProducerHandlerTest, AStatefulMessageIsSentAsItsFiltersEvent)
{
    started().declareStatefulEvent("a/b", true);
    resetCalls();
    handler->sendStatefulEvent("a/b", true, "on");
    EXPECT_EQ(fakeEvents().sent, Sent{expectedEvent(1, "Stateful", "a/b", "on", "1")});
    EXPECT_EQ(recordedCalls(),
              (Calls{"event_producer_prepare_event 1", "event_set_value mqtt-topic",
                     "event_set_value mqtt-payload", "event_set_value device-prefix",
                     "event_producer_send_event 1"}));
    EXPECT_EQ(fakeEvents().preparedTimeUs, 0) << "the time of sending";
}

TEST_F(EventProducerHandlerTest, AStatefulMessageOfAnUndeclaredTopicIsDroppedSilently)
{
    started().declareStatefulEvent("a/+", false);
    resetCalls();
    handler->sendStatefulEvent("a/b", false, "x");
    EXPECT_EQ(recordedCalls(), Calls());
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(EventProducerHandlerTest, AStatefulMessageWithTheOtherPrefixFlagIsNotSent)
{
    started().declareStatefulEvent("a", true);
    handler->sendStatefulEvent("a", false, "x");
    EXPECT_EQ(fakeEvents().sent, Sent());
    EXPECT_EQ(log.take(), Lines{failureLine("Could not set device-prefix for stateful event")});
}

TEST_F(EventProducerHandlerTest, UndeclaringTakesTheStatefulEventsFirstAndKeepsTheGenericOne)
{
    started();
    handler->declareStatelessEvent("s", false); // 1
    handler->declareStatefulEvent("z", false);  // 2
    handler->declareStatefulEvent("a", false);  // 3
    handler->declareStatelessEvent("r", false); // 4
    resetCalls();
    handler->undeclareAllEvents();
    EXPECT_EQ(recordedCalls(), (Calls{"event_producer_undeclare 3", "event_producer_undeclare 2",
                                      "event_producer_undeclare 1", "event_producer_undeclare 4"}));
    EXPECT_EQ(fakeEvents().declarations.size(), 1U);
    EXPECT_EQ(log.take(), Lines());
    handler->undeclareAllEvents();
    EXPECT_EQ(recordedCalls().size(), 4U);
    handler->sendStatelessEvent("s", false, "still");
    EXPECT_EQ(fakeEvents().sentCount, 1U);
}

TEST_F(EventProducerHandlerTest, AFailureToUndeclareIsLoggedAndTheRestGoesOn)
{
    started();
    handler->declareStatefulEvent("a", false);  // 1
    handler->declareStatefulEvent("b", false);  // 2
    handler->declareStatelessEvent("c", false); // 3
    failCall("event_producer_undeclare", 2);
    handler->undeclareAllEvents();
    EXPECT_EQ(recordedCalls({"event_producer_undeclare"}).size(), 3U);
    EXPECT_EQ(log.take(), Lines{failureLine("Failed to undeclare event with id: 2")});
}

TEST_F(EventProducerHandlerTest, AfterAFailedDeclarationThereIsNothingToUndeclare)
{
    started();
    failCall("event_producer_declare", 1);
    handler->declareStatelessEvent("a", false);
    handler->undeclareAllEvents();
    EXPECT_EQ(recordedCalls({"event_producer_undeclare"}), Calls());
    EXPECT_EQ(log.take(), Lines{failureLine("Error declaring stateless event")});
}

TEST_F(EventProducerHandlerTest, WhatCouldNotBeUndeclaredIsForgottenToo)
{
    started();
    handler->declareStatefulEvent("a", false);  // 1
    handler->declareStatelessEvent("b", false); // 2
    failCall("event_producer_undeclare");
    handler->undeclareAllEvents();
    EXPECT_EQ(log.take(), (Lines{failureLine("Failed to undeclare event with id: 1"),
                                 failureLine("Failed to undeclare event with id: 2")}));
    resetCalls();
    handler->undeclareAllEvents();
    EXPECT_EQ(recordedCalls(), Calls());
    handler->declareStatefulEvent("a", false);
    EXPECT_EQ(recordedCalls({"event_producer_declare"}).size(), 1U);
}

TEST_F(EventProducerHandlerTest, AfterUndeclaringStatefulMessagesAreDroppedSilently)
{
    started().declareStatefulEvent("a", false);
    handler->undeclareAllEvents();
    resetCalls();
    handler->sendStatefulEvent("a", false, "x");
    EXPECT_EQ(recordedCalls(), Calls());
    EXPECT_EQ(log.take(), Lines());
}

} // namespace tovrel::test
