#include "empty_service.h"

#include <array>
#include <cstdint>
#include <string>

namespace configuration {
namespace {

using benchmarks::checked;
using tovrel::BusMessage;

constexpr const char *PATH = "/com/norq/Benchmark1";

int onNothing(sd_bus_message *message, void * /*data*/, sd_bus_error * /*error*/) noexcept
{
    return sd_bus_reply_method_return(message, nullptr);
}

int onExchange(sd_bus_message *message, void *data, sd_bus_error * /*error*/) noexcept
{
    auto &answer = *static_cast<std::string *>(data);
    const char *request = nullptr;
    std::uint32_t length = 0;
    const int result = sd_bus_message_read(message, "su", &request, &length);
    if (result < 0) {
        return result;
    }
    answer.resize(length, 'x');
    return sd_bus_reply_method_return(message, "s", answer.c_str());
}

BusMessage newCall(sd_bus *bus, const char *method)
{
    BusMessage message;
    checked(sd_bus_message_new_method_call(bus, tovrel::OutParameter(message), benchmarks::OWN_NAME,
                                           PATH, benchmarks::OWN_NAME, method),
            method);
    return message;
}

} // namespace

void serveEmptyMethods()
{
    constexpr std::array<sd_bus_vtable, 4> METHODS{
        {SD_BUS_VTABLE_START(0),
         SD_BUS_METHOD("Nothing", "", "", onNothing, SD_BUS_VTABLE_UNPRIVILEGED),
         SD_BUS_METHOD("Exchange", "su", "s", onExchange, SD_BUS_VTABLE_UNPRIVILEGED),
         SD_BUS_VTABLE_END}};
    const benchmarks::Bus bus = benchmarks::openBus();
    std::string answer;
    checked(sd_bus_add_object_vtable(bus.get(), nullptr, PATH, benchmarks::OWN_NAME, METHODS.data(),
                                     &answer),
            "sd_bus_add_object_vtable");
    benchmarks::takeOwnName(bus.get());
    benchmarks::serve(bus.get());
}

BusMessage newEmptyCall(sd_bus *bus)
{
    return newCall(bus, "Nothing");
}

BusMessage newExchange(sd_bus *bus, std::size_t requestBytes, std::size_t answerBytes)
{
    BusMessage message = newCall(bus, "Exchange");
    checked(sd_bus_message_append(message.get(), "su", std::string(requestBytes, 'x').c_str(),
                                  static_cast<std::uint32_t>(answerBytes)),
            "Exchange");
    return message;
}

} // namespace configuration
