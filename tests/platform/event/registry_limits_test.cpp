/** Backlogs and limits of the daemon, without bus and sockets. */
#include "registry_fixture.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace norq::event {
namespace {

TEST_F(RegistryTest, AStuckConsumerLosesItsOldestEventsAndThatIsLoggedOncePerRun)
{
    TestClient other(registry, "other");
    registry.declare(producer, 0, withTopic("A"));
    registry.subscribe(consumer, 0, {});
    registry.subscribe(other, 0, {});
    consumer.stuck = true;
    const auto total = static_cast<std::int64_t>(MAX_BACKLOG_EVENTS) + 3000;
    std::size_t othersCount = 0;
    for (int run = 1; run <= 2; ++run) {
        for (std::int64_t time = 0; time < total; ++time) {
            send(0, time);
            if (time % 1000 == 0) {
                othersCount += other.receive().size();
            }
        }
        othersCount += other.receive().size();
        EXPECT_LE(consumer.queue.backlogLength(), MAX_BACKLOG_EVENTS);
        EXPECT_EQ(logs.count(G_LOG_LEVEL_WARNING, "Consumer 'consumer' does not keep up"), run);
        consumer.stuck = false;
        consumer.flush();
        const auto deliveries = consumer.receive();
        ASSERT_FALSE(deliveries.empty());
        EXPECT_EQ(deliveries.back().second, total - 1);
        EXPECT_LT(deliveries.size(), static_cast<std::size_t>(total));
        for (std::size_t index = 1; index < deliveries.size(); ++index) {
            EXPECT_LT(deliveries[index - 1].second, deliveries[index].second);
        }
        EXPECT_EQ(consumer.queue.backlogLength(), 0U);
        consumer.stuck = true;
    }
    EXPECT_EQ(othersCount, static_cast<std::size_t>(2 * total));
    EXPECT_EQ(logs.count(G_LOG_LEVEL_WARNING, "Consumer 'other'"), 0);
}

TEST_F(RegistryTest, ABacklogIsBoundedInBytesToo)
{
    registry.declare(producer, 0, withTopic("A"));
    registry.subscribe(consumer, 0, {});
    consumer.stuck = true;
    const std::string text(200 * KIB, 'x');
    for (std::int64_t time = 0; time < 100; ++time) {
        send(0, time, 0, text);
        EXPECT_LE(consumer.queue.backlogBytes(), MAX_BACKLOG_BYTES);
    }
    EXPECT_GT(consumer.queue.backlogLength(), 1U);
}

TEST_F(RegistryTest, AllBacklogsTogetherAreBoundedAtTheExpenseOfTheLongest)
{
    registry.declare(producer, 0, withTopic("A"));
    std::vector<std::unique_ptr<TestClient>> stuck;
    for (int index = 0; index < 20; ++index) {
        stuck.push_back(std::make_unique<TestClient>(registry, "stuck"));
        stuck.back()->stuck = true;
        registry.subscribe(*stuck.back(), 0, {});
    }
    const std::string text(200 * KIB, 'x');
    for (std::int64_t time = 0; time < 60; ++time) {
        send(0, time, 0, text);
    }
    std::size_t sum = 0;
    for (const auto &client : stuck) {
        sum += client->queue.backlogBytes();
        EXPECT_GT(client->queue.backlogLength(), 0U);
    }
    EXPECT_LE(sum, MAX_BACKLOGS);
    EXPECT_GT(sum, MAX_BACKLOGS / 2);
}

TEST_F(RegistryTest, LimitsOfAClientAreKept)
{
    EXPECT_EQ(registry.declare(producer, 0x80000000, withTopic("A")).refusal, Refusal::INVALID);
    EXPECT_EQ(registry.declare(producer, 0, Declaration()).refusal, Refusal::INVALID);
    EXPECT_EQ(registry.undeclare(producer, 0).refusal, Refusal::UNKNOWN);
    EXPECT_EQ(registry.unsubscribe(producer, 0).refusal, Refusal::UNKNOWN);
    for (std::uint32_t id = 0; id < EVENT_MAX_IDS; ++id) {
        ASSERT_EQ(registry.declare(producer, id, withTopic("A")).refusal, Refusal::NONE);
        ASSERT_EQ(registry.subscribe(consumer, id, {}).refusal, Refusal::NONE);
    }
    EXPECT_EQ(registry.declare(producer, EVENT_MAX_IDS, withTopic("A")).refusal, Refusal::LIMIT);
    EXPECT_EQ(registry.subscribe(consumer, EVENT_MAX_IDS, {}).refusal, Refusal::LIMIT);
    EXPECT_EQ(registry.undeclare(producer, 0).refusal, Refusal::NONE);
    EXPECT_EQ(registry.unsubscribe(consumer, 0).refusal, Refusal::NONE);
    EXPECT_EQ(registry.declare(producer, 1, withTopic("A")).refusal, Refusal::INVALID); // in use
    EXPECT_EQ(registry.subscribe(consumer, 1, {}).refusal, Refusal::INVALID);
    EXPECT_EQ(registry.declare(producer, 0, withTopic("A")).refusal, Refusal::NONE);

    const std::string large(200 * KIB, 'x');
    TestClient greedy(registry, "greedy");
    std::uint32_t id = 0;
    while (registry.declare(greedy, id, withTopic(large)).refusal == Refusal::NONE) {
        ++id;
        ASSERT_LT(id, 1000U);
    }
    EXPECT_LE(greedy.texts, MAX_CLIENT_TEXTS);
    EXPECT_GT(greedy.texts, MAX_CLIENT_TEXTS / 2);
    EXPECT_EQ(registry.undeclare(greedy, 0).refusal, Refusal::NONE);
    EXPECT_EQ(registry.declare(greedy, 0, withTopic(large)).refusal, Refusal::NONE);
}

TEST_F(RegistryTest, LimitsOfAllClientsTogetherAreKeptAndFreedAgain)
{
    std::vector<std::unique_ptr<TestClient>> clients;
    std::size_t declared = 0;
    const auto fill = [&](TestClient &client) {
        std::uint32_t id = 0;
        while (id < EVENT_MAX_IDS &&
               registry.declare(client, id, withTopic("A")).refusal == Refusal::NONE) {
            ++id;
        }
        return id;
    };
    while (declared < MAX_DECLARATIONS) {
        clients.push_back(std::make_unique<TestClient>(registry, "many"));
        const std::uint32_t added = fill(*clients.back());
        ASSERT_GT(added, 0U);
        declared += added;
    }
    EXPECT_EQ(declared, MAX_DECLARATIONS);
    EXPECT_EQ(registry.declare(producer, 0, withTopic("A")).refusal, Refusal::LIMIT);
    clients.pop_back();
    EXPECT_EQ(registry.declare(producer, 0, withTopic("A")).refusal, Refusal::NONE);

    while (registry.hasRoomForClient()) {
        clients.push_back(std::make_unique<TestClient>(registry, "one"));
    }
    EXPECT_EQ(registry.clients().size(), MAX_CLIENTS);
}

TEST_F(RegistryTest, KeptValuesAreBoundedAndANewerValueNeverLeavesAnOlderOneBehind)
{
    const std::string text(200 * KIB, 'x');
    for (std::uint32_t id = 0; id < 60; ++id) {
        Declaration declaration = withTopic("A");
        ASSERT_TRUE(declaration.setProperty("text"));
        ASSERT_EQ(registry.declare(producer, id, std::move(declaration)).refusal, Refusal::NONE);
        ASSERT_EQ(send(id, id, 0, "small"), Routing::DONE);
    }
    for (std::uint32_t id = 0; id < 60; ++id) {
        ASSERT_EQ(send(id, id, 0, text), Routing::DONE);
        EXPECT_LE(producer.kept, MAX_CLIENT_KEPT);
    }
    EXPECT_GE(logs.count(G_LOG_LEVEL_WARNING, "a value is not kept"), 1);
    EXPECT_LE(logs.count(G_LOG_LEVEL_WARNING, "a value is not kept"), 10);
    registry.subscribe(consumer, 0, expressionOf({"text=small"}));
    registry.flush();
    EXPECT_TRUE(consumer.receive().empty());
    for (std::uint32_t id = 0; id < 60; ++id) {
        registry.undeclare(producer, id);
    }
    EXPECT_EQ(producer.kept, 0U);
}

} // namespace
} // namespace norq::event
