#include "settings/device_identity.h"

#include <glib.h>
#include <systemd/sd-id128.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <memory>

namespace norq {

namespace {

/** Firmware never gives more; whatever the file is, no more than this is read. */
constexpr std::size_t MAX_FIRMWARE_TEXT = 256;

/** Lower case. Texts of one repeated character ("0", "XXXX") are recognised by rule. */
constexpr std::array PLACEHOLDERS{
    "to be filled by o.e.m.",
    "to be filled by o.e.m",
    "to be filled in by o.e.m.",
    "default string",
    "default",
    "none",
    "null",
    "n/a",
    "na",
    "empty",
    "invalid",
    "unknown",
    "undefined",
    "not specified",
    "not available",
    "not applicable",
    "not set",
    "no serial",
    "oem",
    "o.e.m.",
    "serial",
    "serial number",
    "system serial number",
    "chassis serial number",
    "base board serial number",
    "board serial number",
    "123456789",
    "0123456789",
    "1234567890",
};

using KeyFile = std::unique_ptr<GKeyFile, decltype(&g_key_file_free)>;
using Error = std::unique_ptr<GError, decltype(&g_error_free)>;
using Text = std::unique_ptr<char, decltype(&g_free)>;

/** The characters around a serial number that do not belong to it. */
bool isPadding(char c)
{
    return c == '\0' || g_ascii_isspace(c);
}

std::string_view trimmed(std::string_view text)
{
    while (!text.empty() && isPadding(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && isPadding(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

std::string configuredSerial(const std::string &path)
{
    const KeyFile file(g_key_file_new(), g_key_file_free);
    GError *rawError = nullptr;
    if (!g_key_file_load_from_file(file.get(), path.c_str(), G_KEY_FILE_NONE, &rawError)) {
        const Error error(rawError, g_error_free);
        if (!g_error_matches(error.get(), G_FILE_ERROR, G_FILE_ERROR_NOENT)) {
            g_warning("%s cannot be read: %s", path.c_str(), error->message);
        }
        return {};
    }
    // The raw value: the getter for texts takes one that is not UTF-8 for missing.
    const Text value(g_key_file_get_value(file.get(), "device", "serial", nullptr), g_free);
    if (!value) {
        return {};
    }
    std::string serial = sanitiseSerial(value.get());
    if (serial.empty()) {
        g_warning("%s: serial is empty, looking elsewhere", path.c_str());
    } else if (serial != value.get()) {
        g_warning("%s: serial holds what a serial number must not, using \"%s\"", path.c_str(),
                  serial.c_str());
    }
    return serial;
}

/** Services of different users must agree on the serial number: a file that only root may read
 * would give root another one than the rest. */
bool everyoneMayRead(const std::string &path)
{
    std::error_code error;
    const auto permissions = std::filesystem::status(path, error).permissions();
    return !error &&
           (permissions & std::filesystem::perms::others_read) != std::filesystem::perms::none;
}

std::string firmwareSerial(const std::string &path)
{
    if (!everyoneMayRead(path)) {
        return {};
    }
    std::ifstream file(path, std::ios::binary);
    std::string text(MAX_FIRMWARE_TEXT, '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(file.gcount()));
    if (isPlaceholderSerial(text)) {
        return {};
    }
    return sanitiseSerial(text);
}

/** Derived from the machine id, which itself is confidential and must not get out. */
std::string machineSerial()
{
    // Random once; changing it changes the serial number of every device without a better source.
    const sd_id128_t applicationId =
        SD_ID128_MAKE(5c, 1f, 0d, 3a, 86, 4b, 4e, 0a, 9b, 57, e2, 71, c3, 30, 6d, a8);
    sd_id128_t id{};
    if (sd_id128_get_machine_app_specific(applicationId, &id) < 0) {
        return {};
    }
    std::array<char, SD_ID128_STRING_MAX> text{};
    return sd_id128_to_string(id, text.data());
}

} // namespace

std::string deviceSettingsFile()
{
    const char *path = g_getenv("NORQ_DEVICE_CONF");
    return path != nullptr ? path : "/etc/norq/device.conf";
}

SerialSources systemSerialSources()
{
    return {.settingsFile = deviceSettingsFile(),
            .firmwareFiles = {"/proc/device-tree/serial-number", "/sys/class/dmi/id/product_serial",
                              "/sys/class/dmi/id/board_serial"},
            .machineId = machineSerial};
}

std::string sanitiseSerial(std::string_view text)
{
    std::string serial(trimmed(text).substr(0, MAX_SERIAL_LENGTH));
    const auto unfit = [](char c) {
        return !g_ascii_isprint(c) || c == '+' || c == '#' || c == '/';
    };
    std::ranges::replace_if(serial, unfit, '-');
    serial.resize(trimmed(serial).size());
    return serial;
}

bool isPlaceholderSerial(std::string_view text)
{
    std::string lower(trimmed(text));
    std::ranges::transform(lower, lower.begin(), g_ascii_tolower);
    const auto first = [&](char c) { return c == lower.front(); };
    return std::ranges::all_of(lower, first) ||
           std::ranges::find(PLACEHOLDERS, lower) != PLACEHOLDERS.end();
}

std::string serialNumber()
{
    return serialNumber(systemSerialSources());
}

std::string serialNumber(const SerialSources &sources)
{
    std::string serial = configuredSerial(sources.settingsFile);
    for (const std::string &path : sources.firmwareFiles) {
        if (!serial.empty()) {
            return serial;
        }
        serial = firmwareSerial(path);
    }
    if (serial.empty()) {
        serial = sanitiseSerial(sources.machineId());
    }
    return serial.empty() ? UNKNOWN_SERIAL : serial;
}

} // namespace norq
