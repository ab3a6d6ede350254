/** What is known about the device and the settings of its MQTT client. */
#pragma once

#include "settings/mqtt_settings.h"

#include <sys/stat.h>

#include <optional>
#include <string>

namespace norq::device {

/** Everything that the services tell, apart from the state of the MQTT client. */
struct DeviceFacts {
    std::string serialNumber;
    std::string model;
    std::string firmwareVersion;
    std::string operatingSystem;
    std::string kernel;
    std::string architecture;
    MqttSettings mqtt;
};

/** Which content a file has, as far as that can be told without reading it. */
class FileStamp {
public:
    /** The file at `path` now; it need not exist. */
    static FileStamp of(const std::string &path);

    /**
     * Whether a file with this stamp surely has the content that it had when `before` was taken.
     * Not sure is a file that was changed just before: its times may not tell another change.
     */
    [[nodiscard]] bool provesSameAs(const FileStamp &before) const;

private:
    struct stat status {}; // all zero without a file
    timespec taken{};
};

/**
 * The facts, read again when a settings file has changed. So a changed setting holds for the next
 * call, a wrong one is logged once and not for each call, and nobody needs to watch the files.
 * One thread.
 */
class FactsReader {
public:
    /** The facts as they are now; valid until the next call. */
    const DeviceFacts &current();

private:
    struct Snapshot {
        FileStamp deviceSettings;
        FileStamp mqttSettings;
        DeviceFacts facts;
    };

    std::optional<Snapshot> snapshot;
};

} // namespace norq::device
