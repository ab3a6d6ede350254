/** The legacy methods that replace and list the event-to-MQTT configuration. */
#include "unit/core/legacy_fixture.h"
#include "unit/events/broken_retain_policy.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Throw;

namespace tovrel::test {

namespace {

WirePublication withFilters(std::vector<WireFilter> filters)
{
    WirePublication config;
    config.filters = std::move(filters);
    return config;
}

TEST_F(LegacyMethods, ANewPublicationConfigurationReplacesEverything)
{
    keepPublication();
    EXPECT_EQ(
        set(WirePublication{
            "custom", "site/7", false, false, true, {{"tns1:A//.", "all", 2}, {"", "none", -7}}}),
        status(0));
    const PublicationSettings &settings = publication.getSettings();
    EXPECT_EQ(settings.topicPrefixSetting, "custom");
    EXPECT_EQ(settings.customTopicPrefix, "site/7");
    EXPECT_FALSE(settings.appendEventTopic);
    EXPECT_FALSE(settings.includeTopicNamespaces);
    EXPECT_TRUE(settings.includeSerialNumberInPayload);
    ASSERT_EQ(publication.getEventFilters().size(), 2U);
    const EventFilterConfig &first = publication.getEventFilter("0");
    EXPECT_EQ(first.getTopicFilter(), "tns1:A//.");
    EXPECT_EQ(first.getRetainPolicy(), RetainPolicy::ALL);
    EXPECT_EQ(first.getQos(), 2);
    EXPECT_EQ(publication.getEventFilter("1").getTopicFilter(), "");
    EXPECT_EQ(publication.getEventFilter("1").getQos(), -7);
}

TEST_F(LegacyMethods, AnUnknownRetainTextIsTakenAsProperty)
{
    keepPublication();
    EXPECT_EQ(set(withFilters({{"a", "sometimes", 0}})), status(0));
    EXPECT_EQ(publication.getEventFilter("0").getRetainPolicy(), RetainPolicy::PROPERTY);
    EXPECT_THAT(log.take(), ElementsAre(LogLine{256, "Invalid retain policy using 'property'"}));
}

TEST_F(LegacyMethods, APublicationThatTheBridgeRejectsIsNotApplied)
{
    EXPECT_CALL(bridge, setPublicationConfig)
        .WillOnce(Throw(EventBridgeException("No event consumption handler")));
    EXPECT_EQ(set(WirePublication()), status(-1));
    EXPECT_THAT(log.take(), ElementsAre(LogLine{256, "Error: No event consumption handler"}));
}

TEST_F(LegacyMethods, AStandardExceptionOfTheBridgeIsNotAppliedEither)
{
    EXPECT_CALL(bridge, setPublicationConfig).WillOnce(Throw(std::bad_alloc()));
    EXPECT_EQ(set(WirePublication()), status(-1));
}

TEST_F(LegacyMethods, APublicationWithoutABridgeIsReadAndDropped)
{
    handler.emplace(nullptr);
    handler->start();
    EXPECT_EQ(set(withFilters({{"a", "none", 0}})), status(0));
}

TEST_F(LegacyMethods, UnreadableSettingsAreTheStatusAndNothingIsApplied)
{
    failSdBus("sd_bus_message_read", -EBADMSG);
    EXPECT_EQ(set(WirePublication()), status(-EBADMSG));
    EXPECT_THAT(log.take(), ElementsAre(LogLine{256, std::string("Could not parse event-to-MQTT "
                                                                 "configuration: ") +
                                                         g_strerror(EBADMSG)}));
}

TEST_F(LegacyMethods, AnUnreadableFilterIsTheStatusAndWhatWasReadIsApplied)
{
    keepPublication();
    failSdBus("sd_bus_message_read", -EBADMSG, 3);
    EXPECT_EQ(set(withFilters({{"a", "none", 0}, {"b", "none", 0}})), status(-EBADMSG));
    EXPECT_EQ(publication.getEventFilters().size(), 1U);
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(LegacyMethods, FiltersThatCannotBeEnteredAreTheStatusAndTheSettingsAreApplied)
{
    keepPublication();
    failSdBus("sd_bus_message_enter_container", -EBADMSG);
    WirePublication wanted;
    wanted.appendEventTopic = false;
    const Answer answer = set(wanted);
    ASSERT_TRUE(answer.status);
    EXPECT_LT(*answer.status, 0);
    EXPECT_FALSE(publication.getSettings().appendEventTopic);
    EXPECT_TRUE(publication.getEventFilters().empty());
    EXPECT_THAT(log.take(), ElementsAre(LogLine{256, std::string("Failed to open DBus array: ") +
                                                         g_strerror(EBADMSG)}));
}

TEST_F(LegacyMethods, MoreThan256FiltersEndTheMainLoopAndApplyNothing)
{
    Answer answer;
    const auto call = [&] {
        answer = set(withFilters(std::vector<WireFilter>(257, {"a", "none", 0})));
    };
    EXPECT_THROW(call(), ConfigException);
    EXPECT_FALSE(answer.status);
}

TEST_F(LegacyMethods, TheCallerOfAMethodThatEndsTheMainLoopIsAnswered)
{
    handler.emplace(&bridge);
    handler->start();
    Answer answer;
    EXPECT_THROW(runWhile([&answer] {
                     LegacyClient client;
                     answer = client.setPublication(
                         withFilters(std::vector<WireFilter>(257, {"a", "none", 0})));
                 }),
                 ConfigException);
    EXPECT_EQ(answer.errorName, "org.freedesktop.DBus.Error.IOError");
}

// listing the event-to-MQTT configuration

TEST_F(LegacyMethods, ListsThePublicationConfigurationWithItsFiltersInTheOrderOfIdsAsTexts)
{
    offerPublication();
    publication.setTopicPrefixSetting("none");
    publication.setCustomTopicPrefix("x");
    publication.setAppendEventTopic(false);
    publication.setIncludeTopicNamespaces(false);
    publication.setIncludeSerialNumberInPayload(true);
    Answer expected;
    expected.publication = {"none", "x", false, false, true, {}};
    for (int number = 0; number < 12; ++number) {
        publication.addEventFilter(
            EventFilterConfig(std::to_string(number).c_str(), number, "all"));
    }
    for (const int number : {0, 1, 10, 11, 2, 3, 4, 5, 6, 7, 8, 9}) {
        expected.publication.filters.push_back({std::to_string(number), "all", number});
    }
    EXPECT_EQ(getPublication(), expected);
}

TEST_F(LegacyMethods, EveryStepOfListingThePublicationMayFail)
{
    offerPublication();
    publication.addEventFilter(EventFilterConfig("a", 0, "none"));
    for (const auto &[function, number, text] :
         {FailingStep{"sd_bus_message_append", 1, "Error appending status code: "},
          FailingStep{"sd_bus_message_open_container", 1, "Error opening reply container: "},
          FailingStep{"sd_bus_message_append", 2, "Error appending status code: "},
          FailingStep{"sd_bus_message_close_container", 1, "Error closing reply container: "}}) {
        failSdBus(function, -ENOMEM, number);
        EXPECT_EQ(getPublication(), internalError("Error constructing reply"));
        EXPECT_THAT(log.take(), ElementsAre(LogLine{256, text + std::string(g_strerror(ENOMEM))}));
        EXPECT_FALSE(sdBusFailurePending());
    }
}

TEST_F(LegacyMethods, AReplyWithThePublicationThatCannotBeMadeIsAnError)
{
    failSdBus("sd_bus_message_new_method_return", -ENOMEM);
    EXPECT_EQ(getPublication(), internalError("Could not create reply"));
    EXPECT_THAT(log.take(), ElementsAre(LogLine{256, std::string("Error creating reply: ") +
                                                         g_strerror(ENOMEM)}));
}

TEST_F(LegacyMethods, ThePublicationCannotBeListedWithoutABridge)
{
    handler.emplace(nullptr);
    handler->start();
    EXPECT_EQ(getPublication(), internalError("Error creating reply"));
    EXPECT_THAT(log.take(), ElementsAre(LogLine{256, "Can not get event-to-MQTT configurations"}));
}

TEST_F(LegacyMethods, AMissingConsumerEndsTheMainLoopWhenThePublicationIsListed)
{
    EXPECT_CALL(testing::Const(bridge), getPublicationConfig())
        .WillOnce(Throw(EventBridgeException("No event consumption handler")));
    EXPECT_THROW(getPublication(), EventBridgeException);
}

TEST_F(LegacyMethods, ABrokenPolicyEndsTheMainLoopWhenThePublicationIsListedAndTheCallerIsAnswered)
{
    offerPublication();
    publication.addEventFilter(EventFilterConfig("a", 0, "none"));
    breakRetainPolicy(publication.getEventFilter("0"), static_cast<RetainPolicy>(3));
    handler.emplace(&bridge);
    handler->start();
    Answer answer;
    EXPECT_THROW(runWhile([&answer] {
                     LegacyClient client;
                     answer = client.getPublication();
                 }),
                 ConfigException);
    EXPECT_EQ(answer.errorName, "org.freedesktop.DBus.Error.IOError");
    EXPECT_THAT(log.take(), IsEmpty());
}

} // namespace

} // namespace tovrel::test
