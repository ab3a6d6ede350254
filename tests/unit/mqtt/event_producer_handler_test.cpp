#include "mqtt/event_producer_handler.h"

#include "fakes/call_record.h"
#include "fakes/fake_event.h"
#include "unit/mqtt/case_name.h"
#include "unit/mqtt/log_lines.h"

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>

namespace tovrel::test {

namespace {

class EventProducerHandlerTest : public testing::Test {
protected:
    void SetUp() override
    {
        resetCalls();
        resetFakeEvents();
    }

    void TearDown() override
    {
        handler.reset();
        EXPECT_EQ(fakeEvents().livingProducers, 0);
        EXPECT_EQ(fakeEvents().livingDeclarations, 0);
        EXPECT_EQ(fakeEvents().livingEvents, 0);
    }

    EventProducerHandler &make()
    {
        handler.emplace();
        return *handler;
    }

    /** A handler with the generic event as id 0, and the record of its calls emptied. */
    EventProducerHandler &started()
    {
        make().start();
        resetCalls();
        return *handler;
    }

    LogCapture log;
    std::optional<EventProducerHandler> handler;
};

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
    EXPECT_NE(fakeEvents().producerUserData, nullptr);
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

namespace {

std::string repeated(const std::string &text, int times)
{
    std::string result;
    for (int count = 0; count < times; ++count) {
        result += text;
    }
    return result;
}

struct TopicCut : NamedCase {
    std::string topic;
    std::string expected;
};

class TopicOfEvent : public testing::TestWithParam<TopicCut> {};

} // namespace

TEST_P(TopicOfEvent, HasAtMost1024CharactersOfTheFirst4096Bytes)
{
    resetCalls();
    resetFakeEvents();
    EventProducerHandler handler;
    handler.start();
    handler.sendStatelessEvent(GetParam().topic, false, "");
    ASSERT_EQ(fakeEvents().sent.size(), 1U);
    EXPECT_EQ(fakeEvents().sent.front().values.at("mqtt-topic"), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Topics, TopicOfEvent,
    testing::Values(TopicCut{"Short", "a", "a"}, TopicCut{"Empty", "", ""},
                    TopicCut{"JustFits", std::string(1024, 'x'), std::string(1024, 'x')},
                    TopicCut{"OneTooLong", std::string(1025, 'x'), std::string(1024, 'x')},
                    TopicCut{"LongestOfMqtt", std::string(65535, 'x'), std::string(1024, 'x')},
                    TopicCut{"TwoByteCharacters", repeated("\xC3\xA5", 1500),
                             repeated("\xC3\xA5", 1024)},
                    TopicCut{"FourByteCharacters", repeated("\xF0\x9F\x98\x80", 1025),
                             repeated("\xF0\x9F\x98\x80", 1024)}),
    CaseName());

TEST_F(EventProducerHandlerTest, ATopicThatIsNotUtf8IsRefused)
{
    started().sendStatelessEvent("a\xF0", false, "x");
    EXPECT_EQ(fakeEvents().sent, Sent());
    EXPECT_EQ(log.take(), Lines{failureLine("Could not set mqtt-topic for stateless event")});
}

namespace {

/** What goes wrong, what is done then, and what is logged. */
struct Failure : NamedCase {
    const char *function;
    unsigned int nth;
    std::function<void(EventProducerHandler &)> action;
    const char *line;
};

class FailingEventService : public testing::TestWithParam<Failure> {};

void start(EventProducerHandler &handler)
{
    handler.start();
}

void declareStateless(EventProducerHandler &handler)
{
    handler.declareStatelessEvent("new", false);
}

void declareStateful(EventProducerHandler &handler)
{
    handler.declareStatefulEvent("new", false);
}

void sendStateless(EventProducerHandler &handler)
{
    handler.sendStatelessEvent("s", false, "x");
}

void sendStateful(EventProducerHandler &handler)
{
    handler.sendStatefulEvent("s", false, "x");
}

constexpr const char *NO_STATELESS = "Error declaring stateless event";
constexpr const char *NO_STATEFUL = "Error declaring stateful event";
constexpr const char *NO_TOPIC = "Could not set mqtt-topic for stateless event";
constexpr const char *NO_PAYLOAD = "Could not set mqtt-payload for stateless event";
constexpr const char *NOT_SENT = "Could not send stateless MQTT event: scripted failure";

} // namespace

TEST_P(FailingEventService, IsLoggedOnceAndNothingIsDeclaredOrSent)
{
    resetCalls();
    resetFakeEvents();
    LogCapture log;
    {
        EventProducerHandler handler;
        handler.start();
        handler.declareStatefulEvent("s", false);
        failCall(GetParam().function, GetParam().nth);
        GetParam().action(handler);
        EXPECT_EQ(log.take(), Lines{failureLine(GetParam().line)});
        EXPECT_EQ(fakeEvents().declarations.size(), 2U);
        EXPECT_EQ(fakeEvents().sentCount, 0U);
    }
    EXPECT_EQ(fakeEvents().livingDeclarations, 0);
    EXPECT_EQ(fakeEvents().livingEvents, 0);
}

INSTANTIATE_TEST_SUITE_P(
    Declaring, FailingEventService,
    testing::Values(
        Failure{"StartNew", "event_declaration_new", 1, start, NO_STATELESS},
        Failure{"StartTopic", "event_declaration_add_key_value", 3, start, NO_STATELESS},
        Failure{"StartNameSpace", "event_declaration_set_name_space", 1, start, NO_STATELESS},
        Failure{"StartNiceNames", "event_declaration_set_nice_names", 2, start, NO_STATELESS},
        Failure{"StartKey", "event_declaration_add_key", 3, start, NO_STATELESS},
        Failure{"StartTag", "event_declaration_add_key_tag", 3, start, NO_STATELESS},
        Failure{"StartDeclare", "event_producer_declare", 1, start, NO_STATELESS},
        Failure{"StatelessNew", "event_declaration_new", 1, declareStateless, NO_STATELESS},
        Failure{"StatelessFixedTopic", "event_declaration_add_key_value", 4, declareStateless,
                NO_STATELESS},
        Failure{"StatelessFixedFlag", "event_declaration_add_key_value", 5, declareStateless,
                NO_STATELESS},
        Failure{"StatelessPayload", "event_declaration_add_key", 1, declareStateless, NO_STATELESS},
        Failure{"StatelessDeclare", "event_producer_declare", 1, declareStateless, NO_STATELESS},
        Failure{"StatefulNew", "event_declaration_new", 1, declareStateful, NO_STATEFUL},
        Failure{"StatefulFixedTopic", "event_declaration_add_key_value", 4, declareStateful,
                NO_STATEFUL},
        Failure{"StatefulProperty", "event_declaration_set_property", 1, declareStateful,
                NO_STATEFUL},
        Failure{"StatefulDeclare", "event_producer_declare", 1, declareStateful, NO_STATEFUL}),
    CaseName());

INSTANTIATE_TEST_SUITE_P(
    Sending, FailingEventService,
    testing::Values(
        Failure{"StatelessPrepare", "event_producer_prepare_event", 1, sendStateless, NO_TOPIC},
        Failure{"StatelessTopic", "event_set_value", 1, sendStateless, NO_TOPIC},
        Failure{"StatelessPayload", "event_set_value", 2, sendStateless, NO_PAYLOAD},
        Failure{"StatelessPrefix", "event_set_value", 3, sendStateless,
                "Could not set device-prefix for stateless event"},
        Failure{"StatelessSend", "event_producer_send_event", 1, sendStateless, NOT_SENT},
        Failure{"StatefulPrepare", "event_producer_prepare_event", 1, sendStateful, NO_TOPIC},
        Failure{"StatefulTopic", "event_set_value", 1, sendStateful, NO_TOPIC},
        Failure{"StatefulPayload", "event_set_value", 2, sendStateful, NO_PAYLOAD},
        Failure{"StatefulPrefix", "event_set_value", 3, sendStateful,
                "Could not set device-prefix for stateful event"},
        Failure{"StatefulSend", "event_producer_send_event", 1, sendStateful, NOT_SENT}),
    CaseName());

TEST_F(EventProducerHandlerTest, AFailureToSendWithoutAReasonIsLoggedToo)
{
    started();
    failCall("event_producer_send_event", 1);
    fakeEvents().failureMessage.reset();
    handler->sendStatelessEvent("s", false, "x");
    EXPECT_EQ(log.take(), Lines{failureLine("Could not send stateless MQTT event: ")});
}

TEST_F(EventProducerHandlerTest, WithoutAGenericEventStatelessMessagesAreLoggedAndDropped)
{
    failCall("event_producer_declare", 1);
    make().start();
    EXPECT_EQ(log.take(), Lines{failureLine("Error declaring stateless event")});
    handler->sendStatelessEvent("s", false, "x");
    EXPECT_EQ(log.take(), Lines{failureLine(NO_TOPIC)});
    EXPECT_EQ(recordedCalls({"event_producer_prepare_event"}),
              Calls{"event_producer_prepare_event -1"});
}

TEST_F(EventProducerHandlerTest, WithoutAProducerEveryOperationIsLoggedAndDropped)
{
    failCall("event_producer_new", 1);
    make().start();
    handler->declareStatelessEvent("a", false);
    handler->declareStatefulEvent("a", false);
    handler->sendStatelessEvent("a", false, "x");
    handler->sendStatefulEvent("a", false, "x");
    handler->undeclareAllEvents();
    EXPECT_EQ(log.take(), (Lines{failureLine(NO_STATELESS), failureLine(NO_STATELESS),
                                 failureLine(NO_STATEFUL), failureLine(NO_TOPIC)}));
}

} // namespace tovrel::test
