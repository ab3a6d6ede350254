/** What the service asks other services of the device over its own bus connection. */
#include "core/bus_fields.h"
#include "core/dbus_handler.h"
#include "interfaces/log.h"
#include "interfaces/sd_bus_handles.h"

#include <string_view>

namespace tovrel {

namespace {

constexpr const char *DEVICE_INFO_SERVICE = "com.norq.BasicDeviceInfo1";
constexpr const char *DEVICE_INFO_PATH = "/com/norq/BasicDeviceInfo1";
constexpr const char *DEVICE_INFO_INTERFACE = "com.norq.Configuration.Legacy";

constexpr const char *MESSAGING_SERVICE = "com.norq.MQTTMessagingService1";
constexpr const char *MESSAGING_PATH = "/com/norq/MQTTMessagingService1";

constexpr const char *NO_SERIAL = "no_serial";
constexpr std::string_view PREFIX_KEY = "deviceTopicPrefix";

/** Value of the last entry under `PREFIX_KEY` in a reply of string pairs, empty without one. */
std::string findPrefix(sd_bus_message *reply)
{
    int result = sd_bus_message_enter_container(reply, SD_BUS_TYPE_ARRAY, "{ss}");
    if (result < 0) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sFailed to open DBus array: %s", LOG_PREFIX,
                   g_strerror(-result));
    }

    std::string prefix;
    // Ends for any reply, also when entries cannot be left: each turn reads two more texts of it.
    while (sd_bus_message_enter_container(reply, SD_BUS_TYPE_DICT_ENTRY, "ss") > 0) {
        std::string key;
        std::string value;
        if (readFields(reply, key, value) <= 0) {
            tovrel_log(LOG_LEVEL_FAILURE, "%sFailed to read key-value pair", LOG_PREFIX);
            break;
        }
        if (key == PREFIX_KEY) {
            prefix = value;
        }
        result = sd_bus_message_exit_container(reply);
        if (result < 0) {
            tovrel_log(LOG_LEVEL_FAILURE, "%sFailed to exit container (variant): %s", LOG_PREFIX,
                       g_strerror(-result));
        }
    }
    return prefix;
}

} // namespace

std::string DbusHandler::getSerialNumber()
{
    MallocText serial;
    const int result = sd_bus_get_property_string(bus, DEVICE_INFO_SERVICE, DEVICE_INFO_PATH,
                                                  DEVICE_INFO_INTERFACE, "SerialNumber", nullptr,
                                                  OutParameter(serial));
    if (result < 0 || serial == nullptr) {
        tovrel_log(LOG_LEVEL_FAILURE, "%sfailed to call method!: %s", LOG_PREFIX,
                   g_strerror(-result));
        return NO_SERIAL;
    }
    return serial.get();
}

std::string DbusHandler::getDeviceTopicPrefix()
{
    BusError error;
    BusMessage reply;
    const int result =
        sd_bus_call_method(bus, MESSAGING_SERVICE, MESSAGING_PATH, MESSAGING_SERVICE,
                           "GetDefaultStatus", error.slot(), OutParameter(reply), nullptr);
    if (result < 0) {
        const char *message = error.message();
        tovrel_log(LOG_LEVEL_WARN, "%sCould not retrieve Device Topic Prefix: %s", LOG_PREFIX,
                   message != nullptr ? message : "Unknown error");
        return {};
    }
    return findPrefix(reply.get());
}

} // namespace tovrel
