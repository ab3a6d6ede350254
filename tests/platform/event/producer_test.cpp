/** What a producer is told when it does something wrong. */
#include "event_handles.h"
#include "event_service_fixture.h"
#include "recorder.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

namespace event_test {
namespace {

class ProducerErrors : public EventServiceTest {
protected:
    ProducerErrors()
    {
        everything.subscribe(consumer.get());
        const DeclarationPtr declaration = numberDeclaration("Errors");
        event_declaration_add_key_value(declaration.get(), "fixed", event_value_int(7), nullptr);
        event_declaration_add_key(declaration.get(), "text", EVENT_VALUE_STRING, nullptr);
        id = event_producer_declare(producer.get(), declaration.get());
        event.reset(event_producer_prepare_event(producer.get(), id, 0, nullptr));
    }

    /** Nothing was sent: the next good event is the first that arrives. */
    void expectNothingSent()
    {
        const int marker = event_producer_declare(producer.get(), numberDeclaration("Mark").get());
        ASSERT_TRUE(sendNumber(producer.get(), marker, 4711));
        ASSERT_TRUE(everything.waitForNumber(4711));
        EXPECT_EQ(everything.count(), 1U);
    }

    ConsumerPtr consumer = newConsumer();
    Recorder everything;
    ProducerPtr producer = newProducer();
    EventPtr event;
    int id = -1;
    ErrorSlot error;
};

TEST_F(ProducerErrors, AnOpenKeyLeftUnsetStopsTheEvent)
{
    EXPECT_FALSE(event_producer_send_event(producer.get(), event.get(), error.out()));
    EXPECT_EQ(error.code(), EVENT_ERROR_UNSET_KEY);
    event_set_value(event.get(), "number", event_value_int(1), nullptr);
    EXPECT_FALSE(event_producer_send_event(producer.get(), event.get(), error.out()));
    EXPECT_EQ(error.code(), EVENT_ERROR_UNSET_KEY);
    EXPECT_NE(error.text().find("'text'"), std::string::npos);
    EXPECT_EQ(event_get_value(event.get(), "text"), nullptr);
    expectNothingSent();
}

TEST_F(ProducerErrors, AValueThatDoesNotFitItsKeyIsRefusedAndChangesNothing)
{
    const auto set = [&](const char *key, event_value_t value) {
        return event_set_value(event.get(), key, value, error.out()) != 0;
    };
    EXPECT_TRUE(set("number", event_value_int(5)));
    EXPECT_FALSE(set("fixed", event_value_int(8)));
    EXPECT_EQ(error.code(), EVENT_ERROR_FIXED_VALUE);
    EXPECT_FALSE(set("fixed", event_value_string("7")));
    EXPECT_EQ(error.code(), EVENT_ERROR_TYPE);
    EXPECT_TRUE(set("fixed", event_value_int(7)));
    EXPECT_FALSE(set("number", event_value_boolean(1)));
    EXPECT_EQ(error.code(), EVENT_ERROR_TYPE);
    EXPECT_FALSE(set("number", event_value_double(1)));
    EXPECT_EQ(error.code(), EVENT_ERROR_TYPE);
    EXPECT_FALSE(set("other", event_value_int(1)));
    EXPECT_EQ(error.code(), EVENT_ERROR_UNKNOWN_KEY);
    EXPECT_FALSE(set("text", event_value_string("\xc0\x80")));
    EXPECT_EQ(error.code(), EVENT_ERROR_INVALID);
    EXPECT_STREQ(event_get_value(event.get(), "number"), "5");
    EXPECT_STREQ(event_get_value(event.get(), "fixed"), "7");
    expectNothingSent();
}

TEST_F(ProducerErrors, AnUndeclaredOrForeignIdIsRefused)
{
    EXPECT_EQ(event_producer_prepare_event(producer.get(), id + 1, 0, error.out()), nullptr);
    EXPECT_EQ(error.code(), EVENT_ERROR_UNKNOWN_ID);
    EXPECT_EQ(event_producer_prepare_event(producer.get(), -1, 0, error.out()), nullptr);
    EXPECT_EQ(error.code(), EVENT_ERROR_UNKNOWN_ID);
    EXPECT_FALSE(event_producer_undeclare(producer.get(), id + 1));

    event_set_value(event.get(), "number", event_value_int(1), nullptr);
    event_set_value(event.get(), "text", event_value_string(""), nullptr);
    const ProducerPtr other = newProducer("other");
    ASSERT_EQ(event_producer_declare(other.get(), numberDeclaration("Other").get()), id);
    EXPECT_FALSE(event_producer_send_event(other.get(), event.get(), error.out()));
    EXPECT_EQ(error.code(), EVENT_ERROR_UNKNOWN_ID);

    EXPECT_TRUE(event_producer_undeclare(producer.get(), id));
    EXPECT_FALSE(event_producer_undeclare(producer.get(), id));
    EXPECT_FALSE(event_producer_send_event(producer.get(), event.get(), error.out()));
    EXPECT_EQ(error.code(), EVENT_ERROR_UNKNOWN_ID);
    EXPECT_GT(event_producer_declare(producer.get(), numberDeclaration("Next").get()), id);
    expectNothingSent();
}

TEST_F(ProducerErrors, AReceivedEventCanNeitherBeChangedNorSent)
{
    event_set_value(event.get(), "number", event_value_int(1), nullptr);
    event_set_value(event.get(), "text", event_value_string("t"), nullptr);
    ASSERT_TRUE(event_producer_send_event(producer.get(), event.get(), nullptr));
    ASSERT_TRUE(everything.waitFor(1));
    const EventPtr got = everything.lastEvent();
    EXPECT_FALSE(event_set_value(got.get(), "number", event_value_int(2), error.out()));
    EXPECT_EQ(error.code(), EVENT_ERROR_INVALID);
    EXPECT_FALSE(event_producer_send_event(producer.get(), got.get(), error.out()));
    EXPECT_EQ(error.code(), EVENT_ERROR_UNKNOWN_ID);
}

TEST_F(ProducerErrors, ADeclarationWithoutKeysAndOneTooManyAreRefusedWithAnErrorLine)
{
    const DeclarationPtr empty(event_declaration_new(0, nullptr));
    EXPECT_LT(event_producer_declare(producer.get(), empty.get()), 0);
    EXPECT_EQ(logs.count(256, "the declaration has no key"), 1);

    const DeclarationPtr large(event_declaration_new(0, nullptr));
    const std::string half(EVENT_MAX_SIZE / 2, 'x');
    for (const char *key : {"one", "two"}) {
        event_declaration_add_key_value(large.get(), key, event_value_string(half.c_str()),
                                        nullptr);
    }
    EXPECT_LT(event_producer_declare(producer.get(), large.get()), 0);
    EXPECT_EQ(logs.count(256, "too large"), 1);

    const DeclarationPtr small = numberDeclaration();
    for (int count = 1; count < EVENT_MAX_IDS; ++count) { // one is declared already
        ASSERT_GE(event_producer_declare(producer.get(), small.get()), 0);
    }
    EXPECT_LT(event_producer_declare(producer.get(), small.get()), 0);
    EXPECT_EQ(logs.count(256, "too many declarations"), 1);
    EXPECT_TRUE(event_producer_undeclare(producer.get(), id));
    EXPECT_GE(event_producer_declare(producer.get(), small.get()), 0);
}

TEST_F(ProducerErrors, OneSubscriptionTooManyIsRefusedWithAnErrorLine)
{
    Recorder unused;
    for (int count = 1; count < EVENT_MAX_IDS; ++count) { // one is subscribed already
        ASSERT_GE(unused.subscribe(consumer.get(), whereValue("topic0", "none")), 0);
    }
    EXPECT_LT(unused.subscribe(consumer.get()), 0);
    EXPECT_EQ(logs.count(256, "too many subscriptions"), 1);
}

TEST_F(ProducerErrors, UserDataComesBackUntouched)
{
    int data = 0;
    const ProducerPtr with(event_producer_new("with data", &data, -1, 0));
    EXPECT_EQ(event_producer_get_user_data(with.get()), &data);
    EXPECT_EQ(event_producer_get_user_data(producer.get()), nullptr);
}

/** A daemon that is stopped takes nothing in. */
class StoppedDaemon : public EventServiceTest {
protected:
    /** Sends texts of a size until the first failure; how many were taken. */
    int sendUntilRefused(event_producer_t *producer, int id, std::size_t size)
    {
        const EventPtr event(event_producer_prepare_event(producer, id, 0, nullptr));
        event_set_value(event.get(), "text", event_value_string(std::string(size, 'x').c_str()),
                        nullptr);
        for (int taken = 0;; ++taken) {
            event_set_value(event.get(), "number", event_value_int(taken), nullptr);
            if (event_producer_send_event(producer, event.get(), error.out()) == 0) {
                return taken;
            }
        }
    }

    ErrorSlot error;
};

TEST_F(StoppedDaemon, SendingWaitsForTheTimeOutThenFailsAndNothingIsHalfWritten)
{
    for (const std::size_t size : {std::size_t{10}, std::size_t{200000}}) {
        const ConsumerPtr consumer = newConsumer();
        Recorder recorder;
        recorder.subscribe(consumer.get());
        constexpr int TIMEOUT_MS = 200;
        const ProducerPtr producer = newProducer("stopped", TIMEOUT_MS);
        const DeclarationPtr declaration = numberDeclaration();
        event_declaration_add_key(declaration.get(), "text", EVENT_VALUE_STRING, nullptr);
        const int id = event_producer_declare(producer.get(), declaration.get());
        daemon->signal(SIGSTOP);
        const int taken = sendUntilRefused(producer.get(), id, size);
        EXPECT_EQ(error.code(), EVENT_ERROR_UNAVAILABLE);
        EXPECT_GT(taken, 0);
        const auto before = std::chrono::steady_clock::now();
        EXPECT_FALSE(sendUntilRefused(producer.get(), id, size));
        const auto waited = std::chrono::steady_clock::now() - before;
        EXPECT_GE(waited, std::chrono::milliseconds(TIMEOUT_MS));
        EXPECT_LT(waited, std::chrono::milliseconds(TIMEOUT_MS * 10));

        daemon->signal(SIGCONT);
        ASSERT_TRUE(test_support::waitUntil([&] { // as soon as there is room again
            const EventPtr event(event_producer_prepare_event(producer.get(), id, 0, nullptr));
            event_set_value(event.get(), "text", event_value_string(""), nullptr);
            event_set_value(event.get(), "number", event_value_int(-2), nullptr);
            return event_producer_send_event(producer.get(), event.get(), nullptr) != 0;
        }));
        ASSERT_TRUE(recorder.waitForNumber(-2));
        std::vector<std::int64_t> expected(static_cast<std::size_t>(taken));
        std::iota(expected.begin(), expected.end(), 0);
        expected.push_back(-2);
        EXPECT_EQ(recorder.numbers(), expected);
    }
}

TEST_F(StoppedDaemon, SeveralThreadsThatSendEachWaitNoLongerThanTheTimeOut)
{
    const ProducerPtr producer = newProducer("stopped", 200);
    const DeclarationPtr declaration = numberDeclaration();
    event_declaration_add_key(declaration.get(), "text", EVENT_VALUE_STRING, nullptr);
    const int id = event_producer_declare(producer.get(), declaration.get());
    daemon->signal(SIGSTOP);
    sendUntilRefused(producer.get(), id, 1000);
    const auto before = std::chrono::steady_clock::now();
    std::vector<std::thread> threads;
    threads.reserve(8);
    for (int count = 0; count < 8; ++count) {
        threads.emplace_back([&] {
            const EventPtr event(event_producer_prepare_event(producer.get(), id, 0, nullptr));
            event_set_value(event.get(), "text",
                            event_value_string(std::string(100000, 'y').c_str()), nullptr);
            event_set_value(event.get(), "number", event_value_int(1), nullptr);
            EXPECT_FALSE(event_producer_send_event(producer.get(), event.get(), nullptr));
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(1200));
}

TEST_F(StoppedDaemon, TheRestOfALargeEventIsWrittenWithoutAnotherCall)
{
    const ConsumerPtr consumer = newConsumer();
    Recorder recorder;
    recorder.subscribe(consumer.get());
    const ProducerPtr producer = newProducer("stopped", 100);
    const DeclarationPtr declaration = numberDeclaration();
    event_declaration_add_key(declaration.get(), "text", EVENT_VALUE_STRING, nullptr);
    const int id = event_producer_declare(producer.get(), declaration.get());
    daemon->signal(SIGSTOP);
    const int taken = sendUntilRefused(producer.get(), id, 250000);
    daemon->signal(SIGCONT);
    EXPECT_TRUE(recorder.waitFor(static_cast<std::size_t>(taken)));
}

} // namespace
} // namespace event_test
