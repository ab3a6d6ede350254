/** Who this device is: its serial number, as every service of the platform shows it. */
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace norq {

/** Most bytes of a serial number; a longer one is cut. */
inline constexpr std::size_t MAX_SERIAL_LENGTH = 64;

/** The serial number of a device that has none at all, not even a machine id. */
inline constexpr const char *UNKNOWN_SERIAL = "unknown";

/** Where a serial number is looked for, in this order. */
struct SerialSources {
    /** Settings file with the key "serial" in the group "[device]". */
    std::string settingsFile;
    /**
     * Files that hold nothing but the serial number, as the firmware tells it. One that not
     * everyone may read is left out, so that services of different users find the same.
     */
    std::vector<std::string> firmwareFiles;
    /** An id of the installation for a device without a serial number; empty when there is none. */
    std::function<std::string()> machineId;
};

/** The settings file of the device: "/etc/norq/device.conf" unless NORQ_DEVICE_CONF names one. */
std::string deviceSettingsFile();

/** The sources of this machine: settings file, device tree, DMI, machine id. */
SerialSources systemSerialSources();

/**
 * A serial number in the form that is shown: blanks and NULs around it taken off, each byte that
 * is not printable ASCII or means something in an MQTT topic ("+", "#", "/") replaced by "-", cut
 * to MAX_SERIAL_LENGTH.
 */
std::string sanitiseSerial(std::string_view text);

/** Whether a text of the firmware only fills the field, such as "To be filled by O.E.M.". */
bool isPlaceholderSerial(std::string_view text);

/**
 * The serial number of this device, never empty. The same for as long as the sources stay as they
 * are. A settings file that cannot be read, and a value there that had to be changed, are logged
 * as warnings. Reads small local files at every call. Any thread.
 */
std::string serialNumber();

/** The same from given sources. */
std::string serialNumber(const SerialSources &sources);

} // namespace norq
