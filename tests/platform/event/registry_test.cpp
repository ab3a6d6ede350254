/** Routing, limits and backlogs of the daemon, without bus and sockets. */
#include "event/core/frame_buffer.h"
#include "event/core/wire.h"
#include "event/daemon/limits.h"
#include "event/daemon/registry.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace norq::event {
namespace {

/** A client whose socket the test reads; does not write while it is stuck. */
class TestClient final : public Client {
public:
    TestClient(Registry &registry, const std::string &clientName)
        : Client(clientName), owner(registry)
    {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, sockets.data()), 0);
        owner.add(*this);
    }
    ~TestClient() override
    {
        owner.remove(*this);
        close(sockets[0]);
        close(sockets[1]);
    }

    void flush() override
    {
        if (!stuck) {
            queue.write(sockets[0]);
        }
    }

    /** All deliveries that wait: subscription ids and the integer that the body starts with. */
    std::vector<std::pair<std::vector<std::uint32_t>, std::int64_t>> receive()
    {
        std::vector<std::pair<std::vector<std::uint32_t>, std::int64_t>> deliveries;
        ssize_t count = 0;
        do {
            const auto room = buffer.room();
            count = recv(sockets[1], room.data(), room.size(), MSG_DONTWAIT);
            buffer.filled(count > 0 ? static_cast<std::size_t>(count) : 0);
            while (const auto frame = buffer.next()) {
                if (const auto delivery = readDelivery(*frame)) {
                    WireReader body(delivery->body);
                    deliveries.emplace_back(delivery->subscriptions, body.number<std::int64_t>());
                } else if (readDefine(*frame)) {
                    ++definitions;
                }
            }
            flush();
        } while (count > 0);
        return deliveries;
    }

    bool stuck = false;
    int definitions = 0;

private:
    Registry &owner;
    std::array<int, 2> sockets{};
    FrameBuffer buffer{MAX_SERVICE_FRAME};
};

Declaration withTopic(const std::string &topic)
{
    Declaration declaration;
    EXPECT_TRUE(declaration.addFixedKey("topic0", Value::ofText(topic)));
    EXPECT_TRUE(declaration.setNameSpace("topic0", "tns1"));
    EXPECT_TRUE(declaration.addOpenKey("number", EVENT_VALUE_INT));
    EXPECT_TRUE(declaration.addOpenKey("text", EVENT_VALUE_STRING));
    return declaration;
}

/** Conditions in short: "key=value", "key@namespace", "!key". */
Expression expressionOf(const std::vector<std::string> &conditions)
{
    Expression expression;
    for (const std::string &condition : conditions) {
        const std::size_t at = condition.find_first_of("=@");
        if (condition.front() == '!') {
            EXPECT_TRUE(expression.addAbsent(condition.substr(1)));
        } else if (condition[at] == '=') {
            EXPECT_TRUE(expression.addKeyValue(condition.substr(0, at), condition.substr(at + 1)));
        } else {
            EXPECT_TRUE(expression.setNameSpace(condition.substr(0, at), condition.substr(at + 1)));
        }
    }
    return expression;
}

/** Body of an event whose time, number and text are given. */
std::string bodyOf(std::int64_t time, std::int64_t number, const std::string &text)
{
    std::string body;
    WireWriter writer(body);
    writer.number(time);
    writer.number(number);
    writer.text<std::uint32_t>(text);
    return body;
}

class RegistryTest : public testing::Test {
protected:
    Routing send(std::uint32_t id, std::int64_t time, std::int64_t number = 0,
                 const std::string &text = "")
    {
        const std::string body = bodyOf(time, number, text);
        const Routing routing = registry.route(producer, {0, id, body});
        registry.flush();
        return routing;
    }

    test_support::LogCapture logs;
    Registry registry;
    TestClient producer{registry, "producer"};
    TestClient consumer{registry, "consumer"};
};

TEST_F(RegistryTest, ConditionsOfEachKindAndAllTheirCombinationsDecideWhatMatches)
{
    struct Condition {
        std::string text;
        bool holds;
    };
    const std::vector<Condition> conditions = {
        {"topic0=Device", true}, {"topic0=Other", false}, {"topic0@tns1", true},
        {"topic0@other", false}, {"topic0@", false},      {"number@", true},
        {"number=5", true},      {"number=05", false},    {"number=6", false},
        {"text=word", true},     {"text=", false},        {"text=words", false},
        {"!topic1", true},       {"!text", false},        {"topic1=Device", false},
        {"topic1@tns1", false},
    };
    ASSERT_EQ(registry.declare(producer, 0, withTopic("Device")).refusal, Refusal::NONE);
    std::uint32_t id = 0;
    std::vector<std::uint32_t> expected;
    const auto add = [&](const std::vector<const Condition *> &combination) {
        std::vector<std::string> texts;
        std::vector<std::string> keys;
        bool holds = true;
        for (const Condition *condition : combination) {
            holds = holds && condition->holds;
            // two values or two namespaces of one key do not stand in one expression
            const std::size_t at = condition->text.find_first_of("=@");
            keys.push_back(at == std::string::npos ? condition->text
                                                   : condition->text.substr(0, at + 1));
            texts.push_back(condition->text);
        }
        if (keys.size() == 2 && keys[0] == keys[1]) {
            return;
        }
        ASSERT_EQ(registry.subscribe(consumer, id, expressionOf(texts)).refusal, Refusal::NONE);
        if (holds) {
            expected.push_back(id);
        }
        ++id;
    };
    add({});
    for (const Condition &first : conditions) {
        add({&first});
        for (const Condition &second : conditions) {
            add({&first, &second});
        }
    }
    ASSERT_EQ(send(0, 1, 5, "word"), Routing::DONE);
    auto deliveries = consumer.receive();
    ASSERT_EQ(deliveries.size(), 1U);
    std::sort(deliveries[0].first.begin(), deliveries[0].first.end());
    EXPECT_EQ(deliveries[0].first, expected);
}

TEST_F(RegistryTest, ChangesOfTheSubscriptionsCountFromTheNextEventOn)
{
    registry.declare(producer, 0, withTopic("A"));
    send(0, 1);
    registry.subscribe(consumer, 1, {});
    send(0, 2);
    registry.subscribe(consumer, 2, expressionOf({"number=0"}));
    send(0, 3);
    registry.unsubscribe(consumer, 1);
    send(0, 4);
    registry.unsubscribe(consumer, 2);
    send(0, 5);
    const auto deliveries = consumer.receive();
    ASSERT_EQ(deliveries.size(), 3U);
    EXPECT_EQ(deliveries[0].first, (std::vector<std::uint32_t>{1}));
    EXPECT_EQ(deliveries[1].first, (std::vector<std::uint32_t>{1, 2}));
    EXPECT_EQ(deliveries[2].first, (std::vector<std::uint32_t>{2}));
    EXPECT_EQ(consumer.definitions, 1);
}

TEST_F(RegistryTest, AnEventOfNoDeclarationGoesNowhereAndAMalformedOneIsReported)
{
    registry.subscribe(consumer, 0, {});
    EXPECT_EQ(send(9, 1), Routing::UNKNOWN);
    registry.declare(producer, 9, withTopic("A"));
    EXPECT_EQ(registry.route(producer, {0, 9, "short"}), Routing::MALFORMED);
    const std::string body = bodyOf(1, 1, "");
    EXPECT_EQ(registry.route(consumer, {0, 9, body}), Routing::UNKNOWN); // another client's id
    EXPECT_EQ(registry.route(producer, {FLAG_KEPT, 9, body}), Routing::MALFORMED); // no property
    registry.undeclare(producer, 9);
    EXPECT_EQ(send(9, 1), Routing::UNKNOWN);
    EXPECT_TRUE(consumer.receive().empty());
}

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

TEST_F(RegistryTest, AClientThatCannotRememberAllDeclarationsIsToldThemAgain)
{
    registry.subscribe(consumer, 0, {});
    constexpr std::uint32_t COUNT = MAX_SLOTS + 10;
    for (std::uint32_t id = 0; id < COUNT; ++id) {
        ASSERT_EQ(registry.declare(producer, id, withTopic("A")).refusal, Refusal::NONE);
    }
    std::size_t received = 0;
    for (int round = 0; round < 2; ++round) {
        for (std::uint32_t id = 0; id < COUNT; ++id) {
            send(id, id);
            received += consumer.receive().size();
        }
    }
    EXPECT_EQ(received, 2 * COUNT);
    EXPECT_GT(consumer.definitions, static_cast<int>(COUNT));
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

TEST_F(RegistryTest, ManySubscriptionsToOtherValuesOfAnOpenKeyDoNotHideTheRightOne)
{
    registry.declare(producer, 0, withTopic("A"));
    for (std::uint32_t id = 0; id < 500; ++id) {
        registry.subscribe(
            consumer, id,
            expressionOf({"text=v" + std::to_string(id), "number=" + std::to_string(id % 2)}));
    }
    send(0, 1, 1, "v77");
    send(0, 2, 0, "v77");
    const auto deliveries = consumer.receive();
    ASSERT_EQ(deliveries.size(), 1U);
    EXPECT_EQ(deliveries[0].first, (std::vector<std::uint32_t>{77}));
}

} // namespace
} // namespace norq::event
