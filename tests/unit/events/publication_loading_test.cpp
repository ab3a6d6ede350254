/** What is taken from the configuration file, and what of it cannot be used. */
#include "interfaces/exceptions.h"
#include "unit/events/config_texts.h"
#include "unit/events/publication_file_fixture.h"
#include "unit/mqtt/case_name.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace tovrel::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const LogLine UNUSABLE_FILE =
    failureLine("Failed to load event filters. Please reconfigure filters.");
const LogLine INCOMPLETE_FILTER =
    warningLine("Need event topic filter and retain policy to configure event publication");
const LogLine NO_PREFIX_SETTING = warningLine("No topic prefix setting found, using default");

} // namespace

TEST_F(PublicationFileTest, AMissingFileLoadsNothingSilently)
{
    config.load(true);
    config.load(false);
    EXPECT_EQ(settingsText(config.getSettings()), DEFAULT_SETTINGS);
    EXPECT_THAT(filterTexts(config), IsEmpty());
    EXPECT_FALSE(saved());
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(PublicationFileTest, TemporaryFilesAreSweptBeforeLoading)
{
    load(COMMON);
    EXPECT_EQ(recordedCalls(),
              Calls{std::string("confutils_sweep_temporary_files ") + publicationFile()});
}

TEST_F(PublicationFileTest, AnEmptyFileLoadsNothingAndIsNotRewritten)
{
    load("");
    EXPECT_EQ(settingsText(config.getSettings()), DEFAULT_SETTINGS);
    EXPECT_FALSE(saved());
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(PublicationFileTest, SettingsAndFiltersAreLoadedAndNothingIsWritten)
{
    load(std::string(COMMON) + "[3]\ntopicFilter=tns1:Device//.\nqos=2\nretain=all\n"
                               "[x]\ntopicFilter=a\nqos=0\nretain=none\n");
    EXPECT_EQ(settingsText(config.getSettings()), "custom 'site' topic 1 namespaces 1 serial 1");
    EXPECT_THAT(filterTexts(config),
                ElementsAre("3: 'tns1:Device//.' qos 2 retain all tns1|Device //.",
                            "x: 'a' qos 0 retain none |a"));
    EXPECT_FALSE(saved());
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(PublicationFileTest, LoadedIdsAreNotTaken)
{
    load("[0]\ntopicFilter=t:loaded\nretain=all\n");
    EXPECT_EQ(config.addEventFilter({"t:new", 0, "all"}), "0");
    EXPECT_THAT(filterTexts(config), ElementsAre("0: 't:loaded' qos 0 retain all t|loaded"));
    EXPECT_EQ(config.addEventFilter({"t:new", 0, "all"}), "1");
}

TEST_F(PublicationFileTest, AFilterLoadedUnderANumberThatIsNoIdIsRemovedBeforeTheErrorIsRaised)
{
    load("[300]\ntopicFilter=t:a\nretain=all\n");
    try {
        config.removeEventFilter("300");
        ADD_FAILURE() << "nothing was thrown";
    } catch (const ConfigException &error) {
        EXPECT_STREQ(error.what(), "Invalid ID");
    }
    EXPECT_THAT(filterTexts(config), IsEmpty());
}

TEST_F(PublicationFileTest, LoadingReplacesFiltersWithTheSameIdAndKeepsOthers)
{
    config.setEventFilter("0", {"t:old", 0, "none"});
    config.setEventFilter("1", {"t:kept", 0, "none"});
    load("[0]\ntopicFilter=t:new\nqos=1\nretain=all\n");
    EXPECT_THAT(filterTexts(config), ElementsAre("0: 't:new' qos 1 retain all t|new",
                                                 "1: 't:kept' qos 0 retain none t|kept"));
}

TEST_F(PublicationFileTest, AnUnknownRetainPolicyInTheFileMeansProperty)
{
    load("[0]\ntopicFilter=t:a\nqos=1\nretain=sometimes\n");
    EXPECT_THAT(filterTexts(config), ElementsAre("0: 't:a' qos 1 retain property t|a"));
    EXPECT_EQ(log.take(), Lines{failureLine("Invalid retain policy using 'property'")});
}

namespace {

struct GroupCase : NamedCase {
    std::string lines; // of the group
    std::string expected;
    Lines logged;
};

class CommonGroup : public PublicationFileTest, public testing::WithParamInterface<GroupCase> {};
class FilterGroup : public PublicationFileTest, public testing::WithParamInterface<GroupCase> {};

const std::string PREFIX = "topicPrefixSetting=none\n";

} // namespace

TEST_P(CommonGroup, SetsTheSettings)
{
    config.setCustomTopicPrefix("former");
    load("[common]\n" + GetParam().lines);
    EXPECT_EQ(settingsText(config.getSettings()), GetParam().expected);
    EXPECT_EQ(log.take(), GetParam().logged);
}

INSTANTIATE_TEST_SUITE_P(
    Groups, CommonGroup,
    testing::Values(GroupCase{{"MissingBooleansAreFalse"},
                              PREFIX,
                              "none 'former' topic 0 namespaces 0 serial 0",
                              {}},
                    GroupCase{{"MalformedBooleansAreFalse"},
                              PREFIX + "appendEventTopic=yes\nincludeTopicNamespaces=TRUE\n"
                                       "includeSerialNumberInPayload=\n",
                              "none 'former' topic 0 namespaces 0 serial 0",
                              {}},
                    GroupCase{{"NumbersAreBooleans"},
                              PREFIX + "appendEventTopic=1\nincludeTopicNamespaces=0\n"
                                       "includeSerialNumberInPayload=1\n",
                              "none 'former' topic 1 namespaces 0 serial 1",
                              {}},
                    GroupCase{{"EmptyCustomPrefixIsSet"},
                              PREFIX + "customTopicPrefix=\n",
                              "none '' topic 0 namespaces 0 serial 0",
                              {}},
                    GroupCase{{"UnknownSettingIsKept"},
                              "topicPrefixSetting=What\n",
                              "What 'former' topic 0 namespaces 0 serial 0",
                              {}},
                    GroupCase{{"EmptySettingIsKept"},
                              "topicPrefixSetting=\ntopicPrefix=custom\n",
                              " 'former' topic 0 namespaces 0 serial 0",
                              {}},
                    GroupCase{{"FormerNameOfTheSetting"},
                              "topicPrefix=custom\n",
                              "custom 'former' topic 0 namespaces 0 serial 0",
                              {}},
                    GroupCase{{"NewNameWins"},
                              "topicPrefix=custom\ntopicPrefixSetting=none\n",
                              "none 'former' topic 0 namespaces 0 serial 0",
                              {}},
                    GroupCase{{"NoSettingMeansDefault"},
                              "customTopicPrefix=new\n",
                              "default 'new' topic 0 namespaces 0 serial 0",
                              {NO_PREFIX_SETTING}},
                    GroupCase{{"EmptyGroup"},
                              "",
                              "default 'former' topic 0 namespaces 0 serial 0",
                              {NO_PREFIX_SETTING}}),
    CaseName());

TEST_P(FilterGroup, BecomesAFilterWhenItIsComplete)
{
    load("[5]\n" + GetParam().lines);
    const auto texts = filterTexts(config);
    EXPECT_EQ(texts.empty() ? "" : texts.front(), GetParam().expected);
    EXPECT_EQ(log.take(), GetParam().logged);
}

INSTANTIATE_TEST_SUITE_P(
    Groups, FilterGroup,
    testing::Values(
        GroupCase{{"MissingQosIsZero"},
                  "topicFilter=t:a\nretain=none\n",
                  "5: 't:a' qos 0 retain none t|a",
                  {}},
        GroupCase{{"MalformedQosIsZero"},
                  "topicFilter=t:a\nqos=one\nretain=none\n",
                  "5: 't:a' qos 0 retain none t|a",
                  {}},
        GroupCase{{"QosBeyondIntegersIsZero"},
                  "topicFilter=t:a\nqos=2147483648\nretain=none\n",
                  "5: 't:a' qos 0 retain none t|a",
                  {}},
        GroupCase{{"QosIsNotChecked"},
                  "topicFilter=t:a\nqos=-3\nretain=none\n",
                  "5: 't:a' qos -3 retain none t|a",
                  {}},
        GroupCase{{"EmptyTopicFilter"},
                  "topicFilter=\nqos=1\nretain=none\n",
                  "5: '' qos 1 retain none",
                  {}},
        GroupCase{{"MissingTopicFilter"}, "qos=1\nretain=none\n", "", {INCOMPLETE_FILTER}},
        GroupCase{{"MissingRetain"}, "topicFilter=t:a\nqos=1\n", "", {INCOMPLETE_FILTER}},
        GroupCase{{"EmptyGroup"}, "", "", {INCOMPLETE_FILTER}},
        GroupCase{{"UnknownKeysAreIgnored"},
                  "topicFilter=t:a\nretain=all\nfoo=bar\n",
                  "5: 't:a' qos 0 retain all t|a",
                  {}}),
    CaseName());

TEST_F(PublicationFileTest, GroupNamesThatOnlyLookLikeTheCommonOneAreFilters)
{
    load("[Common]\nappendEventTopic=false\n[common2]\ntopicFilter=t:a\nretain=all\n");
    EXPECT_EQ(settingsText(config.getSettings()), DEFAULT_SETTINGS);
    EXPECT_THAT(filterTexts(config), ElementsAre("common2: 't:a' qos 0 retain all t|a"));
    EXPECT_EQ(log.take(), Lines{INCOMPLETE_FILTER});
}

TEST_F(PublicationFileTest, AnIncompleteFilterDoesNotAffectTheNext)
{
    load("[0]\nqos=1\n[1]\ntopicFilter=t:a\nretain=all\n");
    EXPECT_THAT(filterTexts(config), ElementsAre("1: 't:a' qos 0 retain all t|a"));
    EXPECT_EQ(log.take(), Lines{INCOMPLETE_FILTER});
}

namespace {

class UnusableFile : public PublicationFileTest, public testing::WithParamInterface<bool> {
protected:
    static const char *path() { return GetParam() ? publicationFile() : legacyPublicationFile(); }
};

} // namespace

TEST_P(UnusableFile, ThatIsNoKeyFileIsLoggedAndKept)
{
    config.setEventFilter("9", {"t:kept", 0, "all"});
    writeFile(path(), "[0]\ntopicFilter=t:a\nretain=all\nno key file\n");
    config.load(GetParam());
    EXPECT_THAT(filterTexts(config), ElementsAre("9: 't:kept' qos 0 retain all t|kept"));
    EXPECT_TRUE(std::filesystem::exists(path()));
    EXPECT_FALSE(saved());
    EXPECT_EQ(log.take(), Lines{UNUSABLE_FILE});
}

TEST_P(UnusableFile, ThatCannotBeReadIsLoggedAndKept)
{
    // A folder in its place: files without read permission are readable to root, who runs tests.
    std::filesystem::create_directory(path());
    config.load(GetParam());
    EXPECT_EQ(settingsText(config.getSettings()), DEFAULT_SETTINGS);
    EXPECT_TRUE(std::filesystem::exists(path()));
    EXPECT_FALSE(saved());
    EXPECT_EQ(log.take(), Lines{UNUSABLE_FILE});
}

TEST_P(UnusableFile, IsKeptWhenThereIsNoKeyFileObject)
{
    writeFile(path(), COMMON);
    failCall("g_key_file_new");
    config.load(GetParam());
    EXPECT_EQ(settingsText(config.getSettings()), DEFAULT_SETTINGS);
    EXPECT_TRUE(std::filesystem::exists(path()));
    EXPECT_FALSE(saved());
    EXPECT_EQ(log.take(), Lines{failureLine("Failed to create new key file object")});
}

INSTANTIATE_TEST_SUITE_P(Files, UnusableFile, testing::Bool(),
                         [](const auto &tested) { return tested.param ? "Current" : "Legacy"; });

} // namespace tovrel::test
