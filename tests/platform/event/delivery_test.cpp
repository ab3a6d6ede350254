/** What reaches whom, in which order, and how it reads. */
#include "event_handles.h"
#include "event_service_fixture.h"
#include "recorder.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numeric>
#include <string>
#include <vector>

namespace event_test {
namespace {

using Delivery = EventServiceTest;

TEST_F(Delivery, AnEventReachesASubscriberWithAllThatWasDeclaredAndSet)
{
    const ConsumerPtr consumer = newConsumer();
    Recorder recorder;
    ASSERT_GE(recorder.subscribe(consumer.get()), 0);

    const ProducerPtr producer = newProducer();
    const DeclarationPtr declaration(event_declaration_new(EVENT_DECLARATION_INTERNAL, nullptr));
    event_declaration_add_key_value(declaration.get(), "topic0", event_value_string("Device"),
                                    nullptr);
    event_declaration_set_name_space(declaration.get(), "topic0", "tns1");
    event_declaration_add_key(declaration.get(), "text", EVENT_VALUE_STRING, nullptr);
    event_declaration_add_key_tag(declaration.get(), "text", "onvif-data");
    event_declaration_add_key_tag(declaration.get(), "text", "other");
    event_declaration_add_key(declaration.get(), "flag", EVENT_VALUE_BOOLEAN, nullptr);
    event_declaration_add_key(declaration.get(), "ratio", EVENT_VALUE_DOUBLE, nullptr);
    event_declaration_add_key(declaration.get(), "count", EVENT_VALUE_INT, nullptr);
    const int id = event_producer_declare(producer.get(), declaration.get());
    ASSERT_GE(id, 0);
    const EventPtr event(event_producer_prepare_event(producer.get(), id, 1234567, nullptr));
    ASSERT_TRUE(event);
    EXPECT_TRUE(
        event_set_value(event.get(), "text", event_value_string("a\xF0\x9F\x98\x80z"), nullptr));
    EXPECT_TRUE(event_set_value(event.get(), "flag", event_value_boolean(7), nullptr));
    EXPECT_TRUE(event_set_value(event.get(), "ratio", event_value_double(0.1), nullptr));
    EXPECT_TRUE(event_set_value(event.get(), "count", event_value_int(INT64_MIN), nullptr));
    ASSERT_TRUE(event_producer_send_event(producer.get(), event.get(), nullptr));

    ASSERT_TRUE(recorder.waitFor(1));
    const EventPtr got = recorder.lastEvent();
    EXPECT_EQ(event_get_key_count(got.get()), 5U);
    EXPECT_STREQ(event_get_key_at(got.get(), 0), "topic0");
    EXPECT_STREQ(event_get_name_space_at(got.get(), 0), "tns1");
    EXPECT_STREQ(event_get_name_space(got.get(), "topic0"), "tns1");
    EXPECT_EQ(event_get_name_space(got.get(), "text"), nullptr);
    EXPECT_STREQ(event_get_value(got.get(), "topic0"), "Device");
    EXPECT_STREQ(event_get_value(got.get(), "text"), "a\xF0\x9F\x98\x80z");
    EXPECT_STREQ(event_get_value(got.get(), "flag"), "1");
    EXPECT_STREQ(event_get_value_at(got.get(), 3), "0.1");
    EXPECT_STREQ(event_get_value(got.get(), "count"), "-9223372036854775808");
    EXPECT_EQ(event_get_value(got.get(), "none"), nullptr);
    EXPECT_EQ(event_get_type_at(got.get(), 2), EVENT_VALUE_BOOLEAN);
    EXPECT_EQ(event_get_key_at(got.get(), 5), nullptr);
    GList *tags = event_get_tags_at(got.get(), 1);
    ASSERT_EQ(g_list_length(tags), 2U);
    EXPECT_STREQ(static_cast<char *>(tags->data), "onvif-data");
    EXPECT_STREQ(static_cast<char *>(tags->next->data), "other");
    g_list_free_full(tags, g_free);
    EXPECT_EQ(event_get_tags_at(got.get(), 0), nullptr);
    EXPECT_TRUE(event_is_internal(got.get()));
    EXPECT_FALSE(event_is_property(got.get()));
    EXPECT_FALSE(event_is_initial(got.get()));
    EXPECT_EQ(event_get_time(got.get()), 1234567);
}

TEST_F(Delivery, EventsOfAProducerComeInTheOrderInWhichTheyWereSent)
{
    const ConsumerPtr consumer = newConsumer();
    Recorder recorder;
    recorder.subscribe(consumer.get());
    const ProducerPtr producer = newProducer();
    const int first = event_producer_declare(producer.get(), numberDeclaration("A").get());
    const int second = event_producer_declare(producer.get(), numberDeclaration("B").get());
    constexpr int COUNT = 2000;
    for (int number = 0; number < COUNT; ++number) {
        ASSERT_TRUE(sendNumber(producer.get(), number % 3 == 0 ? first : second, number));
    }
    ASSERT_TRUE(recorder.waitFor(COUNT));
    std::vector<std::int64_t> expected(COUNT);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(recorder.numbers(), expected);
}

TEST_F(Delivery, EachMatchingSubscriptionOfEachConsumerGetsTheEventExactlyOnce)
{
    const ConsumerPtr one = newConsumer("one");
    const ConsumerPtr two = newConsumer("two");
    Recorder everything;
    Recorder byTopic;
    Recorder byNumber;
    Recorder other;
    Recorder elsewhere;
    everything.subscribe(one.get());
    byTopic.subscribe(one.get(), whereValue("topic0", "A"));
    byNumber.subscribe(one.get(), whereValue("number", "5"));
    other.subscribe(one.get(), whereValue("topic0", "B"));
    elsewhere.subscribe(two.get(), whereValue("topic0", "A"));
    const ProducerPtr producer = newProducer();
    const int id = event_producer_declare(producer.get(), numberDeclaration("A").get());
    for (const int number : {5, 6, 5, 99}) {
        ASSERT_TRUE(sendNumber(producer.get(), id, number));
    }
    ASSERT_TRUE(everything.waitForNumber(99));
    ASSERT_TRUE(byTopic.waitForNumber(99));
    ASSERT_TRUE(elsewhere.waitForNumber(99));
    EXPECT_EQ(everything.numbers(), (std::vector<std::int64_t>{5, 6, 5, 99}));
    EXPECT_EQ(byTopic.numbers(), (std::vector<std::int64_t>{5, 6, 5, 99}));
    EXPECT_EQ(elsewhere.numbers(), (std::vector<std::int64_t>{5, 6, 5, 99}));
    EXPECT_EQ(byNumber.numbers(), (std::vector<std::int64_t>{5, 5}));
    EXPECT_EQ(other.count(), 0U);
}

TEST_F(Delivery, TheSameEventCanBeChangedAndSentAgain)
{
    const ConsumerPtr consumer = newConsumer();
    Recorder recorder;
    recorder.subscribe(consumer.get());
    const ProducerPtr producer = newProducer();
    const int id = event_producer_declare(producer.get(), numberDeclaration().get());
    const EventPtr event(event_producer_prepare_event(producer.get(), id, 0, nullptr));
    event_set_value(event.get(), "number", event_value_int(1), nullptr);
    ASSERT_TRUE(event_producer_send_event(producer.get(), event.get(), nullptr));
    const EventPtr copy(event_copy(event.get()));
    event_set_value(event.get(), "number", event_value_int(2), nullptr);
    ASSERT_TRUE(event_producer_send_event(producer.get(), event.get(), nullptr));
    ASSERT_TRUE(event_producer_send_event(producer.get(), copy.get(), nullptr));
    ASSERT_TRUE(recorder.waitFor(3));
    EXPECT_EQ(recorder.numbers(), (std::vector<std::int64_t>{1, 2, 1}));
}

TEST_F(Delivery, EventsSentJustBeforeTheProducerGoesStillArrive)
{
    const ConsumerPtr consumer = newConsumer();
    Recorder recorder;
    recorder.subscribe(consumer.get());
    for (int round = 0; round < 20; ++round) {
        const ProducerPtr producer = newProducer();
        const int id = event_producer_declare(producer.get(), numberDeclaration().get());
        ASSERT_TRUE(sendNumber(producer.get(), id, round));
        if (round % 2 == 0) {
            event_producer_undeclare(producer.get(), id);
        }
    }
    EXPECT_TRUE(recorder.waitFor(20));
}

TEST_F(Delivery, ATopicOfAHundredLevelsAndTheLargestEventArriveWhole)
{
    const ConsumerPtr consumer = newConsumer();
    Recorder recorder;
    recorder.subscribe(consumer.get());
    const ProducerPtr producer = newProducer();
    const DeclarationPtr declaration(event_declaration_new(0, nullptr));
    std::size_t used = 0;
    for (int level = 0; level < 100; ++level) {
        const std::string key = "topic" + std::to_string(level);
        const std::string value = "level " + std::to_string(level);
        ASSERT_TRUE(event_declaration_add_key_value(declaration.get(), key.c_str(),
                                                    event_value_string(value.c_str()), nullptr));
        used += key.size() + value.size();
    }
    event_declaration_add_key(declaration.get(), "payload", EVENT_VALUE_STRING, nullptr);
    used += 7;
    const int id = event_producer_declare(producer.get(), declaration.get());
    const EventPtr event(event_producer_prepare_event(producer.get(), id, 0, nullptr));
    const std::string tooMuch(EVENT_MAX_SIZE - used + 1, 'x');
    event_set_value(event.get(), "payload", event_value_string(tooMuch.c_str()), nullptr);
    ErrorSlot error;
    EXPECT_FALSE(event_producer_send_event(producer.get(), event.get(), error.out()));
    EXPECT_EQ(error.code(), EVENT_ERROR_TOO_LARGE);

    const std::string most = tooMuch.substr(1);
    event_set_value(event.get(), "payload", event_value_string(most.c_str()), nullptr);
    for (int round = 0; round < 10; ++round) { // more than a socket holds
        ASSERT_TRUE(event_producer_send_event(producer.get(), event.get(), error.out()))
            << error.text();
    }
    ASSERT_TRUE(recorder.waitFor(10));
    const EventPtr got = recorder.lastEvent();
    EXPECT_EQ(event_get_value(got.get(), "payload"), most);
    EXPECT_STREQ(event_get_value(got.get(), "topic99"), "level 99");
}

TEST_F(Delivery, ANewSubscriberGetsTheKeptValueOfAPropertyFirst)
{
    const ProducerPtr producer = newProducer();
    const int property = event_producer_declare(producer.get(), propertyDeclaration("P").get());
    const int silent = event_producer_declare(producer.get(), propertyDeclaration("S").get());
    const int stateless = event_producer_declare(producer.get(), numberDeclaration("N").get());
    ASSERT_GE(silent, 0);
    ASSERT_TRUE(sendNumber(producer.get(), property, 1));
    ASSERT_TRUE(sendNumber(producer.get(), stateless, 2));
    ASSERT_TRUE(sendNumber(producer.get(), property, 3));
    const ConsumerPtr early = newConsumer();
    Recorder recorder;
    recorder.subscribe(early.get());
    ASSERT_TRUE(recorder.waitForNumber(3));
    EXPECT_EQ(recorder.all().back(), (Received{"P", 3, true}));

    Recorder second; // of the same consumer: only the new subscription gets the value
    second.subscribe(early.get(), whereValue("number", "3"));
    Recorder third;
    third.subscribe(early.get(), whereValue("number", "1"));
    ASSERT_TRUE(second.waitFor(1));
    const std::size_t before = recorder.count();
    ASSERT_TRUE(sendNumber(producer.get(), property, 4));
    ASSERT_TRUE(recorder.waitForNumber(4));
    EXPECT_EQ(recorder.all().back(), (Received{"P", 4, false}));
    EXPECT_EQ(recorder.count(), before + 1);
    EXPECT_EQ(second.count(), 1U);
    EXPECT_EQ(third.count(), 0U);
}

TEST_F(Delivery, TheKeptValueGoesWithItsDeclaration)
{
    const ProducerPtr producer = newProducer();
    const int gone = event_producer_declare(producer.get(), propertyDeclaration("Gone").get());
    const int there = event_producer_declare(producer.get(), propertyDeclaration("There").get());
    ASSERT_TRUE(sendNumber(producer.get(), gone, 1));
    ASSERT_TRUE(sendNumber(producer.get(), there, 2));
    ASSERT_TRUE(event_producer_undeclare(producer.get(), gone));
    const ConsumerPtr consumer = newConsumer();
    Recorder recorder;
    recorder.subscribe(consumer.get());
    ASSERT_TRUE(recorder.waitForNumber(2));
    EXPECT_EQ(recorder.count(), 1U);
}

} // namespace
} // namespace event_test
