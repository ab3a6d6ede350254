#include "events/publication_config.h"
#include "events/publication_paths.h"
#include "fakes/call_record.h"
#include "fakes/config_folder.h"
#include "fakes/fake_confutils.h"
#include "interfaces/exceptions.h"
#include "unit/events/config_texts.h"
#include "unit/events/wrapped_glib.h"
#include "unit/mqtt/case_name.h"
#include "unit/mqtt/log_lines.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>

namespace tovrel::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char *SAVE = "confutils_set_file_contents_with_sync_mode";
constexpr const char *DEFAULT_SETTINGS = "default '' topic 1 namespaces 1 serial 0";
const LogLine UNUSABLE_FILE =
    failureLine("Failed to load event filters. Please reconfigure filters.");
const LogLine INCOMPLETE_FILTER =
    warningLine("Need event topic filter and retain policy to configure event publication");
const LogLine NO_PREFIX_SETTING = warningLine("No topic prefix setting found, using default");

/** A common group that logs nothing. */
const std::string COMMON = "[common]\ntopicPrefixSetting=custom\ncustomTopicPrefix=site\n"
                           "appendEventTopic=true\nincludeTopicNamespaces=true\n"
                           "includeSerialNumberInPayload=true\n";

class PublicationFileTest : public testing::Test {
protected:
    void SetUp() override
    {
        resetCalls();
        fakeConfutils() = {};
        claimedLength().reset();
        emptyConfigFolder();
    }
    void TearDown() override { claimedLength().reset(); }

    void load(const std::string &contents)
    {
        writeFile(publicationFile(), contents);
        config.load(true);
    }
    void migrate(const std::string &contents)
    {
        writeFile(legacyPublicationFile(), contents);
        config.load(false);
    }
    static bool legacyFileExists() { return std::filesystem::exists(legacyPublicationFile()); }
    static bool saved() { return !recordedCalls({SAVE}).empty(); }
    static const FakeFile &savedFile() { return fakeConfutils().files.at(publicationFile()); }

    /** Puts what was saved where it is loaded from. */
    static void storeSavedFile() { writeFile(publicationFile(), savedFile().contents); }

    LogCapture log;
    PublicationConfig config;
};

} // namespace

TEST_F(PublicationFileTest, AFreshConfigurationIsSavedAsItsCommonGroup)
{
    config.save();
    EXPECT_EQ(savedFile().contents, "[common]\n"
                                    "topicPrefixSetting=default\n"
                                    "customTopicPrefix=\n"
                                    "appendEventTopic=true\n"
                                    "includeTopicNamespaces=true\n"
                                    "includeSerialNumberInPayload=false\n");
    EXPECT_EQ(savedFile().mode, 0640);
    EXPECT_EQ(recordedCalls(), Calls{std::string(SAVE) + " " + publicationFile()});
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(PublicationFileTest, AFilterIsSavedWithItsTextUnchanged)
{
    config.setEventFilter("7", {"tns1:Device/tnsnorq:Beta//.", 2, "none"});
    config.save();
    EXPECT_THAT(savedFile().contents,
                testing::EndsWith("\n[7]\ntopicFilter=tns1:Device/tnsnorq:Beta//.\nqos=2\n"
                                  "retain=none\n"));
}

TEST_F(PublicationFileTest, GroupsAreSavedInTheOrderOfTheIdsAsTexts)
{
    for (int count = 0; count < 11; ++count) {
        config.addEventFilter({"a", 0, "all"});
    }
    config.save();
    std::string order;
    const std::string &text = savedFile().contents;
    for (auto at = text.find('['); at != std::string::npos; at = text.find('[', at + 1)) {
        order += text.substr(at, text.find(']', at) - at + 1);
    }
    EXPECT_EQ(order, "[common][0][1][10][2][3][4][5][6][7][8][9]");
}

namespace {

struct RoundTripCase : NamedCase {
    std::string text;
};

class PublicationFileText : public PublicationFileTest,
                            public testing::WithParamInterface<RoundTripCase> {};

} // namespace

TEST_P(PublicationFileText, IsReadBackAsItWasSaved)
{
    config.setTopicPrefixSetting(GetParam().text);
    config.setCustomTopicPrefix(GetParam().text);
    config.setAppendEventTopic(false);
    config.setIncludeSerialNumberInPayload(true);
    config.setEventFilter("0", {GetParam().text.c_str(), -1, "property"});
    config.setEventFilter("255", {GetParam().text.c_str(), 2, "all"});
    config.save();
    storeSavedFile();
    PublicationConfig reread;
    reread.load(true);
    EXPECT_EQ(settingsText(reread.getSettings()), settingsText(config.getSettings()));
    EXPECT_EQ(filterTexts(reread), filterTexts(config));
    EXPECT_EQ(log.take(), Lines());
}

INSTANTIATE_TEST_SUITE_P(RoundTrip, PublicationFileText,
                         testing::Values(RoundTripCase{{"Plain"}, "tns1:Device//."},
                                         RoundTripCase{{"Empty"}, ""},
                                         RoundTripCase{{"LeadingAndTrailingBlanks"}, "  a b\t "},
                                         RoundTripCase{{"LineFeed"}, "a\nb\r\n[c]\nd=e"},
                                         RoundTripCase{{"Backslashes"}, "\\s\\n\\\\"},
                                         RoundTripCase{{"KeyFileSyntax"}, "[a]=#;,"},
                                         RoundTripCase{{"FourByteCharacter"}, "\xF0\x9F\x98\x80"},
                                         RoundTripCase{{"Long"}, std::string(5000, 'x')}),
                         CaseName());

TEST_F(PublicationFileTest, EveryIdAndPolicyIsReadBack)
{
    const char *const policies[] = {"none", "property", "all"};
    for (int count = 0; count < 256; ++count) {
        config.addEventFilter(
            {("norq:L" + std::to_string(count)).c_str(), count % 3, policies[count % 3]});
    }
    config.save();
    storeSavedFile();
    PublicationConfig reread;
    reread.load(true);
    EXPECT_EQ(filterTexts(reread), filterTexts(config));
    EXPECT_EQ(reread.getEventFilters().size(), 256U);
}

TEST_F(PublicationFileTest, AnAccumulatedFilterIsBuiltAnewFromTheFile)
{
    config.setEventFilter("0", {"t:a//.", 0, "all"});
    config.getEventFilter("0").setTopicFilter("t:b");
    config.save();
    storeSavedFile();
    PublicationConfig reread;
    reread.load(true);
    EXPECT_THAT(filterTexts(reread), ElementsAre("0: 't:b' qos 0 retain all t|b"));
}

TEST_F(PublicationFileTest, TextThatIsNotUtf8IsReadAsMissing)
{
    config.setCustomTopicPrefix("\xFF");
    config.setEventFilter("0", {"\xFF", 0, "all"});
    config.save();
    storeSavedFile();
    PublicationConfig reread;
    reread.load(true);
    EXPECT_EQ(reread.getSettings().customTopicPrefix, "");
    EXPECT_THAT(filterTexts(reread), IsEmpty());
    EXPECT_EQ(log.take(), Lines{INCOMPLETE_FILTER});
}

TEST_F(PublicationFileTest, SavingWithoutAKeyFileObjectIsLogged)
{
    failCall("g_key_file_new");
    config.save();
    EXPECT_FALSE(saved());
    EXPECT_EQ(log.take(), Lines{failureLine("Failed to create new key file object")});
}

TEST_F(PublicationFileTest, AConfigurationThatCannotBeMadeATextIsLoggedAndNotSaved)
{
    failCall("g_key_file_to_data");
    config.save();
    EXPECT_FALSE(saved());
    EXPECT_EQ(log.take(),
              Lines{failureLine("Failed to convert config, config not saved: out of words")});
}

TEST_F(PublicationFileTest, ATextBeyondASigned32BitLengthIsLoggedAndNotSaved)
{
    claimedLength() = static_cast<gsize>(std::numeric_limits<std::int32_t>::max()) + 1;
    config.save();
    EXPECT_FALSE(saved());
    EXPECT_EQ(log.take(), Lines{failureLine("Too much configuration data to save to file")});
}

TEST_F(PublicationFileTest, AFailureToWriteIsLoggedWithItsReason)
{
    failCall(SAVE);
    fakeConfutils().failureMessage = "disk is full";
    config.save();
    EXPECT_EQ(log.take(), Lines{failureLine("Could not save event-to-MQTT configurations to file: "
                                            "disk is full")});
    EXPECT_EQ(settingsText(config.getSettings()), DEFAULT_SETTINGS);
}

TEST_F(PublicationFileTest, AFailureToWriteWithoutAReasonIsLoggedToo)
{
    failCall(SAVE);
    fakeConfutils().failureMessage.reset();
    config.save();
    EXPECT_EQ(log.take(), Lines{failureLine("Could not save event-to-MQTT configurations to file: "
                                            "unknown error")});
}

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
    load(COMMON + "[3]\ntopicFilter=tns1:Device//.\nqos=2\nretain=all\n"
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

TEST_F(PublicationFileTest, ALegacyFileIsTakenOverDeletedAndSavedAsTheCurrentOne)
{
    migrate(COMMON + "[first]\ntopicFilter=t:a\nqos=1\nretain=all\n"
                     "[second]\ntopicFilter=t:b\nretain=none\n");
    EXPECT_EQ(settingsText(config.getSettings()), "custom 'site' topic 1 namespaces 1 serial 1");
    EXPECT_THAT(filterTexts(config),
                ElementsAre("0: 't:a' qos 1 retain all t|a", "1: 't:b' qos 0 retain none t|b"));
    EXPECT_EQ(config.allocateId(), "2");
    EXPECT_FALSE(legacyFileExists());
    storeSavedFile();
    PublicationConfig reread;
    reread.load(true);
    EXPECT_EQ(filterTexts(reread), filterTexts(config));
    EXPECT_EQ(settingsText(reread.getSettings()), settingsText(config.getSettings()));
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(PublicationFileTest, AMigrationHappensOnce)
{
    migrate(COMMON);
    resetCalls();
    config.load(false);
    EXPECT_FALSE(saved());
}

TEST_F(PublicationFileTest, ALegacyFileWithTheFormerPrefixKeyIsUnderstood)
{
    migrate("[common]\ntopicPrefix=custom\ncustomTopicPrefix=site\nincludeTopicNamespaces=true\n");
    EXPECT_EQ(settingsText(config.getSettings()), "custom 'site' topic 0 namespaces 1 serial 0");
    EXPECT_THAT(savedFile().contents, testing::HasSubstr("topicPrefixSetting=custom\n"));
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(PublicationFileTest, ALegacyFileWithOnlyACommonGroupIsMigratedToo)
{
    migrate(COMMON);
    EXPECT_FALSE(legacyFileExists());
    EXPECT_THAT(savedFile().contents, testing::HasSubstr("customTopicPrefix=site\n"));
}

TEST_F(PublicationFileTest, AnEmptyLegacyFileIsDeletedAndTheCurrentOneWritten)
{
    migrate("");
    EXPECT_FALSE(legacyFileExists());
    EXPECT_THAT(savedFile().contents, testing::StartsWith("[common]\n"));
    EXPECT_EQ(settingsText(config.getSettings()), DEFAULT_SETTINGS);
}

TEST_F(PublicationFileTest, LegacyFiltersWhoseNewIdIsLoadedAlreadyAreDropped)
{
    load("[0]\ntopicFilter=t:loaded\nretain=all\n[2]\ntopicFilter=t:too\nretain=all\n");
    migrate("[x]\ntopicFilter=t:dropped\nretain=all\n[y]\ntopicFilter=t:added\nretain=all\n"
            "[z]\ntopicFilter=t:dropped\nretain=all\n");
    EXPECT_THAT(filterTexts(config), ElementsAre("0: 't:loaded' qos 0 retain all t|loaded",
                                                 "1: 't:added' qos 0 retain all t|added",
                                                 "2: 't:too' qos 0 retain all t|too"));
    EXPECT_EQ(config.allocateId(), "3");
    EXPECT_EQ(log.take(), Lines());
}

TEST_F(PublicationFileTest, ALegacyCommonGroupOverridesTheCurrentSettings)
{
    load(COMMON);
    migrate("[common]\ntopicPrefixSetting=none\n");
    EXPECT_EQ(settingsText(config.getSettings()), "none 'site' topic 0 namespaces 0 serial 0");
}

TEST_F(PublicationFileTest, LegacyFiltersBeyondTheIdsAreSkippedAndTheMigrationIsFinished)
{
    std::string contents;
    for (int count = 0; count < 258; ++count) {
        contents += "[f" + std::to_string(count) + "]\ntopicFilter=t:a\nretain=all\n";
    }
    migrate(contents);
    EXPECT_EQ(config.getEventFilters().size(), 256U);
    EXPECT_FALSE(legacyFileExists());
    EXPECT_TRUE(saved());
    EXPECT_EQ(log.take(),
              (Lines{failureLine("Could not take over event filter 'f256': No available IDs"),
                     failureLine("Could not take over event filter 'f257': No available IDs")}));
}

TEST_F(PublicationFileTest, AFailureToSaveAMigrationIsLoggedAndTheFiltersStayInMemory)
{
    failCall(SAVE);
    migrate("[x]\ntopicFilter=t:a\nretain=all\n");
    EXPECT_FALSE(legacyFileExists());
    EXPECT_THAT(filterTexts(config), ElementsAre("0: 't:a' qos 0 retain all t|a"));
    EXPECT_EQ(log.take(), Lines{failureLine("Could not save event-to-MQTT configurations to file: "
                                            "Failed to write")});
}

} // namespace tovrel::test
