#include "device/device_facts.h"

#include "settings/device_identity.h"

#include <glib.h>
#include <sys/utsname.h>

#include <ctime>
#include <memory>

namespace norq::device {

namespace {

/** Coarser than the clock of any file system's times. */
constexpr time_t CERTAIN_AFTER_SECONDS = 3;

std::string osInfo(const char *key)
{
    const std::unique_ptr<char, decltype(&g_free)> text(g_get_os_info(key), g_free);
    return text ? text.get() : "";
}

DeviceFacts readFacts()
{
    utsname kernel{};
    uname(&kernel);
    return {.serialNumber = serialNumber(),
            .model = deviceModel(),
            .firmwareVersion = osInfo("IMAGE_VERSION"),
            .operatingSystem = osInfo(G_OS_INFO_KEY_PRETTY_NAME),
            .kernel = static_cast<const char *>(kernel.release),
            .architecture = static_cast<const char *>(kernel.machine),
            .mqtt = loadMqttSettings()};
}

bool sameTime(const timespec &a, const timespec &b)
{
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

} // namespace

FileStamp FileStamp::of(const std::string &path)
{
    FileStamp stamp;
    clock_gettime(CLOCK_REALTIME, &stamp.taken);
    if (stat(path.c_str(), &stamp.status) != 0) {
        stamp.status = {};
    }
    return stamp;
}

bool FileStamp::provesSameAs(const FileStamp &before) const
{
    const bool equal =
        status.st_dev == before.status.st_dev && status.st_ino == before.status.st_ino &&
        status.st_size == before.status.st_size && status.st_mode == before.status.st_mode &&
        sameTime(status.st_mtim, before.status.st_mtim) &&
        sameTime(status.st_ctim, before.status.st_ctim);
    return equal && before.status.st_ctim.tv_sec + CERTAIN_AFTER_SECONDS <= before.taken.tv_sec;
}

const DeviceFacts &FactsReader::current()
{
    const FileStamp device = FileStamp::of(deviceSettingsFile());
    const FileStamp mqtt = FileStamp::of(mqttSettingsFile());
    const bool isCurrent = snapshot && device.provesSameAs(snapshot->deviceSettings) &&
                           mqtt.provesSameAs(snapshot->mqttSettings);
    if (!isCurrent) {
        // The stamps are older than the content: a change in between is seen the next time.
        snapshot = Snapshot{device, mqtt, readFacts()};
    }
    return snapshot->facts;
}

} // namespace norq::device
