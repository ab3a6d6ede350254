/** The frames of the legacy methods, around a handler that is a mock or missing. */
#include "core/bus_methods.h"
#include "fakes/mock_dbus_handler.h"
#include "interfaces/exceptions.h"
#include "unit/core/legacy_client.h"
#include "unit/core/real_bus.h"

#include <stdexcept>

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Return;
using ::testing::Throw;

namespace tovrel::test {

namespace {

class BusMethods : public RealBusFixture {
protected:
    /** What a call is answered with where the table stands on a bus with this user data. */
    template <typename Call>
    Answer answerTo(BaseDbusHandler *userData, Call call)
    {
        const BusNeighbour service([userData](sd_bus *own) {
            checked(sd_bus_add_object_vtable(own, nullptr, "/com/norq/Tovrel1", "com.norq.Tovrel1",
                                             LEGACY_METHODS.data(), userData),
                    "table");
            checked(sd_bus_request_name(own, "com.norq.Tovrel1", 0), "name");
        });
        LegacyClient client;
        return call(client);
    }

    ::testing::StrictMock<MockDbusHandler> handler;
};

Answer getItems(LegacyClient &client)
{
    return client.getItems();
}

Answer getPublication(LegacyClient &client)
{
    return client.getPublication();
}

TEST_F(BusMethods, WithoutAHandlerItemsCannotBeReplaced)
{
    EXPECT_EQ(answerTo(nullptr, [](LegacyClient &client) { return client.setItems({}); }),
              internalError("No handler"));
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(BusMethods, WithoutAHandlerItemsCannotBeListed)
{
    EXPECT_EQ(answerTo(nullptr, getItems), internalError("No handler"));
    EXPECT_THAT(log.take(),
                ElementsAre(LogLine{256, "GetMQTTToEventConfig: Could not reply - no handler"}));
}

TEST_F(BusMethods, WithoutAHandlerThePublicationIsNotReplaced)
{
    EXPECT_EQ(answerTo(nullptr, [](LegacyClient &client) { return client.setPublication({}); }),
              status(-1));
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(BusMethods, WithoutAHandlerTheCallerOfTheLastMethodIsLeftWithoutAnAnswer)
{
    const Answer answer = answerTo(nullptr, [](LegacyClient &client) {
        client.waitAtMost(500'000);
        return client.getPublication();
    });
    EXPECT_EQ(answer.errorName, "org.freedesktop.DBus.Error.Timeout");
    EXPECT_THAT(log.take(),
                ElementsAre(LogLine{256, "GetEventToMQTTConfig: Could not reply - no handler"}));
}

TEST_F(BusMethods, TheStatusOfTheHandlerIsTheReply)
{
    EXPECT_CALL(handler, handleSetEventToMQTTConfig).WillOnce(Return(-74));
    EXPECT_EQ(answerTo(&handler, [](LegacyClient &client) { return client.setPublication({}); }),
              status(-74));
}

TEST_F(BusMethods, AnExceptionOfTheLastMethodIsAnErrorThatIsNotLoggedAgain)
{
    EXPECT_CALL(handler, fillEventToMQTTConfigReply)
        .WillOnce(Throw(SdBusException("Error constructing reply")));
    EXPECT_EQ(answerTo(&handler, getPublication), internalError("Error constructing reply"));
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(BusMethods, AnyRuntimeErrorOfListingItemsIsAnError)
{
    EXPECT_CALL(handler, fillMQTTToEventConfigReply).WillOnce(Throw(std::runtime_error("caf\xE9")));
    EXPECT_EQ(answerTo(&handler, getItems), internalError("caf\uFFFD"));
    EXPECT_THAT(log.take(), ElementsAre(LogLine{256, "GetMQTTToEventConfig Error: caf\xE9"}));
}

TEST_F(BusMethods, AnErrorReachesTheCallerWithoutTheCharactersThatTheBusDoesNotCarry)
{
    EXPECT_CALL(handler, fillMQTTToEventConfigReply)
        .WillOnce(Throw(std::runtime_error("a\uFDD0b\uFFFEc\U0010FFFF")));
    EXPECT_EQ(answerTo(&handler, getItems), internalError("a\uFFFDb\uFFFDc\uFFFD"));
}

TEST_F(BusMethods, AnyLocalClientMayCallThem)
{
    for (const auto &method :
         {LEGACY_METHODS[1], LEGACY_METHODS[2], LEGACY_METHODS[3], LEGACY_METHODS[4]}) {
        EXPECT_EQ(method.flags, SD_BUS_VTABLE_UNPRIVILEGED) << method.x.method.member;
    }
}

} // namespace

} // namespace tovrel::test
