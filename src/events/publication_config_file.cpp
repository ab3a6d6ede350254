/** How the event-to-MQTT configuration is written to its key file and read back. */
#include "events/publication_config.h"
#include "events/publication_paths.h"
#include "interfaces/c_handles.h"
#include "interfaces/exceptions.h"
#include "interfaces/log.h"

#include <norq/confutils.h>

#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>
#include <utility>

namespace tovrel {

namespace {

using KeyFile = CHandle<GKeyFile, g_key_file_unref>;
using GroupNames = CHandle<char *, g_strfreev>;

constexpr const char *COMMON_GROUP = "common";
constexpr int FILE_MODE = 0640;

KeyFile newKeyFile()
{
    KeyFile file(g_key_file_new());
    if (!file) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sFailed to create new key file object", LOG_PREFIX);
    }
    return file;
}

void writeSettings(GKeyFile *file, const PublicationSettings &settings)
{
    g_key_file_set_string(file, COMMON_GROUP, "topicPrefixSetting",
                          settings.topicPrefixSetting.c_str());
    g_key_file_set_string(file, COMMON_GROUP, "customTopicPrefix",
                          settings.customTopicPrefix.c_str());
    g_key_file_set_boolean(file, COMMON_GROUP, "appendEventTopic",
                           static_cast<gboolean>(settings.appendEventTopic));
    g_key_file_set_boolean(file, COMMON_GROUP, "includeTopicNamespaces",
                           static_cast<gboolean>(settings.includeTopicNamespaces));
    g_key_file_set_boolean(file, COMMON_GROUP, "includeSerialNumberInPayload",
                           static_cast<gboolean>(settings.includeSerialNumberInPayload));
}

void writeFilter(GKeyFile *file, const std::string &id, const EventFilterConfig &filter)
{
    g_key_file_set_string(file, id.c_str(), "topicFilter", filter.getTopicFilter().c_str());
    g_key_file_set_integer(file, id.c_str(), "qos", filter.getQos());
    g_key_file_set_string(file, id.c_str(), "retain", filter.retainPolicyText().c_str());
}

std::optional<std::string> readString(GKeyFile *file, const char *group, const char *key)
{
    const GText text(g_key_file_get_string(file, group, key, nullptr));
    return text ? std::optional<std::string>(text.get()) : std::nullopt;
}

/** A missing or malformed key is false, whatever the default of a fresh configuration. */
bool readBoolean(GKeyFile *file, const char *key)
{
    return g_key_file_get_boolean(file, COMMON_GROUP, key, nullptr) != FALSE;
}

std::string readTopicPrefixSetting(GKeyFile *file)
{
    for (const auto *key : {"topicPrefixSetting", "topicPrefix"}) {
        if (auto text = readString(file, COMMON_GROUP, key)) {
            return *text;
        }
    }
    tovrel_log(LOG_LEVEL_WARN, "%sNo topic prefix setting found, using default", LOG_PREFIX);
    return "default";
}

void readSettings(GKeyFile *file, PublicationConfig &config)
{
    config.setTopicPrefixSetting(readTopicPrefixSetting(file));
    if (const auto prefix = readString(file, COMMON_GROUP, "customTopicPrefix")) {
        config.setCustomTopicPrefix(*prefix);
    }
    config.setAppendEventTopic(readBoolean(file, "appendEventTopic"));
    config.setIncludeTopicNamespaces(readBoolean(file, "includeTopicNamespaces"));
    config.setIncludeSerialNumberInPayload(readBoolean(file, "includeSerialNumberInPayload"));
}

std::optional<EventFilterConfig> readFilter(GKeyFile *file, const char *group)
{
    const auto topicFilter = readString(file, group, "topicFilter");
    const auto qos = g_key_file_get_integer(file, group, "qos", nullptr);
    const auto retain = readString(file, group, "retain");
    if (!topicFilter || !retain) {
        tovrel_log(LOG_LEVEL_WARN,
                   "%sNeed event topic filter and retain policy to configure event publication",
                   LOG_PREFIX);
        return std::nullopt;
    }
    return EventFilterConfig(topicFilter->c_str(), qos, retain->c_str());
}

/** A legacy file may hold more filters than there are ids; those that fit are taken over. */
void addMigratedFilter(PublicationConfig &config, const char *group, EventFilterConfig filter)
{
    try {
        config.addEventFilter(std::move(filter));
    } catch (const ConfigException &error) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sCould not take over event filter '%s': %s", LOG_PREFIX,
                   group, error.what());
    }
}

/** Opens a key file; nothing when it does not exist or cannot be used. */
KeyFile openKeyFile(const char *path)
{
    confutils_sweep_temporary_files(path);
    if (access(path, F_OK) != 0) {
        return nullptr;
    }
    auto file = newKeyFile();
    if (file && g_key_file_load_from_file(file.get(), path, G_KEY_FILE_NONE, nullptr) == FALSE) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sFailed to load event filters. Please reconfigure filters.",
                   LOG_PREFIX);
        return nullptr;
    }
    return file;
}

/** Reads every group; `store` takes a filter with the name of its group. */
template <typename Store>
void readGroups(GKeyFile *file, PublicationConfig &config, const Store &store)
{
    const GroupNames groups(g_key_file_get_groups(file, nullptr));
    for (char **group = groups.get(); *group != nullptr; ++group) {
        if (std::string_view(*group) == COMMON_GROUP) {
            readSettings(file, config);
        } else if (auto filter = readFilter(file, *group)) {
            store(*group, std::move(*filter));
        }
    }
}

void writeFile(const char *text, gsize length)
{
    if (length > static_cast<gsize>(std::numeric_limits<std::int32_t>::max())) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sToo much configuration data to save to file", LOG_PREFIX);
        return;
    }
    ErrorHandle error;
    if (confutils_set_file_contents_with_sync_mode(publicationFile(), text,
                                                   static_cast<gssize>(length), FILE_MODE,
                                                   OutParameter(error)) == FALSE) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sCould not save event-to-MQTT configurations to file: %s",
                   LOG_PREFIX, errorText(error));
    }
}

} // namespace

void PublicationConfig::save() const
{
    const auto file = newKeyFile();
    if (!file) {
        return;
    }
    writeSettings(file.get(), settings);
    for (const auto &[id, filter] : eventFilters) {
        writeFilter(file.get(), id, filter);
    }
    gsize length = 0;
    ErrorHandle error;
    const GText text(g_key_file_to_data(file.get(), &length, OutParameter(error)));
    if (!text) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sFailed to convert config, config not saved: %s",
                   LOG_PREFIX, errorText(error));
        return;
    }
    writeFile(text.get(), length);
}

void PublicationConfig::load(bool current)
{
    if (current) {
        loadCurrent();
    } else {
        migrateLegacy();
    }
}

void PublicationConfig::loadCurrent()
{
    if (const auto file = openKeyFile(publicationFile())) {
        readGroups(file.get(), *this, [this](const char *group, EventFilterConfig filter) {
            setEventFilter(group, std::move(filter));
        });
    }
}

void PublicationConfig::migrateLegacy()
{
    const auto file = openKeyFile(legacyPublicationFile());
    if (!file) {
        return;
    }
    readGroups(file.get(), *this, [this](const char *group, EventFilterConfig filter) {
        addMigratedFilter(*this, group, std::move(filter));
    });
    // In this order a crash in between leaves both files, and taking over once more gives the same.
    save();
    if (unlink(legacyPublicationFile()) != 0) {
        const int error = errno;
        tovrel_log(LOG_LEVEL_FAILURE,
                   "%sCould not remove '%s', which will be taken over once more: %s", LOG_PREFIX,
                   legacyPublicationFile(), g_strerror(error));
    }
}

} // namespace tovrel
