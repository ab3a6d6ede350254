/** The registry of the daemon with clients of a test, without a bus. */
#pragma once

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

inline Declaration withTopic(const std::string &topic)
{
    Declaration declaration;
    EXPECT_TRUE(declaration.addFixedKey("topic0", Value::ofText(topic)));
    EXPECT_TRUE(declaration.setNameSpace("topic0", "tns1"));
    EXPECT_TRUE(declaration.addOpenKey("number", EVENT_VALUE_INT));
    EXPECT_TRUE(declaration.addOpenKey("text", EVENT_VALUE_STRING));
    return declaration;
}

/** Conditions in short: "key=value", "key@namespace", "!key". */
inline Expression expressionOf(const std::vector<std::string> &conditions)
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
inline std::string bodyOf(std::int64_t time, std::int64_t number, const std::string &text)
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

} // namespace norq::event
