/** How the configuration is saved, and that it is read back as it was. */
#include "unit/events/config_texts.h"
#include "unit/events/publication_file_fixture.h"
#include "unit/mqtt/case_name.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

namespace tovrel::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const LogLine INCOMPLETE_FILTER =
    warningLine("Need event topic filter and retain policy to configure event publication");

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

} // namespace tovrel::test
