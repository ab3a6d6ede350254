/** The topic that is made of an event and the settings, and whether the message is retained. */
#include "unit/events/translation_fixture.h"
#include "unit/mqtt/case_name.h"

#include <gtest/gtest.h>

#include <string>

namespace tovrel::test {

namespace {

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

} // namespace tovrel::test
