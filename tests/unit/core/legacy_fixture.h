/** The legacy methods of the D-Bus handler, called over a real bus. */
#pragma once

#include "core/dbus_handler.h"
#include "interfaces/exceptions.h"
#include "unit/core/failing_sd_bus.h"
#include "unit/core/legacy_client.h"
#include "unit/core/real_bus.h"

#include <optional>
#include <string>
#include <vector>

namespace tovrel::test {

/** A function of sd-bus, which call of it fails, and what is said then. */
struct FailingStep {
    const char *function;
    int number;
    const char *text;
};

class LegacyMethods : public RealBusFixture {
protected:
    /** What a client's call is answered with while the service runs. */
    template <typename Call>
    Answer answerTo(Call call)
    {
        if (!handler) {
            handler.emplace(&bridge);
            handler->start();
        }
        Answer answer;
        runWhile([&answer, &call] {
            LegacyClient client;
            answer = call(client);
        });
        return answer;
    }

    Answer set(const std::vector<WireItem> &records)
    {
        return answerTo([&records](LegacyClient &client) { return client.setItems(records); });
    }
    Answer set(const WirePublication &config)
    {
        return answerTo([&config](LegacyClient &client) { return client.setPublication(config); });
    }
    Answer getItems()
    {
        return answerTo([](LegacyClient &client) { return client.getItems(); });
    }
    Answer getPublication()
    {
        return answerTo([](LegacyClient &client) { return client.getPublication(); });
    }

    void keepItems()
    {
        EXPECT_CALL(bridge, replaceSubscriptions).WillOnce([this](const SubscriptionStore &store) {
            items = store;
        });
    }
    void keepPublication()
    {
        EXPECT_CALL(bridge, setPublicationConfig).WillOnce([this](const PublicationConfig &config) {
            publication = config;
        });
    }
    void offerItems()
    {
        EXPECT_CALL(testing::Const(bridge), getSubscriptions())
            .WillRepeatedly(::testing::ReturnRef(items));
    }
    void offerPublication()
    {
        EXPECT_CALL(testing::Const(bridge), getPublicationConfig())
            .WillRepeatedly(::testing::ReturnRef(publication));
    }

    std::optional<DbusHandler> handler;
    SubscriptionStore items;
    PublicationConfig publication;
};

} // namespace tovrel::test
