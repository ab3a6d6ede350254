/** The method of the configuration API, called over a real bus; the library behind it is faked. */
#include "core/bus_fields.h"
#include "core/dbus_handler.h"
#include "core/reply_limit.h"
#include "fakes/call_record.h"
#include "fakes/fake_dbh.h"
#include "interfaces/sd_bus_handles.h"
#include "unit/core/failing_sd_bus.h"
#include "unit/core/legacy_fixture.h"
#include "unit/core/real_bus.h"

#include <optional>
#include <string>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace tovrel::test {

namespace {

class HandleRequest : public RealBusFixture {
protected:
    HandleRequest() { resetFakeDbh(); }

    /** The response to a request, or the name and text of the error. */
    std::string answerTo(const std::string &request)
    {
        DbusHandler handler(&bridge);
        handler.start();
        std::string answer;
        runWhile([&answer, &request] { answer = call(request); });
        return answer;
    }

private:
    static std::string call(const std::string &request)
    {
        const auto client = connect();
        sd_bus_error error = {};
        BusMessage reply;
        std::string answer;
        if (sd_bus_call_method(client.get(), "com.norq.Tovrel1", "/com/norq/Tovrel1",
                               "com.norq.Mirel.Backend1", "HandleRequest", &error,
                               OutParameter(reply), "s", request.c_str()) < 0) {
            answer = std::string(error.name) + ": " + error.message;
        } else {
            checked(readFields(reply.get(), answer), "response");
        }
        sd_bus_error_free(&error);
        return answer;
    }
};

TEST_F(HandleRequest, CarriesTextInAndOut)
{
    fakeDbh().answer = [](const std::string &request) { return "answer to " + request; };
    EXPECT_EQ(answerTo("{\"caf\u00E9\"}"), "answer to {\"caf\u00E9\"}");
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(HandleRequest, ARequestThatCannotBeProcessedIsAnError)
{
    EXPECT_EQ(answerTo("{}"), "com.norq.Tovrel1.InternalError: Could not process request");
    EXPECT_THAT(log.take(),
                ElementsAre(LogLine{256, "Could not process request: scripted failure "}));
    EXPECT_EQ(fakeDbh().livingErrors, 0);
}

TEST_F(HandleRequest, AnAnswerThatTheBusWouldNotCarryIsAnError)
{
    fakeDbh().answer = [](const std::string &) { return std::string(MOST_REPLY_BYTES + 1, 'a'); };
    EXPECT_EQ(answerTo("{}"), "com.norq.Tovrel1.InternalError: Could not process request");
    EXPECT_THAT(log.take(),
                ElementsAre(LogLine{256, "Too large for the bus: a response of 25165825 bytes"}));
}

TEST_F(HandleRequest, AnUnreadableRequestReachesTheLibraryWithoutText)
{
    fakeDbh().answer = [](const std::string &request) { return "answer to " + request; };
    failSdBus("sd_bus_message_read", -EBADMSG);
    EXPECT_EQ(answerTo("{}"), "answer to (null)");
    EXPECT_THAT(log.take(), ElementsAre(LogLine{256, std::string("Could read input message: ") +
                                                         g_strerror(EBADMSG) + " "}));
}

TEST_F(HandleRequest, AnApiThatCannotBeSetUpLeavesTheServiceAtWork)
{
    fakeDbh().additionFailure = "not that one";
    EXPECT_EQ(answerTo("{}"), "com.norq.Tovrel1.InternalError: Could not process request");
    EXPECT_EQ(log.take().front(),
              (LogLine{256, "Could not setup Mirel API handling: not that one"}));
}

TEST_F(LegacyMethods, AreServedAlsoWhenTheApiCannotBeSetUp)
{
    resetFakeDbh();
    fakeDbh().additionFailure = "not that one";
    keepItems();
    offerItems();
    keepPublication();
    offerPublication();
    const WireItem item{"a", true, 2, false};
    WirePublication config;
    config.filters = {{"tns1:A", "all", 1}};
    EXPECT_EQ(set({item}), status(0));
    EXPECT_EQ(set(config), status(0));

    Answer listed;
    listed.items = {item};
    EXPECT_EQ(getItems(), listed);
    listed = {};
    listed.publication = config;
    EXPECT_EQ(getPublication(), listed);
    EXPECT_THAT(log.take(),
                ElementsAre(LogLine{256, "Could not setup Mirel API handling: not that one"}));
}

TEST_F(HandleRequest, AnApiThatCannotBeCreatedLeavesTheServiceAtWork)
{
    fakeDbh().creationFailure = "no description";
    fakeDbh().answer = [](const std::string &) { return "unknown API"; };
    EXPECT_EQ(answerTo("{}"), "unknown API");
    EXPECT_THAT(log.take(),
                ElementsAre(LogLine{256, "Could not setup Mirel API handling: no description"}));
    EXPECT_EQ(fakeDbh().livingErrors, 0);
}

TEST_F(HandleRequest, TheApiIsMadeForTheBridgeAndFreedBehindItsHandler)
{
    {
        const DbusHandler handler(&bridge);
        EXPECT_EQ(fakeDbh().userData, &bridge);
        resetCalls();
    }
    EXPECT_THAT(recordedCalls(), ElementsAre("dbh_request_handler_free", "dbh_delete_api"));
    EXPECT_EQ(fakeDbh().livingApis, 0);
    EXPECT_EQ(fakeDbh().livingHandlers, 0);
}

} // namespace

} // namespace tovrel::test
