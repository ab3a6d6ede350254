/** Routing of events in the daemon, without bus and sockets. */
#include "registry_fixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace norq::event {
namespace {

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
