/** A crash during the migration of the legacy file loses nothing. */
#include "events/publication_config.h"
#include "events/publication_paths.h"
#include "fakes/call_record.h"
#include "fakes/config_folder.h"
#include "fakes/fake_confutils.h"
#include "unit/events/config_texts.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace tovrel::test {

namespace {

const std::string LEGACY = "[common]\ntopicPrefixSetting=custom\ncustomTopicPrefix=site\n"
                           "[a]\ntopicFilter=t:a\nqos=1\nretain=all\n"
                           "[b]\ntopicFilter=t:b\nqos=0\nretain=none\n";

class PublicationMigrationTest : public testing::Test {
protected:
    void SetUp() override
    {
        resetCalls();
        fakeConfutils() = {};
        emptyConfigFolder();
    }
    void TearDown() override { fakeConfutils() = {}; }

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

} // namespace tovrel::test
