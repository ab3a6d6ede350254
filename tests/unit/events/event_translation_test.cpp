#include "events/event_translation.h"

#include "fakes/call_record.h"
#include "fakes/fake_event_consumer.h"
#include "interfaces/c_handles.h"
#include "unit/mqtt/case_name.h"
#include "unit/mqtt/log_lines.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace tovrel::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using Event = CHandle<event_t, event_free>;

FakeReceivedEvent exampleEvent()
{
    return {.items = {{"topic0", "Device", "tns1"},
                      {"topic1", "Beta", "tnsnorq"},
                      {"topic2", "Gamma", "tnsnorq"},
                      {"index", "1", std::nullopt, {"onvif-source"}},
                      {"state", "1"}},
            .isProperty = true};
}

/** A container with what is taken from an event. */
EventContainer extracted(const FakeReceivedEvent &received, const char *serialNumber = nullptr)
{
    const Event event(newFakeEvent(received));
    EventContainer container;
    extractEvent(container, event.get(), serialNumber);
    return container;
}

FakeReceivedEvent withItem(FakeReceivedEvent event, const FakeItem &item)
{
    event.items.push_back(item);
    return event;
}

FakeReceivedEvent withoutItem(FakeReceivedEvent event, const std::string &name)
{
    std::erase_if(event.items, [&](const FakeItem &item) { return item.name == name; });
    return event;
}

PublicationSettings settings(const char *prefixSetting, const char *customPrefix,
                             bool appendEventTopic, bool includeNamespaces)
{
    return {.topicPrefixSetting = prefixSetting,
            .customTopicPrefix = customPrefix,
            .appendEventTopic = appendEventTopic,
            .includeTopicNamespaces = includeNamespaces};
}

class EventTranslationTest : public testing::Test {
protected:
    void SetUp() override
    {
        resetCalls();
        resetFakeEventConsumer();
    }
    void TearDown() override { EXPECT_EQ(fakeLivingObjects(), FakeLivingObjects()); }

    LogCapture log;
};

struct TopicCase : NamedCase {
    PublicationSettings settings;
    FakeReceivedEvent event;
    std::string topic;
    bool useDeviceTopicPrefix;
};

class EventTopic : public EventTranslationTest, public testing::WithParamInterface<TopicCase> {};

const PublicationSettings PLAIN = settings("default", "", true, false);
const PublicationSettings WITH_NAMESPACES = settings("default", "", true, true);

} // namespace

TEST_P(EventTopic, IsMadeOfSettingsAndEvent)
{
    const MqttTopic made = mqttTopicFor(extracted(GetParam().event), GetParam().settings);
    EXPECT_EQ(made.topic, GetParam().topic);
    EXPECT_EQ(made.useDeviceTopicPrefix, GetParam().useDeviceTopicPrefix);
}

INSTANTIATE_TEST_SUITE_P(
    Settings, EventTopic,
    testing::Values(TopicCase{{"DefaultWithNamespaces"},
                              WITH_NAMESPACES,
                              exampleEvent(),
                              "event/tns:onvif/Device/tns:norq/Beta/Gamma/$source/index/1",
                              true},
                    TopicCase{{"DefaultWithoutNamespaces"},
                              PLAIN,
                              exampleEvent(),
                              "event/Device/Beta/Gamma/$source/index/1",
                              true},
                    TopicCase{{"CustomPrefix"},
                              settings("custom", "site/unit1", true, false),
                              exampleEvent(),
                              "site/unit1/Device/Beta/Gamma/$source/index/1",
                              false},
                    TopicCase{{"CustomPrefixAlone"},
                              settings("custom", "site/unit1", false, true),
                              exampleEvent(),
                              "site/unit1",
                              false},
                    TopicCase{{"EmptyCustomPrefixAlone"},
                              settings("custom", "", false, false),
                              exampleEvent(),
                              "event",
                              true},
                    TopicCase{{"EmptyCustomPrefix"},
                              settings("custom", "", true, false),
                              exampleEvent(),
                              "event/Device/Beta/Gamma/$source/index/1",
                              true},
                    TopicCase{{"NoneIsDefault"},
                              settings("none", "", true, false),
                              exampleEvent(),
                              "event/Device/Beta/Gamma/$source/index/1",
                              true},
                    TopicCase{{"NoneIgnoresTheCustomPrefix"},
                              settings("none", "site", true, false),
                              exampleEvent(),
                              "event/Device/Beta/Gamma/$source/index/1",
                              true},
                    TopicCase{{"DefaultIgnoresTheCustomPrefix"},
                              settings("default", "site", false, false),
                              exampleEvent(),
                              "event",
                              true},
                    TopicCase{{"OtherCaseIsDefault"},
                              settings("Custom", "site", false, false),
                              exampleEvent(),
                              "event",
                              true},
                    TopicCase{{"EmptySettingIsDefault"},
                              settings("", "site", false, false),
                              exampleEvent(),
                              "event",
                              true},
                    TopicCase{{"TrailingBlankIsDefault"},
                              settings("custom ", "site", false, false),
                              exampleEvent(),
                              "event",
                              true},
                    TopicCase{{"CustomPrefixIsNotChanged"},
                              settings("custom", "/a//#/", true, false),
                              exampleEvent(),
                              "/a//#//Device/Beta/Gamma/$source/index/1",
                              false}),
    CaseName());

INSTANTIATE_TEST_SUITE_P(
    Levels, EventTopic,
    testing::Values(
        TopicCase{{"WithoutLevels"}, PLAIN, {}, "event/", true},
        TopicCase{{"WithoutLevelsButWithSource"},
                  PLAIN,
                  {.items = {{"a", "b", std::nullopt, {"onvif-source"}}}},
                  "event//$source/a/b",
                  true},
        TopicCase{{"LevelWithoutNamespaceIsLeftOut"},
                  WITH_NAMESPACES,
                  withItem(exampleEvent(), {"topic3", "Delta"}),
                  "event/tns:onvif/Device/tns:norq/Beta/Gamma/$source/index/1",
                  true},
        TopicCase{{"LevelWithEmptyNamespaceIsLeftOut"},
                  PLAIN,
                  withItem(exampleEvent(), {"topic3", "Delta", ""}),
                  "event/Device/Beta/Gamma/$source/index/1",
                  true},
        TopicCase{{"LevelsGoOnAfterOneThatIsLeftOut"},
                  WITH_NAMESPACES,
                  {.items = {{"topic0", "A", "tns1"}, {"topic1", "B"}, {"topic2", "C", "tns1"}}},
                  "event/tns:onvif/A/C",
                  true},
        TopicCase{{"LevelsStopAtTheFirstGap"},
                  PLAIN,
                  withoutItem(exampleEvent(), "topic1"),
                  "event/Device/$source/index/1",
                  true},
        TopicCase{{"WithoutTopic0ThereIsNoTopic"},
                  PLAIN,
                  withoutItem(exampleEvent(), "topic0"),
                  "event//$source/index/1",
                  true},
        TopicCase{{"OtherNamespacesAreKept"},
                  WITH_NAMESPACES,
                  {.items = {{"topic0", "A", "tnsfoo"}, {"topic1", "B", "tns10"}}},
                  "event/tns:tnsfoo/A/tns:tns10/B",
                  true},
        TopicCase{{"ShortNamesAreKept"},
                  WITH_NAMESPACES,
                  {.items = {{"topic0", "A", "onvif"}, {"topic1", "B", "tns1"}}},
                  "event/tns:onvif/A/B",
                  true},
        TopicCase{{"NamespaceComesBack"},
                  WITH_NAMESPACES,
                  {.items = {{"topic0", "A", "tns1"},
                             {"topic1", "B", "tnsnorq"},
                             {"topic2", "C", "tns1"}}},
                  "event/tns:onvif/A/tns:norq/B/tns:onvif/C",
                  true},
        TopicCase{{"EmptyLevelText"},
                  PLAIN,
                  {.items = {{"topic0", "", "tns1"}, {"topic1", "B", "tns1"}}},
                  "event//B",
                  true},
        TopicCase{{"CharactersAreNotChecked"},
                  PLAIN,
                  {.items = {{"topic0", "#/+ \xF0\x9F\x98\x80", "tns1"}}},
                  "event/#/+ \xF0\x9F\x98\x80",
                  true}),
    CaseName());

INSTANTIATE_TEST_SUITE_P(
    Items, EventTopic,
    testing::Values(
        TopicCase{{"KeysFollowSources"},
                  PLAIN,
                  withItem(exampleEvent(), {"channel", "2", std::nullopt, {"onvif-key"}}),
                  "event/Device/Beta/Gamma/$source/index/1/$key/channel/2",
                  true},
        TopicCase{{"KeysAlone"},
                  PLAIN,
                  {.items = {{"k", "v", std::nullopt, {"onvif-key"}}}},
                  "event//$key/k/v",
                  true},
        TopicCase{{"BothTags"},
                  PLAIN,
                  {.items = {{"k", "v", std::nullopt, {"onvif-key", "onvif-source"}}}},
                  "event//$source/k/v/$key/k/v",
                  true},
        TopicCase{{"OtherTagsAreIgnored"},
                  PLAIN,
                  {.items = {{"k", "v", std::nullopt, {"onvif-data", "Onvif-key", "", "norq"}}}},
                  "event/",
                  true},
        TopicCase{{"InTheOrderOfTheirNames"},
                  PLAIN,
                  {.items = {{"b", "1", std::nullopt, {"onvif-source"}},
                             {"a", "2", std::nullopt, {"onvif-source"}},
                             {"B", "3", std::nullopt, {"onvif-source"}}}},
                  "event//$source/B/3/a/2/b/1",
                  true},
        TopicCase{{"EmptyNameAndValue"},
                  PLAIN,
                  {.items = {{"", "", std::nullopt, {"onvif-source"}}}},
                  "event//$source//",
                  true},
        TopicCase{{"NotWithoutTheEventTopic"},
                  settings("default", "", false, true),
                  withItem(exampleEvent(), {"channel", "2", std::nullopt, {"onvif-key"}}),
                  "event",
                  true}),
    CaseName());

namespace {

struct RetainCase : NamedCase {
    int policy;
    bool isProperty;
    bool retained;
};

class Retaining : public testing::TestWithParam<RetainCase> {};

} // namespace

TEST_P(Retaining, DependsOnPolicyAndEvent)
{
    EventContainer container;
    container.retainPolicy = static_cast<RetainPolicy>(GetParam().policy);
    container.isProperty = GetParam().isProperty;
    EXPECT_EQ(isRetained(container), GetParam().retained);
}

INSTANTIATE_TEST_SUITE_P(Policies, Retaining,
                         testing::Values(RetainCase{{"NoneAndStateless"}, 0, false, false},
                                         RetainCase{{"NoneAndProperty"}, 0, true, false},
                                         RetainCase{{"PropertyAndStateless"}, 1, false, false},
                                         RetainCase{{"PropertyAndProperty"}, 1, true, true},
                                         RetainCase{{"AllAndStateless"}, 2, false, true},
                                         RetainCase{{"AllAndProperty"}, 2, true, true},
                                         RetainCase{{"UnknownAndProperty"}, 3, true, false},
                                         RetainCase{{"NegativeAndProperty"}, -1, true, false}),
                         CaseName());

TEST_F(EventTranslationTest, EverythingNeededIsTakenFromAnEvent)
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

TEST_F(EventTranslationTest, AnEmptyEventIsExtractedToo)
{
    const EventContainer container = extracted({});
    EXPECT_FALSE(container.isProperty);
    EXPECT_THAT(container.topicLevels, IsEmpty());
    EXPECT_THAT(container.sources, IsEmpty());
    EXPECT_THAT(container.keys, IsEmpty());
}

TEST_F(EventTranslationTest, OnlyTheFirst100LevelsAreUsed)
{
    FakeReceivedEvent event;
    std::string topic = "event";
    for (int level = 0; level < 102; ++level) {
        event.items.push_back({"topic" + std::to_string(level), std::to_string(level), "tns1"});
        topic += level < 100 ? "/" + std::to_string(level) : "";
    }
    const EventContainer container = extracted(event);
    EXPECT_EQ(container.topicLevels.size(), 100U);
    EXPECT_EQ(mqttTopicFor(container, PLAIN).topic, topic);
}

TEST_F(EventTranslationTest, LevelsThatAreLeftOutCountAmongThe100)
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

TEST_F(EventTranslationTest, TheFirstOfTwoItemsWithOneNameWins)
{
    const EventContainer container =
        extracted({.items = {{"a", "first", std::nullopt, {"onvif-source", "onvif-key"}},
                             {"a", "second", std::nullopt, {"onvif-source", "onvif-key"}}}});
    EXPECT_THAT(container.sources, ElementsAre(Pair("a", "first")));
    EXPECT_THAT(container.keys, ElementsAre(Pair("a", "first")));
}

TEST_F(EventTranslationTest, ThePayloadIsRenderedWithTheShortNamesOfTheNamespaces)
{
    extracted(exampleEvent());
    EXPECT_EQ(recordedCalls({"event_get_json"}),
              Calls{"event_get_json onvif=onvif norq=norq serial=(none)"});
}

TEST_F(EventTranslationTest, ThePayloadCarriesTheSerialNumberWhenThereIsOneToCarry)
{
    extracted(exampleEvent(), "SN1");
    EXPECT_EQ(recordedCalls({"event_get_json"}),
              Calls{"event_get_json onvif=onvif norq=norq serial=SN1"});
}

TEST_F(EventTranslationTest, TheEventIsReadInAGivenOrderAndNothingBehindTheFirstMissingLevel)
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

TEST_F(EventTranslationTest, WithoutASerialNumberTheOptionIsNotSet)
{
    extracted({});
    EXPECT_THAT(recordedCalls({"json_options_set_serialnumber"}), IsEmpty());
}

TEST_F(EventTranslationTest, APayloadOf64KiBIsTakenWhole)
{
    FakeReceivedEvent event;
    event.json = std::string(65536, 'x');
    EXPECT_EQ(extracted(event).payload, *event.json);
}

TEST_F(EventTranslationTest, AnEventWithoutAJsonRenderingRaisesTheStandardError)
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
