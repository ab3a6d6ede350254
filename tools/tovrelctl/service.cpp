#include "tovrelctl/service.h"

#include "interfaces/sd_bus_handles.h"
#include "tovrelctl/answer.h"
#include "tovrelctl/bus_failure.h"
#include "tovrelctl/failure.h"

#include <glib.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <string_view>

namespace tovrelctl {

namespace {

using tovrel::BusError;
using tovrel::BusMessage;
using tovrel::OutParameter;

constexpr const char *API = "tovrel";
constexpr int MAJOR_VERSION = 2;
constexpr const char *STATUS_SERVICE = "com.norq.MQTTMessagingService1";
constexpr std::chrono::seconds STATUS_LIMIT{5};

/** The service answers with this when it could make no answer of the request. */
constexpr std::string_view SERVICE_ERROR = "com.norq.Tovrel1.InternalError";

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
    if (request.property) {
        put(object.get(), "property", textValue(*request.property));
    }
    if (request.data) {
        put(object.get(), "data", share(request.data.get()));
    }
    Json options = owned(json_object());
    put(options.get(), "importType", textValue(request.replace ? "replace" : "merge"));
    put(options.get(), "omitReadOnly", owned(json_boolean(request.omitReadOnly)));
    put(object.get(), "options", std::move(options));
    return object;
}

BusMessage newCall(sd_bus *bus, const char *destination, const char *path, const char *interface,
                   const char *member)
{
    BusMessage call;
    const int result = sd_bus_message_new_method_call(bus, OutParameter(call), destination, path,
                                                      interface, member);
    if (result < 0) {
        throw explain({.number = -result});
    }
    return call;
}

void appendText(sd_bus_message *call, const std::string &text)
{
    const int result = sd_bus_message_append(call, "s", text.c_str());
    if (result == -EINVAL) {
        throw Failure("the system bus does not carry a character of the request",
                      "U+FDD0 to U+FDEF, and U+FFFE and U+FFFF of each plane, are not for "
                      "interchange.");
    }
    if (result < 0) {
        throw explain({.number = -result});
    }
}

[[noreturn]] void explainError(const sd_bus_error &error, int result, bool changes)
{
    const std::string_view name = error.name == nullptr ? "" : error.name;
    const std::string_view message = error.message == nullptr ? "" : error.message;
    if (name == SERVICE_ERROR) {
        throw Failure(
            "tovrel failed: " + std::string(message),
            std::string(changes ? "Whether it was done is not known: tovrelctl show\n" : "") +
                "See: journalctl -u tovrel");
    }
    throw explain({name, message, -result, changes});
}

} // namespace

Service::Service(std::chrono::seconds limit) : timeLimit(limit)
{
    const int result = sd_bus_open_system(OutParameter(bus));
    if (result < 0) {
        throw explainNoBus(-result);
    }
}

std::string Service::handleRequest(const Request &request)
{
    const BusMessage call = newCall(bus.get(), "com.norq.Tovrel1", "/com/norq/Tovrel1",
                                    "com.norq.Mirel.Backend1", "HandleRequest");
    appendText(call.get(), dump(describe(request).get(), false));
    BusError error;
    BusMessage reply;
    const int result =
        sd_bus_call(bus.get(), call.get(), static_cast<std::uint64_t>(timeLimit.count()),
                    error.slot(), OutParameter(reply));
    if (result < 0) {
        const bool changes = request.operation != "get" && request.operation != "listKeys";
        explainError(*error.slot(), result, changes);
    }
    const char *answer = nullptr;
    if (sd_bus_message_read(reply.get(), "s", &answer) <= 0) {
        throw Failure("tovrel's answer is no text");
    }
    return answer;
}

Json Service::request(const Request &request)
{
    return dataOf(handleRequest(request));
}

Json Service::configuration()
{
    Json document = request({.operation = "get", .omitReadOnly = true});
    requireDocument(document.get(), false);
    return document;
}

std::optional<std::map<std::string, std::string>> Service::mqttStatus()
{
    const BusMessage call = newCall(bus.get(), STATUS_SERVICE, "/com/norq/MQTTMessagingService1",
                                    STATUS_SERVICE, "GetDefaultStatus");
    const std::chrono::microseconds limit =
        std::min(timeLimit, std::chrono::microseconds(STATUS_LIMIT));
    BusError error;
    BusMessage reply;
    int result = sd_bus_call(bus.get(), call.get(), static_cast<std::uint64_t>(limit.count()),
                             error.slot(), OutParameter(reply));
    if (result < 0) {
        return std::nullopt;
    }
    result = sd_bus_message_enter_container(reply.get(), SD_BUS_TYPE_ARRAY, "{ss}");
    std::map<std::string, std::string> status;
    const char *name = nullptr;
    const char *value = nullptr;
    while (result > 0 && (result = sd_bus_message_read(reply.get(), "{ss}", &name, &value)) > 0) {
        status.emplace(name, value);
    }
    return result < 0 ? std::nullopt : std::optional(status);
}

} // namespace tovrelctl
