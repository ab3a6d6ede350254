/** How a long topic is cut to fit into an event. */
#include "unit/mqtt/case_name.h"
#include "unit/mqtt/event_producer_fixture.h"

#include <string>

namespace tovrel::test {

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
    testing::Values(
        TopicCut{{"Short"}, "a", "a"}, TopicCut{{"Empty"}, "", ""},
        TopicCut{{"JustFits"}, std::string(1024, 'x'), std::string(1024, 'x')},
        TopicCut{{"OneTooLong"}, std::string(1025, 'x'), std::string(1024, 'x')},
        TopicCut{{"LongestOfMqtt"}, std::string(65535, 'x'), std::string(1024, 'x')},
        TopicCut{{"TwoByteCharacters"}, repeated("\xC3\xA5", 1500), repeated("\xC3\xA5", 1024)},
        TopicCut{{"FourByteCharacters"},
                 repeated("\xF0\x9F\x98\x80", 1025),
                 repeated("\xF0\x9F\x98\x80", 1024)}),
    CaseName());

TEST_F(EventProducerHandlerTest, ATopicThatIsNotUtf8IsRefused)
{
    started().sendStatelessEvent("a\xF0", false, "x");
    EXPECT_TRUE(fakeEvents().sent.empty());
    EXPECT_EQ(log.take(), Lines{failureLine("Could not set mqtt-topic for stateless event")});
}

TEST_F(EventProducerHandlerTest, AStatefulTopicThatHadToBeCutIsRefused)
{
    const std::string topic(1025, 'x'); // declared whole, so that the cut one is another value
    started().declareStatefulEvent(topic, false);
    handler->sendStatefulEvent(topic, false, "x");
    EXPECT_EQ(recordedCalls({"event_set_value"}), Calls{"event_set_value mqtt-topic"});
    EXPECT_TRUE(fakeEvents().sent.empty());
    EXPECT_EQ(log.take(), Lines{failureLine("Could not set mqtt-topic for stateless event")});
}

} // namespace tovrel::test
