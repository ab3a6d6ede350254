#include "mqtt/message_callback.h"

#include "fakes/call_record.h"
#include "fakes/fake_mqtt.h"
#include "unit/mqtt/running_bridge.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace tovrel::test {

namespace {

class MessageCallbackTest : public RunningBridgeTest {
protected:
    void subscribe(const std::string &topicFilter, bool isStateData)
    {
        bridge->getSubscriptions().addSubscription(topicFilter, false, 0, isStateData);
    }

    /** What the producer is asked for one message. */
    Calls sentFor(const char *topic, bool devicePrefix, const char *payload, int length)
    {
        resetCalls();
        messageCallback(topic, devicePrefix, payload, length, bridge.get());
        return recordedCalls();
    }

    Calls sentFor(const char *topic) { return sentFor(topic, false, "x", 1); }
};

} // namespace

TEST_F(MessageCallbackTest, IsWhatTheClientIsGivenWithTheBridge)
{
    whileRunning([&] {
        EXPECT_EQ(fakeMqtt().callback, &messageCallback);
        EXPECT_EQ(fakeMqtt().userData, bridge.get());
    });
}

TEST_F(MessageCallbackTest, WithoutABridgeTheMessageIsLoggedAndDropped)
{
    messageCallback("a", false, "x", 1, nullptr);
    EXPECT_EQ(log.take(), Lines{failureLine("No tovrel, cannot handle message")});
}

TEST_F(MessageCallbackTest, AMessageBecomesAnEventWithTopicFlagAndPayload)
{
    subscribe("a/+", false);
    whileRunning([&] {
        EXPECT_EQ(sentFor("a/b", true, "text and more", 4), Calls{"sendStatelessEvent a/b 1 text"});
    });
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(MessageCallbackTest, MatchingManyFiltersMakesOneEventOfEachKindTheStatelessOneFirst)
{
    subscribe("a/b", true);
    subscribe("a/+", false);
    subscribe("a/#", false);
    subscribe("other", false);
    subscribe("+/b", true);
    whileRunning([&] {
        EXPECT_EQ(sentFor("a/b"),
                  (Calls{"sendStatelessEvent a/b 0 x", "sendStatefulEvent a/b 0 x"}));
    });
}

TEST_F(MessageCallbackTest, OnlyTheKindsThatMatchAreSent)
{
    subscribe("stateful", true);
    subscribe("stateless", false);
    whileRunning([&] {
        EXPECT_EQ(sentFor("stateful"), Calls{"sendStatefulEvent stateful 0 x"});
        EXPECT_EQ(sentFor("stateless"), Calls{"sendStatelessEvent stateless 0 x"});
        EXPECT_EQ(sentFor("neither"), Calls());
    });
}

TEST_F(MessageCallbackTest, WithoutAProducerNothingIsSent)
{
    subscribe("a", false);
    EXPECT_EQ(sentFor("a"), Calls());
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(MessageCallbackTest, APayloadThatIsNotUtf8IsLoggedAndSentEmpty)
{
    subscribe("a", false);
    whileRunning(
        [&] { EXPECT_EQ(sentFor("a", false, "\xFF", 1), Calls{"sendStatelessEvent a 0 "}); });
    EXPECT_EQ(log.take(), Lines{progressLine("Payload doesn't contain valid utf-8 data")});
}

TEST_F(MessageCallbackTest, AMissingPayloadIsSentEmptySilently)
{
    subscribe("a", false);
    whileRunning([&] {
        EXPECT_EQ(sentFor("a", false, nullptr, 0), Calls{"sendStatelessEvent a 0 "});
        EXPECT_EQ(sentFor("a", false, nullptr, 7), Calls{"sendStatelessEvent a 0 "});
        EXPECT_EQ(sentFor("a", false, "x", -1), Calls{"sendStatelessEvent a 0 "});
        EXPECT_EQ(sentFor("a", false, "", 0), Calls{"sendStatelessEvent a 0 "});
    });
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(MessageCallbackTest, APayloadWhoseCharactersCannotBeCountedIsDroppedWithAWarning)
{
    subscribe("a", false);
    whileRunning([&] {
        resetCalls();
        failCall("g_utf8_pointer_to_offset", 1);
        messageCallback("a", false, "x", 1, bridge.get());
        EXPECT_EQ(recordedCalls(), Calls());
    });
    EXPECT_EQ(log.take(), Lines{warningLine("Invalid encoding of payload")});
}

TEST_F(MessageCallbackTest, APayloadThatCannotBeCutIsLoggedAndSentEmpty)
{
    subscribe("a", false);
    whileRunning([&] {
        resetCalls();
        failCall("g_utf8_substring", 1);
        messageCallback("a", false, "x", 1, bridge.get());
        EXPECT_EQ(recordedCalls(), Calls{"sendStatelessEvent a 0 "});
    });
    EXPECT_EQ(log.take(), Lines{failureLine("Error getting substring")});
}

TEST_F(MessageCallbackTest, AnExceptionIsLoggedAndDoesNotReachTheClient)
{
    subscribe("a", false);
    fakeMqtt().topicMatches = [](const char *, const char *) -> bool {
        throw std::runtime_error("out of order");
    };
    messageCallback("a", false, "x", 1, bridge.get());
    EXPECT_EQ(log.take(), Lines{failureLine("Exception in messageCallback: out of order")});
}

} // namespace tovrel::test
