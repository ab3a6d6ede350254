/** What is taken from an event, and in which order it is read. */
#include "unit/events/translation_fixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace tovrel::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using EventExtractionTest = EventTranslationTest;

} // namespace

TEST_F(EventExtractionTest, EverythingNeededIsTakenFromAnEvent)
{
    auto event = withItem(exampleEvent(), {"channel", "2", std::nullopt, {"onvif-key"}});
    event.json = "{\"a\":1}";
    const EventContainer container = extracted(event);
    EXPECT_TRUE(container.isProperty);
    EXPECT_THAT(container.topicLevels,
                ElementsAre(Pair("Device", "onvif"), Pair("Beta", "norq"), Pair("Gamma", "norq")));
    EXPECT_THAT(container.sources, ElementsAre(Pair("index", "1")));
    EXPECT_THAT(container.keys, ElementsAre(Pair("channel", "2")));
    EXPECT_EQ(container.payload, "{\"a\":1}");
}

TEST_F(EventExtractionTest, AnEmptyEventIsExtractedToo)
{
    const EventContainer container = extracted({});
    EXPECT_FALSE(container.isProperty);
    EXPECT_THAT(container.topicLevels, IsEmpty());
    EXPECT_THAT(container.sources, IsEmpty());
    EXPECT_THAT(container.keys, IsEmpty());
}

TEST_F(EventExtractionTest, OnlyTheFirst100LevelsAreUsed)
{
    FakeReceivedEvent event;
    std::string topic = "event";
    for (int level = 0; level < 102; ++level) {
        event.items.push_back({"topic" + std::to_string(level), std::to_string(level), "tns1"});
        topic += level < 100 ? "/" + std::to_string(level) : "";
    }
    const EventContainer container = extracted(event);
    EXPECT_EQ(container.topicLevels.size(), 100U);
    PublicationSettings settings;
    settings.includeTopicNamespaces = false;
    EXPECT_EQ(mqttTopicFor(container, settings).topic, topic);
}

TEST_F(EventExtractionTest, LevelsThatAreLeftOutCountAmongThe100)
{
    FakeReceivedEvent event;
    for (int level = 0; level < 102; ++level) {
        event.items.push_back(
            {"topic" + std::to_string(level), std::to_string(level), level == 7 ? "" : "tns1"});
    }
    const EventContainer container = extracted(event);
    EXPECT_EQ(container.topicLevels.size(), 99U);
    EXPECT_EQ(container.topicLevels.back().first, "99");
}

TEST_F(EventExtractionTest, TheFirstOfTwoItemsWithOneNameWins)
{
    const EventContainer container =
        extracted({.items = {{"a", "first", std::nullopt, {"onvif-source", "onvif-key"}},
                             {"a", "second", std::nullopt, {"onvif-source", "onvif-key"}}}});
    EXPECT_THAT(container.sources, ElementsAre(Pair("a", "first")));
    EXPECT_THAT(container.keys, ElementsAre(Pair("a", "first")));
}

TEST_F(EventExtractionTest, ThePayloadIsRenderedWithTheShortNamesOfTheNamespaces)
{
    extracted(exampleEvent());
    EXPECT_EQ(recordedCalls({"event_get_json"}),
              Calls{"event_get_json onvif=onvif norq=norq serial=(none)"});
}

TEST_F(EventExtractionTest, ThePayloadCarriesTheSerialNumberWhenThereIsOneToCarry)
{
    extracted(exampleEvent(), "SN1");
    EXPECT_EQ(recordedCalls({"event_get_json"}),
              Calls{"event_get_json onvif=onvif norq=norq serial=SN1"});
}

TEST_F(EventExtractionTest, TheEventIsReadInAGivenOrderAndNothingBehindTheFirstMissingLevel)
{
    extracted({.items = {{"topic0", "A", "tns1"},
                         {"topic2", "C", "tns1"},
                         {"index", "1", std::nullopt, {"onvif-source"}}}},
              "SN1");
    EXPECT_EQ(recordedCalls(), (Calls{"event_is_property",
                                      "event_get_value topic0",
                                      "event_get_name_space topic0",
                                      "event_get_value topic1",
                                      "event_get_key_count",
                                      "event_get_key_at 0",
                                      "event_get_value_at 0",
                                      "event_get_tags_at 0",
                                      "event_get_key_at 1",
                                      "event_get_value_at 1",
                                      "event_get_tags_at 1",
                                      "event_get_key_at 2",
                                      "event_get_value_at 2",
                                      "event_get_tags_at 2",
                                      "json_options_new",
                                      "json_options_set_onvif_namespace onvif",
                                      "json_options_set_norq_namespace norq",
                                      "json_options_set_serialnumber SN1",
                                      "event_get_json onvif=onvif norq=norq serial=SN1",
                                      "json_options_free"}));
}

TEST_F(EventExtractionTest, WithoutASerialNumberTheOptionIsNotSet)
{
    extracted({});
    EXPECT_THAT(recordedCalls({"json_options_set_serialnumber"}), IsEmpty());
}

TEST_F(EventExtractionTest, APayloadOf64KiBIsTakenWhole)
{
    FakeReceivedEvent event;
    event.json = std::string(65536, 'x');
    EXPECT_EQ(extracted(event).payload, *event.json);
}

TEST_F(EventExtractionTest, AnEventWithoutAJsonRenderingRaisesTheStandardError)
{
    FakeReceivedEvent event = exampleEvent();
    event.json.reset();
    try {
        extracted(event);
        ADD_FAILURE() << "nothing was thrown";
    } catch (const std::logic_error &error) {
        EXPECT_STREQ(error.what(), "basic_string: construction from null is not valid");
    }
}

} // namespace tovrel::test
