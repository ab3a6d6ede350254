#include "settings/mqtt_settings.h"

#include "mqtt/topic_rules.h"
#include "settings/device_identity.h"

#include <glib.h>
#include <mosquitto.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <string_view>

namespace norq {
namespace {

using KeyFile = std::unique_ptr<GKeyFile, decltype(&g_key_file_free)>;
using Error = std::unique_ptr<GError, decltype(&g_error_free)>;
using Text = std::unique_ptr<char, decltype(&g_free)>;
using TextList = std::unique_ptr<char *, decltype(&g_strfreev)>;

constexpr std::size_t MAX_FILE = 256UL * 1024;
constexpr std::size_t MAX_CLIENT_ID = 255;
constexpr std::size_t MAX_HOST = 253;
constexpr std::size_t MAX_CREDENTIAL = 65535;
constexpr int DEFAULT_TLS_PORT = 8883;
constexpr std::string_view PASSWORD = "password";
constexpr std::size_t NOWHERE = std::string_view::npos;

struct Group {
    std::string_view name;
    std::array<std::string_view, 8> keys;
};

constexpr std::array GROUPS{
    Group{"client", {"active", "device-topic-prefix"}},
    Group{"broker",
          {"host", "port", "keepalive", "client-id", "user", PASSWORD, "clean-session",
           "maximum-qos"}},
    Group{"tls", {"enabled", "ca-file", "cert-file", "key-file", "min-version"}},
    Group{"will", {"topic", "payload", "qos", "retain", "use-device-topic-prefix"}},
    Group{"queue", {"messages", "bytes", "inbound-messages", "inbound-bytes"}},
};

using TextCheck = std::function<bool(const std::string &)>;

/** Reads typed values out of a key file and complains about what does not fit. */
class Reader {
public:
    Reader(const std::string &name, GKeyFile *content) : path(name), file(content) {}

    [[nodiscard]] bool has(const char *group, const char *key) const
    {
        return g_key_file_has_key(file, group, key, nullptr) != FALSE;
    }

    /** A bad value of a key; `why` says what would be a good one. */
    void complain(const char *group, const char *key, const char *why) const
    {
        const Text value(g_key_file_get_value(file, group, key, nullptr), g_free);
        // A URL with user and password in it is no good value for anything either.
        const bool holdsSecret =
            key == PASSWORD || (value && std::string_view(value.get()).find('@') != NOWHERE);
        if (holdsSecret) {
            g_warning("%s: [%s] %s is not usable (%s), it is ignored", path.c_str(), group, key,
                      why);
            return;
        }
        const Text shown(g_strescape(value ? value.get() : "", nullptr), g_free);
        g_warning("%s: [%s] %s=%.100s is not valid (%s), using the default", path.c_str(), group,
                  key, shown.get(), why);
    }

    [[nodiscard]] std::string text(const char *group, const char *key, std::string fallback,
                                   const TextCheck &check, const char *expected) const
    {
        if (!has(group, key)) {
            return fallback;
        }
        // With a wrong escape sequence there is an error and a value.
        GError *rawError = nullptr;
        const Text value(g_key_file_get_string(file, group, key, &rawError), g_free);
        const Error error(rawError, g_error_free);
        if (error || !value) {
            complain(group, key, "not UTF-8, or a wrong escape sequence");
            return fallback;
        }
        std::string result = value.get();
        if (check(result)) {
            return result;
        }
        complain(group, key, expected);
        return fallback;
    }

    template <typename Number>
    [[nodiscard]] Number number(const char *group, const char *key, Number fallback,
                                long long smallest, long long largest) const
    {
        if (!has(group, key)) {
            return fallback;
        }
        const Text value(g_key_file_get_value(file, group, key, nullptr), g_free);
        const std::string_view digits = value ? value.get() : "";
        long long result = 0;
        const auto [end, error] =
            std::from_chars(digits.data(), digits.data() + digits.size(), result);
        const bool whole = error == std::errc() && end == digits.data() + digits.size();
        if (whole && result >= smallest && result <= largest) {
            return static_cast<Number>(result);
        }
        const std::string expected = "expected a whole number from " + std::to_string(smallest) +
                                     " to " + std::to_string(largest);
        complain(group, key, expected.c_str());
        return fallback;
    }

    [[nodiscard]] bool boolean(const char *group, const char *key, bool fallback) const
    {
        if (!has(group, key)) {
            return fallback;
        }
        const Text value(g_key_file_get_value(file, group, key, nullptr), g_free);
        const std::string_view word = value ? value.get() : "";
        if (word == "true" || word == "false") {
            return word == "true";
        }
        complain(group, key, "expected true or false");
        return fallback;
    }

    void complainAboutUnknown() const
    {
        const TextList groups(g_key_file_get_groups(file, nullptr), g_strfreev);
        for (char **group = groups.get(); *group != nullptr; ++group) {
            const auto *const known = std::ranges::find(GROUPS, *group, &Group::name);
            if (known == GROUPS.end()) {
                g_warning("%s: unknown group [%.100s]", path.c_str(), *group);
                continue;
            }
            const TextList keys(g_key_file_get_keys(file, *group, nullptr, nullptr), g_strfreev);
            for (char **key = keys.get(); key != nullptr && *key != nullptr; ++key) {
                if (std::ranges::find(known->keys, std::string_view(*key)) == known->keys.end()) {
                    g_warning("%s: unknown key %.100s in [%s]", path.c_str(), *key, *group);
                }
            }
        }
    }

private:
    const std::string &path;
    GKeyFile *file;
};

bool isMqttText(const std::string &text)
{
    return text.empty() ||
           mosquitto_validate_utf8(text.data(), static_cast<int>(text.size())) == MOSQ_ERR_SUCCESS;
}

bool isHost(const std::string &text)
{
    if (text.empty() || text.size() > MAX_HOST) {
        return false;
    }
    if (text.find(':') != std::string::npos) {
        return g_hostname_is_ip_address(text.c_str()) != FALSE;
    }
    return std::ranges::all_of(
        text, [](char c) { return g_ascii_isalnum(c) || c == '.' || c == '-' || c == '_'; });
}

bool isPrefix(const std::string &text)
{
    return text.empty() || (mqtt::checkTopic(text, text).ok() && text.size() <= MAX_CLIENT_ID &&
                            text.front() != '$' && text.front() != '/' && text.back() != '/');
}

bool isCredential(const std::string &text)
{
    return text.size() <= MAX_CREDENTIAL && isMqttText(text);
}

bool isReadableFile(const std::string &text)
{
    return text.starts_with('/') && access(text.c_str(), R_OK) == 0;
}

void readBroker(const Reader &reader, MqttSettings &settings)
{
    settings.host = reader.text("broker", "host", settings.host, isHost,
                                "expected a host name or an IP address");
    const int defaultPort = settings.tls.enabled ? DEFAULT_TLS_PORT : settings.port;
    settings.port = reader.number("broker", "port", defaultPort, 1, 65535);
    settings.keepalive = reader.number("broker", "keepalive", settings.keepalive, 5, 65535);
    settings.clientId = reader.text(
        "broker", "client-id", "",
        [](const std::string &text) {
            return !text.empty() && text.size() <= MAX_CLIENT_ID && isMqttText(text);
        },
        "expected 1 to 255 bytes");
    settings.user = reader.text("broker", "user", "", isCredential, "expected up to 65535 bytes");
    settings.password = reader.text(
        "broker", "password", "",
        [](const std::string &text) { return text.size() <= MAX_CREDENTIAL; },
        "longer than 65535 bytes");
    settings.cleanSession = reader.boolean("broker", "clean-session", settings.cleanSession);
    settings.maximumQos = reader.number("broker", "maximum-qos", settings.maximumQos, 0, 2);
    if (!settings.password.empty() && settings.user.empty()) {
        reader.complain("broker", "password", "MQTT has no password without user");
        settings.password.clear();
    }
}

/** A file that is not there now may come later: it is complained about and kept. */
std::string readFileName(const Reader &reader, const std::string &path, const char *key)
{
    std::string name = reader.text(
        "tls", key, "", [](const std::string &text) { return text.starts_with('/'); },
        "expected an absolute path");
    if (!name.empty() && !isReadableFile(name)) {
        g_warning("%s: [tls] %s=%.200s cannot be read, connecting will fail", path.c_str(), key,
                  name.c_str());
    }
    return name;
}

MqttTlsSettings readTls(const Reader &reader, const std::string &path)
{
    MqttTlsSettings tls;
    tls.caFile = readFileName(reader, path, "ca-file");
    tls.certificateFile = readFileName(reader, path, "cert-file");
    tls.keyFile = readFileName(reader, path, "key-file");
    if (tls.certificateFile.empty() != tls.keyFile.empty()) {
        g_warning("%s: [tls] cert-file and key-file belong together, both are ignored",
                  path.c_str());
        tls.certificateFile.clear();
        tls.keyFile.clear();
    }
    const std::string version = reader.text(
        "tls", "min-version", "1.2",
        [](const std::string &text) { return text == "1.2" || text == "1.3"; },
        "expected 1.2 or 1.3");
    tls.minimumVersion = "tlsv" + version;
    // With a wrong value for "enabled", a device that is set up for encryption must not go and
    // send its password in the clear.
    const bool mentioned = reader.has("tls", "ca-file") || reader.has("tls", "cert-file") ||
                           reader.has("tls", "key-file") || reader.has("tls", "min-version");
    tls.enabled = reader.boolean("tls", "enabled", mentioned);
    return tls;
}

std::optional<MqttWillSettings> readWill(const Reader &reader, const std::string &prefix,
                                         const std::string &path)
{
    const bool usePrefix = reader.boolean("will", "use-device-topic-prefix", false);
    const auto isTopic = [&](const std::string &text) {
        return mqtt::checkTopic(text, mqtt::withPrefix(prefix, text, usePrefix)).ok();
    };
    const std::string topic =
        reader.text("will", "topic", "", isTopic, "expected a topic without wildcards");
    MqttWillSettings will;
    will.topic = mqtt::withPrefix(prefix, topic, usePrefix);
    will.payload = reader.text(
        "will", "payload", "",
        [](const std::string &text) { return text.size() <= mqtt::MAX_TOPIC; },
        "longer than 65535 bytes");
    will.qos = reader.number("will", "qos", will.qos, 0, 2);
    will.retain = reader.boolean("will", "retain", will.retain);
    if (!topic.empty()) {
        return will;
    }
    if (reader.has("will", "payload") && !reader.has("will", "topic")) {
        g_warning("%s: [will] has no topic, there will be no last will", path.c_str());
    }
    return std::nullopt;
}

void readQueue(const Reader &reader, MqttSettings &settings)
{
    constexpr long long MAX_MESSAGES = 1'000'000;
    constexpr long long MIN_BYTES = 64LL * 1024;
    constexpr long long MAX_BYTES = 1024LL * 1024 * 1024;
    settings.queueMessages =
        reader.number("queue", "messages", settings.queueMessages, 1, MAX_MESSAGES);
    settings.queueBytes =
        reader.number("queue", "bytes", settings.queueBytes, MIN_BYTES, MAX_BYTES);
    settings.inboundMessages =
        reader.number("queue", "inbound-messages", settings.inboundMessages, 1, MAX_MESSAGES);
    settings.inboundBytes =
        reader.number("queue", "inbound-bytes", settings.inboundBytes, MIN_BYTES, MAX_BYTES);
}

/** Content of the file; false with a warning (unless there is no file) when it cannot be had. */
bool readFile(const std::string &path, std::string &content)
{
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        if (errno != ENOENT) {
            g_warning("%s cannot be read: %s", path.c_str(), g_strerror(errno));
        }
        return false;
    }
    if (!S_ISREG(status.st_mode) || static_cast<std::size_t>(status.st_size) > MAX_FILE) {
        g_warning("%s is not a file or too large, using the defaults", path.c_str());
        return false;
    }
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        g_warning("%s cannot be read: %s", path.c_str(), g_strerror(errno));
        return false;
    }
    content.assign(std::istreambuf_iterator<char>(file), {});
    return true;
}

/** GLib's own message would quote the line, which may be the one with the password. */
void complainAboutSyntax(const std::string &path, const std::string &content)
{
    std::size_t line = 1;
    std::size_t start = 0;
    bool inGroup = false;
    while (start < content.size()) {
        const std::size_t end = std::min(content.find('\n', start), content.size());
        const Text text(g_strstrip(g_strndup(content.data() + start, end - start)), g_free);
        const bool opensGroup = *text == '[' && strchr(text.get(), ']') != nullptr;
        const bool hasValue = inGroup && strchr(text.get(), '=') > text.get();
        if (*text != '\0' && *text != '#' && !opensGroup && !hasValue) {
            break;
        }
        inGroup = inGroup || opensGroup;
        start = end + 1;
        ++line;
    }
    g_warning("%s is not a key file (line %zu), using the defaults", path.c_str(), line);
}

void warnAboutReadablePassword(const std::string &path, const MqttSettings &settings)
{
    struct stat status {};
    if (!settings.password.empty() && stat(path.c_str(), &status) == 0 &&
        (status.st_mode & S_IROTH) != 0) {
        g_warning("%s contains a password and can be read by everyone", path.c_str());
    }
}

} // namespace

std::string mqttSettingsFile()
{
    const char *path = g_getenv("NORQ_MQTT_CONF");
    return path != nullptr ? path : "/etc/norq/mqtt.conf";
}

MqttSettings loadMqttSettings(const std::string &path)
{
    MqttSettings settings;
    settings.deviceTopicPrefix = "norq/" + serialNumber();
    std::string content;
    if (!readFile(path, content)) {
        return settings;
    }
    const KeyFile file(g_key_file_new(), g_key_file_free);
    if (!content.empty() && !g_key_file_load_from_data(file.get(), content.data(), content.size(),
                                                       G_KEY_FILE_NONE, nullptr)) {
        complainAboutSyntax(path, content);
        return settings;
    }
    const Reader reader(path, file.get());
    reader.complainAboutUnknown();
    settings.active = reader.boolean("client", "active", settings.active);
    settings.deviceTopicPrefix = reader.text(
        "client", "device-topic-prefix", settings.deviceTopicPrefix, isPrefix,
        "expected up to 255 bytes without wildcards, no slash or $ in front, no slash at the end");
    settings.tls = readTls(reader, path);
    readBroker(reader, settings);
    settings.will = readWill(reader, settings.deviceTopicPrefix, path);
    readQueue(reader, settings);
    warnAboutReadablePassword(path, settings);
    return settings;
}

} // namespace norq
