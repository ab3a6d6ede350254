/** Requests about the settings of publication and about event filters. */
#include "support/served_api.h"
#include "unit/api/handler_fixture.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Throw;

namespace tovrel::test {

namespace {

class PublicationHandlers : public HandlerFixture {
protected:
    void expectRefresh()
    {
        EXPECT_CALL(bridge, refreshPublication).WillOnce([] {
            EXPECT_EQ(saves(), 1U) << "what is applied has been saved";
        });
    }
};

std::string settingsAnswer(const std::string &prefix, const std::string &filters = "")
{
    return R"({"data":{"topicPrefix":")" + prefix +
           R"(","customTopicPrefix":"site","appendEventTopic":false,)"
           R"("includeTopicNamespaces":true,"includeSerialNumberInPayload":true,)"
           R"("eventFilter":[)" +
           filters + "]}}";
}

TEST_F(PublicationHandlers, GetTheSettingsWithTheFilters)
{
    publication.setTopicPrefixSetting("custom");
    publication.setCustomTopicPrefix("site");
    publication.setAppendEventTopic(false);
    publication.setIncludeSerialNumberInPayload(true);
    publication.addEventFilter(EventFilterConfig("tns1:A", 1, "all"));
    showStores();
    EXPECT_EQ(get(R"(["publication"])"),
              settingsAnswer("custom",
                             R"({"id":"0","topicFilter":"tns1:A","qos":"QOS_1","retain":"all"})"));
    EXPECT_THAT(log.take(), ElementsAre(LogLine{64, "Setting topic prefix setting to custom"}));
}

TEST_F(PublicationHandlers, StoreNoneAsTheEmptyTextAndAnswerNone)
{
    publication.setCustomTopicPrefix("site");
    publication.setAppendEventTopic(false);
    publication.setIncludeSerialNumberInPayload(true);
    showStores();
    expectRefresh();
    EXPECT_EQ(set(R"(["publication"])", R"({"topicPrefix":"none"})"), DONE);
    EXPECT_EQ(publication.getSettings().topicPrefixSetting, "");
    EXPECT_EQ(get(R"(["publication"])"), settingsAnswer("none"));
}

TEST_F(PublicationHandlers, CannotGetASettingThatTheApiDoesNotKnow)
{
    publication.setTopicPrefixSetting("odd");
    showStores();
    const std::string message =
        "Property topicPrefix: Value odd is not one of default, custom, none";
    EXPECT_EQ(get(R"(["publication"])"), failure(0, message));
    EXPECT_THAT(log.take(), ElementsAre(LogLine{64, "Setting topic prefix setting to odd"},
                                        LogLine{64, "Cannot create response: " + message}));
}

TEST(PublicationHandlersWithoutABridge, GetAndSetNothing)
{
    ServedApi api(OwnedApi(tovrel_v2_create_api(nullptr, nullptr, nullptr)));
    LogCapture log;
    EXPECT_EQ(api.ask(R"({"api":"tovrel","version":2,"operation":"get","path":["publication"]})"),
              failure(0, "root.publication.topicPrefix has not been set"));
    EXPECT_THAT(log.take(), ElementsAre(LogLine{64, "event bridge is null"}));
    EXPECT_EQ(api.ask(R"({"api":"tovrel","version":2,"operation":"set","path":["publication"],)"
                      R"("data":{}})"),
              failure(0, "Internal error"));
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(PublicationHandlers, SetWhatARequestHasInPlaceThenSaveAndApply)
{
    showStores();
    expectRefresh();
    EXPECT_EQ(set(R"(["publication"])",
                  R"({"topicPrefix":"custom","customTopicPrefix":"x","appendEventTopic":false,)"
                  R"("includeTopicNamespaces":false,"includeSerialNumberInPayload":true})"),
              DONE);
    const PublicationSettings &settings = publication.getSettings();
    EXPECT_EQ(settings.topicPrefixSetting, "custom");
    EXPECT_EQ(settings.customTopicPrefix, "x");
    EXPECT_FALSE(settings.appendEventTopic);
    EXPECT_FALSE(settings.includeTopicNamespaces);
    EXPECT_TRUE(settings.includeSerialNumberInPayload);
    EXPECT_EQ(saves(), 1U);
}

TEST_F(PublicationHandlers, KeepWhatARequestDoesNotHave)
{
    publication.setCustomTopicPrefix("kept");
    showStores();
    expectRefresh();
    EXPECT_EQ(set(R"(["publication"])", "{}"), DONE);
    EXPECT_EQ(publication.getSettings().customTopicPrefix, "kept");
    EXPECT_TRUE(publication.getSettings().appendEventTopic);
}

TEST_F(PublicationHandlers, AnswerAMissingConsumerAsAnInternalError)
{
    const EventBridgeException missing("No event consumption handler");
    EXPECT_CALL(testing::Const(bridge), getPublicationConfig()).WillRepeatedly(Throw(missing));
    EXPECT_CALL(bridge, getPublicationConfig()).WillRepeatedly(Throw(missing));
    EXPECT_EQ(get(R"(["publication"])"), failure(0, "Internal error"));
    EXPECT_EQ(set(R"(["publication"])", "{}"), failure(0, "Internal error"));
    EXPECT_EQ(listKeys(R"(["publication","eventFilter"])"), failure(0, "Internal error"));
    EXPECT_EQ(get(R"(["publication","eventFilter","0"])"),
              failure(0, "Cannot get item - internal error."));
    EXPECT_EQ(set(R"(["publication","eventFilter","0"])", "{}"),
              failure(0, "Cannot set item - internal error."));
    EXPECT_EQ(add(R"(["publication","eventFilter"])", R"({"topicFilter":"a"})"),
              failure(0, "Could not create a new event-to-MQTT configuration."));
    EXPECT_EQ(remove(R"(["publication","eventFilter","0"])"),
              failure(0, "Cannot remove item - internal error."));
}

class EventFilterHandlers : public PublicationHandlers {
protected:
    EventFilterHandlers() { publication.addEventFilter(EventFilterConfig("tns1:A", 1, "all")); }

    const EventFilterConfig &first() { return publication.getEventFilter("0"); }
};

TEST_F(EventFilterHandlers, ListAndGetTheFilters)
{
    publication.setEventFilter("10", EventFilterConfig("b", 9, "none"));
    publication.setEventFilter("2", EventFilterConfig("", 0, "property"));
    showStores();
    EXPECT_EQ(listKeys(R"(["publication","eventFilter"])"),
              R"({"data":[{"id":"0","topicFilter":"tns1:A","qos":"QOS_1","retain":"all"},)"
              R"({"id":"10","topicFilter":"b","qos":"QOS_2","retain":"none"},)"
              R"({"id":"2","topicFilter":"","qos":"QOS_0","retain":"property"}]})");
}

TEST_F(EventFilterHandlers, GetNoFilterThatIsNotThere)
{
    showStores();
    EXPECT_EQ(get(R"(["publication","eventFilter","7"])"),
              failure(2, "Cannot get item - it does not exist."));
}

TEST_F(EventFilterHandlers, SetAFilterInPlaceWithItsLevelsBehindTheFormerOnes)
{
    showStores();
    expectRefresh();
    EXPECT_EQ(set(R"(["publication","eventFilter","0"])",
                  R"({"topicFilter":"tns1:B//.","retain":"none"})"),
              DONE);
    EXPECT_EQ(first().getTopicFilter(), "tns1:B//.");
    EXPECT_EQ(first().getTopicSegments().size(), 2U);
    EXPECT_TRUE(first().getMatchSubtopics());
    EXPECT_EQ(first().getRetainPolicy(), RetainPolicy::NONE);
    EXPECT_EQ(first().getQos(), 1);
    EXPECT_EQ(saves(), 1U);
}

TEST_F(EventFilterHandlers, SetTheQosToZeroWhateverTheRequestSays)
{
    showStores();
    expectRefresh();
    EXPECT_EQ(set(R"(["publication","eventFilter","0"])", R"({"qos":"QOS_2"})"), DONE);
    EXPECT_EQ(first().getQos(), 0);
}

TEST_F(EventFilterHandlers, SetNoFilterThatIsNotThere)
{
    showStores();
    EXPECT_EQ(set(R"(["publication","eventFilter","7"])", R"({"qos":"QOS_2"})"),
              failure(2, "Cannot set item - it does not exist."));
}

TEST_F(EventFilterHandlers, RefuseValuesThatThePropertyDoesNotHave)
{
    EXPECT_EQ(set(R"(["publication","eventFilter","0"])", R"({"retain":"sometimes"})"),
              failure(5, "Property retain: Value sometimes is not one of none, property, all"));
    EXPECT_EQ(add(R"(["publication","eventFilter"])", R"({"topicFilter":"a","qos":"2"})"),
              failure(5, "Property qos: Value 2 is not one of QOS_0, QOS_1, QOS_2"));
}

TEST_F(EventFilterHandlers, AddAFilterWithDefaultsSaveAndApply)
{
    showStores();
    expectRefresh();
    EXPECT_EQ(add(R"(["publication","eventFilter"])", R"({"topicFilter":"n"})"),
              R"({"data":{"id":"1","topicFilter":"n","qos":"QOS_0","retain":"property"}})");
    EXPECT_EQ(saves(), 1U);
}

TEST_F(EventFilterHandlers, AddAFilterWithItsQos)
{
    showStores();
    expectRefresh();
    add(R"(["publication","eventFilter"])", R"({"topicFilter":"n","qos":"QOS_2","retain":"all"})");
    EXPECT_EQ(publication.getEventFilter("1").getQos(), 2);
    EXPECT_EQ(publication.getEventFilter("1").getRetainPolicy(), RetainPolicy::ALL);
}

TEST_F(EventFilterHandlers, AddThe256thFilterAndNoMore)
{
    while (publication.getEventFilters().size() < 255) {
        publication.addEventFilter(EventFilterConfig("x", 0, "none"));
    }
    showStores();
    expectRefresh();
    EXPECT_NE(add(R"(["publication","eventFilter"])", R"({"topicFilter":"n"})").find("\"255\""),
              std::string::npos);
    EXPECT_EQ(add(R"(["publication","eventFilter"])", R"({"topicFilter":"n"})"),
              failure(7, "Too many event-to-MQTT configurations"));
}

TEST_F(EventFilterHandlers, AnswerAFailureToApplyAnAddedFilterAsAnInternalError)
{
    showStores();
    EXPECT_CALL(bridge, refreshPublication).WillOnce(Throw(std::runtime_error("broken")));
    EXPECT_EQ(add(R"(["publication","eventFilter"])", R"({"topicFilter":"n"})"),
              failure(0, "Could not create a new event-to-MQTT configuration."));
}

TEST_F(EventFilterHandlers, RemoveAFilterSaveAndApply)
{
    showStores();
    expectRefresh();
    EXPECT_EQ(remove(R"(["publication","eventFilter","0"])"), DONE);
    EXPECT_TRUE(publication.getEventFilters().empty());
    EXPECT_EQ(saves(), 1U);
    EXPECT_THAT(log.take(), ElementsAre(LogLine{64, "Trying to remove filter with id: 0"}));
}

TEST_F(EventFilterHandlers, RemoveNoFilterThatIsNotThere)
{
    showStores();
    EXPECT_EQ(remove(R"(["publication","eventFilter","7"])"),
              failure(2, "Cannot remove item - it does not exist."));
    EXPECT_EQ(saves(), 0U);
}

} // namespace

} // namespace tovrel::test
