/** The consumer from its construction over its start to its end. */
#include "events/event_consumer_handler.h"

#include "events/publication_paths.h"
#include "events/subscription_registry.h"
#include "fakes/call_record.h"
#include "fakes/config_folder.h"
#include "unit/events/config_texts.h"
#include "unit/events/consumer_fixture.h"
#include "unit/events/held_worker.h"
#include "unit/events/wrapped_sync.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <condition_variable>
#include <filesystem>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

namespace tovrel::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using EventConsumerHandlerTest = ConsumerTest;

} // namespace

TEST_F(EventConsumerHandlerTest, ConstructionMakesTheConsumerThenLoadsBothFiles)
{
    makeConsumer();
    EXPECT_EQ(recordedCalls(),
              (Calls{"event_consumer_new Tovrel",
                     std::string("confutils_sweep_temporary_files ") + publicationFile(),
                     std::string("confutils_sweep_temporary_files ") + legacyPublicationFile()}));
    EXPECT_EQ(consumer->eventFilterCount(), 0U);
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(EventConsumerHandlerTest, ConstructionLoadsTheFileAndMigratesTheLegacyOne)
{
    writeFile(publicationFile(), "[4]\ntopicFilter=t:current\nretain=all\n");
    writeFile(legacyPublicationFile(), "[x]\ntopicFilter=t:legacy\nretain=none\n");
    makeConsumer();
    EXPECT_THAT(filterTexts(consumer->getPublicationConfig()),
                ElementsAre("0: 't:legacy' qos 0 retain none t|legacy",
                            "4: 't:current' qos 0 retain all t|current"));
    EXPECT_EQ(consumer->eventFilterCount(), 2U);
    EXPECT_FALSE(std::filesystem::exists(legacyPublicationFile()));
}

TEST_F(EventConsumerHandlerTest, ConstructionEmptiesTheRegistry)
{
    SubscriptionRegistry::instance().insert(3, {nullptr, 1, 0, RetainPolicy::NONE});
    makeConsumer();
    EXPECT_THAT(SubscriptionRegistry::instance().records(), IsEmpty());
}

TEST_F(EventConsumerHandlerTest, WithoutAConsumerOfTheEventServiceItSaysSoAndAsksForNothing)
{
    failCall("event_consumer_new");
    startConsumer({"onvif:A"});
    consumer->setMessagingStatus(true, true);
    consumer->unsubscribeEventFilters();
    consumer->subscribeEventFilters();
    consumer.reset();
    EXPECT_EQ(recordedCalls({"event_consumer_new", "event_consumer_subscribe",
                             "event_consumer_unsubscribe", "event_consumer_free",
                             "subscribe_expression_new"}),
              Calls{"event_consumer_new Tovrel"});
    EXPECT_EQ(log.take(), Lines{failureLine("Failed to create event consumer")});
}

TEST_F(EventConsumerHandlerTest, StartingSubscribesTheStatusOfTheMqttClientInAnyNamespace)
{
    makeConsumer();
    resetCalls();
    consumer->start("SN1");
    EXPECT_EQ(recordedCalls(),
              (Calls{"subscribe_expression_new", "subscribe_expression_add_key_value topic0 Device",
                     "subscribe_expression_add_key_value topic1 MQTT",
                     "subscribe_expression_add_key_value topic2 ClientStatus", STATUS_SUBSCRIPTION,
                     "subscribe_expression_free"}));
    EXPECT_EQ(fakeSubscriptions().at(0).userData, consumer.get());
}

namespace {

class StatusExpression : public EventConsumerHandlerTest,
                         public testing::WithParamInterface<int> {};

} // namespace

TEST_P(StatusExpression, ThatCannotBeBuiltIsLoggedAndNotSubscribed)
{
    makeConsumer({"onvif:A"});
    resetCalls();
    failCall("subscribe_expression_add_key_value", static_cast<unsigned int>(GetParam()) + 1);
    consumer->start("SN1");
    EXPECT_THAT(fakeSubscriptions(), IsEmpty());
    EXPECT_EQ(recordedCalls({"subscribe_expression_add_key_value"}).size(),
              static_cast<std::size_t>(GetParam()) + 1);
    EXPECT_EQ(recordedCalls({"subscribe_expression_free"}).size(), 1U);
    EXPECT_EQ(log.take(),
              Lines{failureLine("Failed to add key value " + std::to_string(GetParam()) +
                                " to subscription expression")});
}

INSTANTIATE_TEST_SUITE_P(Pairs, StatusExpression, testing::Values(0, 1, 2));

TEST_F(EventConsumerHandlerTest, DestructionFreesTheConsumerWithoutUnsubscribing)
{
    startConsumer({"onvif:A", "onvif:B"});
    activate();
    resetCalls();
    consumer.reset();
    EXPECT_EQ(recordedCalls(), Calls{"event_consumer_free"});
    EXPECT_THAT(fakeSubscriptions(), IsEmpty());
    EXPECT_THAT(SubscriptionRegistry::instance().records(), IsEmpty());
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(EventConsumerHandlerTest, DestructionWithoutAStartIsPossible)
{
    makeConsumer({"onvif:A"});
    consumer.reset();
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(EventConsumerHandlerTest, DestructionDropsWhatIsQueued)
{
    startConsumer({"onvif:Device"});
    activate();
    deliver(simpleEvent("x"));
    consumer.reset();
    EXPECT_THAT(bridge.payloads(), IsEmpty());
}

TEST_F(EventConsumerHandlerTest, DestructionWakesAndJoinsThePublishWorkerAndThenTheStatusWorker)
{
    makeConsumer();
    std::vector<std::string> steps;
    std::vector<const std::thread *> joined;
    syncHooks().afterNotify = [&, &watched = *consumer](const std::condition_variable *condition) {
        for (const auto worker : {Worker::PUBLISH, Worker::STATUS}) {
            if (isConditionOf(watched, worker, condition)) {
                steps.emplace_back(worker == Worker::PUBLISH ? "wake publish" : "wake status");
            }
        }
    };
    syncHooks().beforeJoin = [&](const std::thread *thread) {
        steps.emplace_back("join");
        joined.push_back(thread);
    };
    consumer->start("SN1");
    consumer.reset();
    syncHooks() = {};
    EXPECT_THAT(steps, ElementsAre("wake publish", "join", "wake status", "join"));
    ASSERT_EQ(joined.size(), 2U);
    EXPECT_GT(joined.at(0), joined.at(1)) << "the publish worker is the later member";
}

TEST_F(EventConsumerHandlerTest, AnExceptionWhileJoiningTheWorkersIsLogged)
{
    startConsumer({"onvif:A"});
    failCall("std::thread::join", 2);
    consumer.reset();
    EXPECT_EQ(log.take(), Lines{failureLine("Exception when terminating event consumption: "
                                            "No such process")});
    EXPECT_EQ(recordedCalls({"event_consumer_free"}).size(), 1U);
}

TEST_F(EventConsumerHandlerTest, WorkersThatAreNotToRunReturnAtOnce)
{
    makeConsumer();
    consumer->statusWorker();
    consumer->publishWorker();
}

using EventConsumerHandlerDeathTest = EventConsumerHandlerTest;

TEST_F(EventConsumerHandlerDeathTest, ASecondStartIsFatal)
{
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_DEATH(
        {
            startConsumer();
            consumer->start("SN1");
        },
        "terminate");
}

TEST_F(EventConsumerHandlerTest, AFailureToLockIsPassedOn)
{
    makeConsumer();
    syncHooks().lockError = [this](const pthread_mutex_t *mutex) {
        return isWithin(*consumer, mutex) ? EDEADLK : 0;
    };
    EXPECT_THROW(consumer->setMessagingStatus(true, true), std::system_error);
    EXPECT_THROW(consumer->refreshSubscriptions(), std::system_error);
    EXPECT_THROW(consumer->setPublicationConfig(PublicationConfig()), std::system_error);
    syncHooks() = {};
}

} // namespace tovrel::test
