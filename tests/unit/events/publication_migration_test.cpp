/** The legacy file is taken over once and deleted; a crash meanwhile loses nothing. */
#include "unit/events/config_texts.h"
#include "unit/events/publication_file_fixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace tovrel::test {

namespace {

using testing::ElementsAre;

} // namespace

TEST_F(PublicationFileTest, ALegacyFileIsTakenOverDeletedAndSavedAsTheCurrentOne)
{
    migrate(std::string(COMMON) + "[first]\ntopicFilter=t:a\nqos=1\nretain=all\n"
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

namespace {

const std::string LEGACY = "[common]\ntopicPrefixSetting=custom\ncustomTopicPrefix=site\n"
                           "[a]\ntopicFilter=t:a\nqos=1\nretain=all\n"
                           "[b]\ntopicFilter=t:b\nqos=0\nretain=none\n";

class PublicationMigrationTest : public PublicationFileTest {
protected:
    /** What a start of the service does, but for the fake's memory going to the disk. */
    static PublicationConfig startUp()
    {
        PublicationConfig config;
        config.load(true);
        config.load(false);
        const auto saved = fakeConfutils().files.find(publicationFile());
        if (saved != fakeConfutils().files.end()) {
            writeFile(publicationFile(), saved->second.contents);
        }
        return config;
    }
};

} // namespace

TEST_F(PublicationMigrationTest, TheLegacyFileStaysUntilTheCurrentOneIsWritten)
{
    writeFile(legacyPublicationFile(), LEGACY);
    bool thereWhileWriting = false;
    fakeConfutils().onWrite = [&thereWhileWriting] {
        thereWhileWriting = std::filesystem::exists(legacyPublicationFile());
    };
    startUp();
    EXPECT_TRUE(thereWhileWriting);
    EXPECT_FALSE(std::filesystem::exists(legacyPublicationFile()));
}

TEST_F(PublicationMigrationTest, ThatEndedBeforeTheLegacyFileWasDeletedHasTheSameResultAgain)
{
    writeFile(publicationFile(), "[1]\ntopicFilter=t:loaded\nqos=2\nretain=none\n");
    writeFile(legacyPublicationFile(), LEGACY);
    const auto first = startUp();
    writeFile(legacyPublicationFile(), LEGACY);
    const auto second = startUp();
    EXPECT_EQ(filterTexts(second), filterTexts(first));
    EXPECT_EQ(settingsText(second.getSettings()), settingsText(first.getSettings()));
    EXPECT_FALSE(std::filesystem::exists(legacyPublicationFile()));
}

TEST_F(PublicationMigrationTest, WithoutLeaveToDeleteTheLegacyFileSaysSoAndIsRepeated)
{
    writeFile(legacyPublicationFile(), LEGACY);
    failCall("unlink");
    const auto first = startUp();
    EXPECT_EQ(log.take(),
              Lines{failureLine("Could not remove '" + std::string(legacyPublicationFile()) +
                                "', which will be taken over once more: Permission denied")});
    EXPECT_TRUE(legacyFileExists());
    EXPECT_THAT(savedFile().contents, testing::HasSubstr("topicFilter=t:a\n"));
    resetCalls();
    const auto second = startUp();
    EXPECT_EQ(filterTexts(second), filterTexts(first));
    EXPECT_FALSE(legacyFileExists());
    EXPECT_EQ(log.take(), Lines());
}

} // namespace tovrel::test
