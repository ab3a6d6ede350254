/**
 * Plays the service for its clients: has its name on the system bus, and does with each request
 * what an argument says, the last argument with all that follow.
 *
 *   answer:TEXT          answers with the text
 *   blanks:COUNT         answers with a text of so many blanks
 *   error:NAME:MESSAGE   answers with a D-Bus error
 *   number               answers with a number, which is no answer
 *   silence              does not answer
 *   end                  ends without an answer
 *
 * Writes "ready" when it has the name, then each request on a line.
 */
#include "service_calls.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

namespace {

struct Script {
    std::vector<std::string> reactions;
    std::size_t next = 0;

    std::string take()
    {
        const std::string reaction = reactions.at(next);
        next += next + 1 < reactions.size() ? 1 : 0;
        return reaction;
    }
};

/** The text up to the first colon, and behind it. */
std::pair<std::string, std::string> split(const std::string &text)
{
    const std::size_t colon = text.find(':');
    return colon == std::string::npos ? std::pair(text, std::string())
                                      : std::pair(text.substr(0, colon), text.substr(colon + 1));
}

int react(sd_bus_message *call, const std::string &reaction)
{
    const auto [what, rest] = split(reaction);
    if (what == "answer") {
        return sd_bus_reply_method_return(call, "s", rest.c_str());
    }
    if (what == "blanks") {
        const std::string blanks(std::stoul(rest), ' ');
        return sd_bus_reply_method_return(call, "s", blanks.c_str());
    }
    if (what == "error") {
        const auto [name, message] = split(rest);
        return sd_bus_reply_method_errorf(call, name.c_str(), "%s", message.c_str());
    }
    if (what == "number") {
        return sd_bus_reply_method_return(call, "u", 42U);
    }
    if (what == "silence") {
        return 1;
    }
    std::_Exit(0);
}

int onCall(sd_bus_message *call, void *data, sd_bus_error * /*error*/)
{
    if (sd_bus_message_is_method_call(call, nullptr, "HandleRequest") <= 0) {
        return 0;
    }
    const char *request = nullptr;
    clients::require(sd_bus_message_read(call, "s", &request), "request");
    std::puts(request);
    std::fflush(stdout);
    return clients::require(react(call, static_cast<Script *>(data)->take()), "answer") + 1;
}

} // namespace

int main(int argc, char *argv[])
{
    Script script{{argv + 1, argv + argc}};
    const clients::Event loop = clients::openEventLoop();
    const clients::Bus bus = clients::openBus(loop.get());
    clients::require(sd_bus_add_object(bus.get(), nullptr, "/com/norq/Tovrel1", onCall, &script),
                     "object");
    clients::require(sd_bus_request_name(bus.get(), clients::SERVICE_NAME, 0), "name");
    std::puts("ready");
    std::fflush(stdout);
    return clients::require(sd_event_loop(loop.get()), "event loop");
}
