/** A publication configuration with the files of the test's folder and a faked way to save. */
#pragma once

#include "events/publication_config.h"
#include "events/publication_paths.h"
#include "fakes/call_record.h"
#include "fakes/config_folder.h"
#include "fakes/fake_confutils.h"
#include "unit/events/wrapped_glib.h"
#include "unit/mqtt/log_lines.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace tovrel::test {

/** The function that writes the file. */
inline constexpr const char *SAVE = "confutils_set_file_contents_with_sync_mode";

/** The text of the settings of a fresh configuration. */
inline constexpr const char *DEFAULT_SETTINGS = "default '' topic 1 namespaces 1 serial 0";

/** A common group that logs nothing. */
inline constexpr const char *COMMON =
    "[common]\ntopicPrefixSetting=custom\ncustomTopicPrefix=site\nappendEventTopic=true\n"
    "includeTopicNamespaces=true\nincludeSerialNumberInPayload=true\n";

/** Fixture with an empty folder and a fresh configuration. */
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

} // namespace tovrel::test
