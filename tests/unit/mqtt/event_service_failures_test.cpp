/** What becomes of messages and declarations when calls of the event service fail. */
#include "unit/mqtt/case_name.h"
#include "unit/mqtt/event_producer_fixture.h"

#include <functional>

namespace tovrel::test {

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
        Failure{{"StartNew"}, "event_declaration_new", 1, start, NO_STATELESS},
        Failure{{"StartTopic"}, "event_declaration_add_key_value", 3, start, NO_STATELESS},
        Failure{{"StartNameSpace"}, "event_declaration_set_name_space", 1, start, NO_STATELESS},
        Failure{{"StartNiceNames"}, "event_declaration_set_nice_names", 2, start, NO_STATELESS},
        Failure{{"StartKey"}, "event_declaration_add_key", 3, start, NO_STATELESS},
        Failure{{"StartTag"}, "event_declaration_add_key_tag", 3, start, NO_STATELESS},
        Failure{{"StartDeclare"}, "event_producer_declare", 1, start, NO_STATELESS},
        Failure{{"StatelessNew"}, "event_declaration_new", 1, declareStateless, NO_STATELESS},
        Failure{{"StatelessFixedTopic"},
                "event_declaration_add_key_value",
                4,
                declareStateless,
                NO_STATELESS},
        Failure{{"StatelessFixedFlag"},
                "event_declaration_add_key_value",
                5,
                declareStateless,
                NO_STATELESS},
        Failure{
            {"StatelessPayload"}, "event_declaration_add_key", 1, declareStateless, NO_STATELESS},
        Failure{{"StatelessDeclare"}, "event_producer_declare", 1, declareStateless, NO_STATELESS},
        Failure{{"StatefulNew"}, "event_declaration_new", 1, declareStateful, NO_STATEFUL},
        Failure{{"StatefulFixedTopic"},
                "event_declaration_add_key_value",
                4,
                declareStateful,
                NO_STATEFUL},
        Failure{{"StatefulProperty"},
                "event_declaration_set_property",
                1,
                declareStateful,
                NO_STATEFUL},
        Failure{{"StatefulDeclare"}, "event_producer_declare", 1, declareStateful, NO_STATEFUL}),
    CaseName());

INSTANTIATE_TEST_SUITE_P(
    Sending, FailingEventService,
    testing::Values(
        Failure{{"StatelessPrepare"}, "event_producer_prepare_event", 1, sendStateless, NO_TOPIC},
        Failure{{"StatelessTopic"}, "event_set_value", 1, sendStateless, NO_TOPIC},
        Failure{{"StatelessPayload"}, "event_set_value", 2, sendStateless, NO_PAYLOAD},
        Failure{{"StatelessPrefix"},
                "event_set_value",
                3,
                sendStateless,
                "Could not set device-prefix for stateless event"},
        Failure{{"StatelessSend"}, "event_producer_send_event", 1, sendStateless, NOT_SENT},
        Failure{{"StatefulPrepare"}, "event_producer_prepare_event", 1, sendStateful, NO_TOPIC},
        Failure{{"StatefulTopic"}, "event_set_value", 1, sendStateful, NO_TOPIC},
        Failure{{"StatefulPayload"}, "event_set_value", 2, sendStateful, NO_PAYLOAD},
        Failure{{"StatefulPrefix"},
                "event_set_value",
                3,
                sendStateful,
                "Could not set device-prefix for stateful event"},
        Failure{{"StatefulSend"}, "event_producer_send_event", 1, sendStateful, NOT_SENT}),
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
