#include "tovrelctl/service.h"

#include "interfaces/sd_bus_handles.h"
#include "tovrelctl/failure.h"

#include <array>
#include <cerrno>
#include <string_view>

namespace tovrelctl {

namespace {

using tovrel::BusError;
using tovrel::BusMessage;
using tovrel::OutParameter;

constexpr const char *API = "tovrel";
constexpr int MAJOR_VERSION = 2;

/** The service answers with this when it made no answer of the request. */
constexpr std::string_view SERVICE_ERROR = "com.norq.Tovrel1.InternalError";

/** What a D-Bus error tells a person. */
struct Explanation {
    std::string_view name;
    const char *text;
};

constexpr std::array EXPLANATIONS{
    Explanation{SD_BUS_ERROR_SERVICE_UNKNOWN,
                "there is no tovrel on this device: install it, or its file for activation by "
                "the system bus"},
    Explanation{SD_BUS_ERROR_NAME_HAS_NO_OWNER,
                "tovrel does not run, and the system bus does not know how to start it"},
    Explanation{SD_BUS_ERROR_ACCESS_DENIED,
                "the system bus does not let this user call tovrel: see its policy, or try as "
                "root"},
    Explanation{SD_BUS_ERROR_NO_REPLY, "tovrel did not answer"},
    Explanation{SD_BUS_ERROR_TIMEOUT, "tovrel did not answer in time"},
    Explanation{SD_BUS_ERROR_UNKNOWN_METHOD,
                "what owns tovrel's name on the system bus is another program, or too old"},
};

std::string explain(const sd_bus_error &error, int result)
{
    const std::string_view name = error.name == nullptr ? "" : error.name;
    std::string text = "tovrel cannot be reached";
    for (const Explanation &known : EXPLANATIONS) {
        if (name == known.name) {
            text = known.text;
        }
    }
    const char *const detail = error.message != nullptr ? error.message : g_strerror(-result);
    return text + " (" + detail + ").\nMore: systemctl status tovrel, journalctl -u tovrel";
}

Json describe(const Request &request)
{
    Json object = owned(json_object());
    put(object.get(), "api", textValue(API));
    put(object.get(), "version", owned(json_integer(MAJOR_VERSION)));
    put(object.get(), "operation", textValue(request.operation));
    Json path = owned(json_array());
    for (const std::string &step : request.path) {
        append(path.get(), textValue(step));
    }
    put(object.get(), "path", std::move(path));
    if (request.data) {
        put(object.get(), "data", share(request.data.get()));
    }
    Json options = owned(json_object());
    put(options.get(), "importType", textValue(request.replace ? "replace" : "merge"));
    put(options.get(), "omitReadOnly", owned(json_boolean(request.omitReadOnly)));
    put(object.get(), "options", std::move(options));
    return object;
}

} // namespace

Service::Service()
{
    const int result = sd_bus_open_system(OutParameter(bus));
    if (result < 0) {
        throw Unreachable(std::string("there is no system bus to be reached (") +
                          g_strerror(-result) + ")");
    }
}

std::string Service::handleRequest(const std::string &text)
{
    BusError error;
    BusMessage reply;
    int result = sd_bus_call_method(bus.get(), "com.norq.Tovrel1", "/com/norq/Tovrel1",
                                    "com.norq.Mirel.Backend1", "HandleRequest", error.slot(),
                                    OutParameter(reply), "s", text.c_str());
    if (result < 0) {
        if (error.slot()->name != nullptr && error.slot()->name == SERVICE_ERROR) {
            throw Failure(std::string("tovrel could not process the request: ") + error.message());
        }
        throw Unreachable(explain(*error.slot(), result));
    }
    const char *answer = nullptr;
    result = sd_bus_message_read(reply.get(), "s", &answer);
    if (result < 0) {
        throw Failure("tovrel's answer is no text");
    }
    return answer;
}

Json Service::request(const Request &request)
{
    const std::string text = handleRequest(dump(describe(request).get(), false));
    const Json answer(json_loads(text.c_str(), 0, nullptr));
    if (const json_t *const error = json_object_get(answer.get(), "error")) {
        throw Refused(static_cast<int>(json_integer_value(json_object_get(error, "code"))),
                      textOf(error, "message"));
    }
    json_t *const data = json_object_get(answer.get(), "data");
    if (data == nullptr) {
        throw Failure("tovrel's answer has neither data nor an error: " + text);
    }
    return share(data);
}

std::optional<std::map<std::string, std::string>> Service::mqttStatus()
{
    BusError error;
    BusMessage reply;
    if (sd_bus_call_method(bus.get(), "com.norq.MQTTMessagingService1",
                           "/com/norq/MQTTMessagingService1", "com.norq.MQTTMessagingService1",
                           "GetDefaultStatus", error.slot(), OutParameter(reply), "") < 0 ||
        sd_bus_message_enter_container(reply.get(), SD_BUS_TYPE_ARRAY, "{ss}") < 0) {
        return std::nullopt;
    }
    std::map<std::string, std::string> status;
    const char *name = nullptr;
    const char *value = nullptr;
    while (sd_bus_message_read(reply.get(), "{ss}", &name, &value) > 0) {
        status.emplace(name, value);
    }
    return status;
}

} // namespace tovrelctl
