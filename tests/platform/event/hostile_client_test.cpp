/** Whatever a client sends or does not read, the daemon stays up and serves the others. */
#include "event/core/event_content.h"
#include "event/core/frames.h"
#include "event_handles.h"
#include "event_service_fixture.h"
#include "raw_client.h"
#include "recorder.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

namespace event_test {
namespace {

using norq::event::Declaration;
using norq::event::ERROR_INVALID;
using norq::event::ERROR_LIMIT;
using norq::event::ERROR_UNKNOWN;
using norq::event::Value;
using test_support::waitUntil;

class HostileClient : public EventServiceTest {
protected:
    /** The service works, and for a client that was there all the time. */
    void expectOthersServed()
    {
        ASSERT_TRUE(daemon->isRunning());
        ASSERT_TRUE(sendNumber(producer.get(), id, ++number));
        ASSERT_TRUE(recorder.waitForNumber(number));
        EXPECT_EQ(logs.count(G_LOG_LEVEL_WARNING, "lost"), 0);
    }

    /** Declares "number" and "text" under an id. */
    static void declare(RawClient &client, std::uint32_t declarationId)
    {
        ASSERT_EQ(client.calls().declare(declarationId, *declaration()).outcome,
                  norq::event::CallOutcome::DONE);
    }
    static norq::event::SharedDeclaration declaration()
    {
        auto declared = std::make_shared<Declaration>();
        EXPECT_TRUE(declared->addOpenKey("number", EVENT_VALUE_INT));
        EXPECT_TRUE(declared->addOpenKey("text", EVENT_VALUE_STRING));
        return declared;
    }
    static std::string event(std::uint32_t declarationId)
    {
        norq::event::EventContent content;
        content.declaration = declaration();
        content.open = {Value::ofInteger(1), Value::ofText("text")};
        return norq::event::eventFrame(declarationId, 0, content);
    }

    ConsumerPtr consumer = newConsumer("bystander");
    ProducerPtr producer = newProducer("bystander");
    Recorder recorder;
    int id = event_producer_declare(producer.get(), numberDeclaration("Bystander").get());
    std::int64_t number = 0;
    int subscription = recorder.subscribe(consumer.get(), whereValue("topic0", "Bystander"));
};

TEST_F(HostileClient, AMalformedFrameClosesItsSenderOnly)
{
    using namespace std::string_literals;
    std::string wrongFlags = event(5);
    wrongFlags[norq::event::LENGTH_SIZE + 1] = 4;
    std::string notUtf8 = event(5);
    notUtf8.back() = '\xff';
    const std::vector<std::string> malformed = {
        "\0\0\0\0"s,       "\xff\xff\xff\xff"s,    "\x01\0\0\0\x01"s,
        "\x01\0\0\0\x02"s, "\x01\0\0\0\x63"s,      wrongFlags,
        notUtf8,           event(5) + "\0\0\0\0"s, "GET / HTTP/1.1\r\n\r\n",
    };
    for (const std::string &bytes : malformed) {
        RawClient client;
        ASSERT_EQ(client.open("hostile"), "");
        declare(client, 5);
        EXPECT_TRUE(client.write(event(5)));
        client.write(bytes);
        EXPECT_TRUE(client.isClosed()) << testing::PrintToString(bytes);
        // its connection may start anew
        EXPECT_EQ(client.call("Undeclare", "u", 5U), ERROR_UNKNOWN);
        EXPECT_EQ(client.open("reformed"), "");
        expectOthersServed();
    }
}

TEST_F(HostileClient, ComplaintsAboutMisbehavingClientsDoNotFloodTheLog)
{
    for (int round = 0; round < 50; ++round) {
        RawClient client;
        ASSERT_EQ(client.open("hostile"), "");
        client.write("garbage garbage garbage");
        EXPECT_TRUE(client.isClosed());
    }
    expectOthersServed();
    const int lines = occurrences(daemon->standardError(), "closing it");
    EXPECT_GE(lines, 1);
    EXPECT_LE(lines, 10);
}

TEST_F(HostileClient, RandomBytesNeverDoHarm)
{
    std::mt19937 random(7); // NOLINT(bugprone-random-generator-seed): the same cases every time
    for (int round = 0; round < 60; ++round) {
        RawClient client;
        ASSERT_EQ(client.open("random"), "");
        declare(client, 5);
        std::string bytes = event(5) + event(5) + event(5);
        for (int change = 0; change < 4; ++change) {
            bytes[random() % bytes.size()] = static_cast<char>(random());
        }
        client.write(bytes);
    }
    expectOthersServed();
}

TEST_F(HostileClient, AnEventOfAnUnknownDeclarationIsIgnored)
{
    RawClient client;
    ASSERT_EQ(client.open(), "");
    EXPECT_TRUE(client.write(event(77)));
    declare(client, 5);
    EXPECT_TRUE(client.write(event(5)));
    expectOthersServed();
    EXPECT_EQ(client.call("Undeclare", "u", 5U), "");
}

TEST_F(HostileClient, WrongCallsAreAnsweredWithAnError)
{
    RawClient client;
    const char *declareTypes = "uusa(suavsssas)";
    EXPECT_EQ(client.call("Undeclare", "u", 1U), ERROR_UNKNOWN); // not opened yet
    EXPECT_EQ(client.call("Subscribe", "ua(ss)a(ss)as", 1U, 0, 0, 0), ERROR_UNKNOWN);
    EXPECT_EQ(client.open(""), ERROR_INVALID);
    EXPECT_EQ(client.open(std::string(256, 'x')), ERROR_INVALID);
    ASSERT_EQ(client.open(std::string(255, 'x')), "");

    EXPECT_EQ(client.call("Undeclare", "u", 1U), ERROR_UNKNOWN);
    EXPECT_EQ(client.call("Unsubscribe", "u", 1U), ERROR_UNKNOWN);
    EXPECT_EQ(client.call("Undeclare", "s", "1"), "org.freedesktop.DBus.Error.InvalidArgs");
    EXPECT_EQ(client.call("Nothing", ""), "org.freedesktop.DBus.Error.UnknownMethod");
    // no keys, unknown flags, unknown type, wrong value type, two values, no such state key
    EXPECT_EQ(client.call("Declare", declareTypes, 1U, 0U, "", 0), ERROR_INVALID);
    EXPECT_EQ(client.call("Declare", declareTypes, 1U, 2U, "", 1, "k", 1U, 0, "", "", "", 0),
              ERROR_INVALID);
    EXPECT_EQ(client.call("Declare", declareTypes, 1U, 0U, "", 1, "k", 9U, 0, "", "", "", 0),
              ERROR_INVALID);
    EXPECT_EQ(
        client.call("Declare", declareTypes, 1U, 0U, "", 1, "k", 1U, 1, "s", "x", "", "", "", 0),
        ERROR_INVALID);
    EXPECT_EQ(
        client.call("Declare", declareTypes, 1U, 0U, "", 1, "k", 4U, 1, "as", 0, "", "", "", 0),
        ERROR_INVALID);
    EXPECT_EQ(client.call("Declare", declareTypes, 1U, 0U, "", 1, "k", 4U, 2, "s", "x", "s", "y",
                          "", "", "", 0),
              ERROR_INVALID);
    EXPECT_EQ(client.call("Declare", declareTypes, 1U, 0U, "p", 1, "k", 1U, 0, "", "", "", 0),
              ERROR_INVALID);
    EXPECT_EQ(client.call("Declare", declareTypes, 1U, 0U, "", 1, "k", 3U, 1, "d", HUGE_VAL, "", "",
                          "", 0),
              ERROR_INVALID);
    EXPECT_EQ(
        client.call("Declare", declareTypes, 0xffffffffU, 0U, "", 1, "k", 1U, 0, "", "", "", 0),
        ERROR_INVALID);
    EXPECT_EQ(client.call("Subscribe", "ua(ss)a(ss)as", 1U, 1, "", "v", 0, 0), ERROR_INVALID);
    EXPECT_EQ(client.call("Subscribe", "ua(ss)a(ss)as", 1U, 2, "k", "v", "k", "w", 0, 0),
              ERROR_INVALID);
    EXPECT_EQ(client.call("Declare", declareTypes, 1U, 0U, "k", 2, "k", 1U, 0, "n", "a", "b", 1,
                          "tag", "f", 2U, 1, "b", 1, "", "", "", 0),
              "");
    EXPECT_EQ(client.call("Declare", declareTypes, 1U, 0U, "", 1, "k", 1U, 0, "", "", "", 0),
              ERROR_INVALID); // in use
    expectOthersServed();
}

TEST_F(HostileClient, TheNumberOfClientsIsBounded)
{
    std::vector<std::unique_ptr<RawClient>> clients;
    std::string refusal;
    while (refusal.empty() && clients.size() < 1000) {
        clients.push_back(std::make_unique<RawClient>());
        refusal = clients.back()->open();
    }
    EXPECT_EQ(refusal, ERROR_LIMIT);
    expectOthersServed();
    clients.clear();
    EXPECT_TRUE(waitUntil([] {
        RawClient again;
        return again.open().empty();
    }));
}

TEST_F(HostileClient, OpeningAgainEndsTheClientOpenedBefore)
{
    RawClient client;
    ASSERT_EQ(client.open(), "");
    declare(client, 5);
    const norq::event::Descriptor former(std::move(client.socket));
    ASSERT_EQ(client.open(), "");
    EXPECT_EQ(client.call("Undeclare", "u", 5U), ERROR_UNKNOWN);
    char byte = 0;
    EXPECT_EQ(recv(former.get(), &byte, 1, 0), 0);
}

TEST_F(HostileClient, AClientThatLeavesTheBusButKeepsItsSocketIsRemoved)
{
    RawClient client;
    ASSERT_EQ(client.open(), "");
    declare(client, 5);
    client.bus.reset();
    EXPECT_TRUE(client.isClosed());
    expectOthersServed();
}

TEST_F(HostileClient, AConsumerThatNeverReadsCostsNobodyElseAnEventAndOneLineInTheLog)
{
    RawClient stuck;
    ASSERT_EQ(stuck.open("stuck"), "");
    ASSERT_EQ(stuck.call("Subscribe", "ua(ss)a(ss)as", 1U, 0, 0, 0), "");
    constexpr int COUNT = 30000;
    const std::string text(200, 'x');
    const DeclarationPtr declaration = numberDeclaration("Bystander");
    event_declaration_add_key(declaration.get(), "text", EVENT_VALUE_STRING, nullptr);
    const int large = event_producer_declare(producer.get(), declaration.get());
    for (int count = 0; count < COUNT; ++count) {
        const EventPtr event(event_producer_prepare_event(producer.get(), large, 0, nullptr));
        event_set_value(event.get(), "number", event_value_int(count), nullptr);
        event_set_value(event.get(), "text", event_value_string(text.c_str()), nullptr);
        ASSERT_TRUE(event_producer_send_event(producer.get(), event.get(), nullptr));
        if (count % 1000 == 999) { // no faster than the bystander can take it
            ASSERT_TRUE(recorder.waitForNumber(count));
        }
    }
    EXPECT_EQ(recorder.count(), static_cast<std::size_t>(COUNT));
    EXPECT_EQ(occurrences(daemon->standardError(), "does not keep up"), 1);
    EXPECT_EQ(occurrences(daemon->standardError(), "'stuck' does not keep up"), 1);
    expectOthersServed();
}

} // namespace
} // namespace event_test
