/** Feeds bytes to both loaders of publication files and checks what must hold for any content. */
#include "events/publication_config.h"
#include "events/publication_paths.h"
#include "fakes/call_record.h"
#include "fakes/config_folder.h"
#include "fakes/fake_confutils.h"
#include "support/fuzz.h"
#include "unit/events/config_texts.h"

#include <glib.h>

#include <filesystem>
#include <string>

using test_support::require;
using tovrel::PublicationConfig;

namespace {

void ignoreLog(const gchar * /*domain*/, GLogLevelFlags /*level*/, const gchar * /*message*/,
               gpointer /*userData*/)
{
}

bool same(const PublicationConfig &one, const PublicationConfig &other)
{
    return tovrel::test::filterTexts(one) == tovrel::test::filterTexts(other) &&
           tovrel::test::settingsText(one.getSettings()) ==
               tovrel::test::settingsText(other.getSettings());
}

PublicationConfig loaded(const std::string &content)
{
    tovrel::test::writeFile(tovrel::publicationFile(), content);
    PublicationConfig config;
    config.load(true);
    return config;
}

const std::string &savedText()
{
    return tovrel::test::fakeConfutils().files.at(tovrel::publicationFile()).contents;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    g_log_set_default_handler(ignoreLog, nullptr);
    g_log_set_always_fatal(G_LOG_LEVEL_CRITICAL);
    tovrel::test::setRecording(false);
    const std::string content(data, data + size);

    const PublicationConfig config = loaded(content);
    config.save();
    const std::string text = savedText();
    const PublicationConfig reread = loaded(text);
    require(same(reread, config), "what was loaded is loaded the same when it was saved");
    reread.save();
    require(savedText() == text, "what was saved once is saved the same again");

    tovrel::test::writeFile(tovrel::legacyPublicationFile(), content);
    PublicationConfig migrated;
    tovrel::test::fakeConfutils().files.clear();
    migrated.load(false);
    require(migrated.getEventFilters().size() <= PublicationConfig::MAX_ITEMS,
            "ids bound the filters");
    const bool kept = std::filesystem::exists(tovrel::legacyPublicationFile());
    require(kept == tovrel::test::fakeConfutils().files.empty(),
            "a legacy file either stays or is saved anew");
    require(kept || same(loaded(savedText()), migrated), "what was migrated is what was saved");
    return 0;
}
