#include "device/device_info_object.h"

#include "event/core/barrier.h"

#include <array>
#include <cerrno>
#include <string_view>

namespace norq::device {

namespace {

constexpr const char *PATH = "/com/norq/BasicDeviceInfo1";
constexpr const char *INTERFACE = "com.norq.Configuration.Legacy";

struct Fact {
    std::string_view property;
    std::string DeviceFacts::*text;
};

constexpr std::array FACTS{Fact{"SerialNumber", &DeviceFacts::serialNumber},
                           Fact{"Model", &DeviceFacts::model},
                           Fact{"FirmwareVersion", &DeviceFacts::firmwareVersion},
                           Fact{"OperatingSystem", &DeviceFacts::operatingSystem},
                           Fact{"Kernel", &DeviceFacts::kernel},
                           Fact{"Architecture", &DeviceFacts::architecture}};

} // namespace

const sd_bus_vtable DeviceInfoObject::PROPERTIES[] = { // NOLINT(modernize-avoid-c-arrays): above
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY("SerialNumber", "s", getProperty, 0, 0),
    SD_BUS_PROPERTY("Model", "s", getProperty, 0, 0),
    SD_BUS_PROPERTY("FirmwareVersion", "s", getProperty, 0, 0),
    SD_BUS_PROPERTY("OperatingSystem", "s", getProperty, 0, 0),
    SD_BUS_PROPERTY("Kernel", "s", getProperty, 0, 0),
    SD_BUS_PROPERTY("Architecture", "s", getProperty, 0, 0),
    SD_BUS_VTABLE_END};

int DeviceInfoObject::attach(sd_bus *bus)
{
    return sd_bus_add_object_vtable(bus, event::Out(slot), PATH, INTERFACE, PROPERTIES, this);
}

int DeviceInfoObject::getProperty(sd_bus * /*bus*/, const char * /*path*/,
                                  const char * /*interface*/, const char *name,
                                  sd_bus_message *reply, void *self, sd_bus_error * /*error*/)
{
    return event::withBarrier("Telling about the device", -ENOMEM, [&] {
        const DeviceFacts &known = static_cast<DeviceInfoObject *>(self)->facts.current();
        for (const Fact &fact : FACTS) {
            if (fact.property == name) {
                return sd_bus_message_append(reply, "s", (known.*fact.text).c_str());
            }
        }
        return -ENOENT;
    });
}

} // namespace norq::device
