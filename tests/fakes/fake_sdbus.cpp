#include "fakes/fake_sdbus.h"

#include "fakes/call_record.h"

#include <cstdarg>
#include <cstdint>
#include <cstring>

namespace tovrel::test {

namespace {

/** Places with an address of their own to hand out as the library's objects. */
int busPlace;
int loopPlace;
int replyPlace;

std::string text(const char *value)
{
    return value != nullptr ? value : "(null)";
}

} // namespace

FakeSdBus &FakeSdBus::instance()
{
    static FakeSdBus fake;
    return fake;
}

int FakeSdBus::note(const std::string &function, const std::string &arguments, int success)
{
    recordCall(arguments.empty() ? function : function + " " + arguments);
    const auto scripted = results.find(function);
    return scripted != results.end() ? scripted->second : success;
}

int FakeSdBus::callHandler(const Handler &handler)
{
    return handler.function(nullptr, handler.userData, nullptr);
}

sd_bus *FakeSdBus::bus()
{
    return reinterpret_cast<sd_bus *>(&busPlace);
}

sd_event *FakeSdBus::loop()
{
    return reinterpret_cast<sd_event *>(&loopPlace);
}

sd_bus_message *FakeSdBus::reply()
{
    return reinterpret_cast<sd_bus_message *>(&replyPlace);
}

} // namespace tovrel::test

using tovrel::test::FakeSdBus;
using tovrel::test::text;

namespace {

FakeSdBus &fake()
{
    return FakeSdBus::instance();
}

} // namespace

extern "C" {

int sd_bus_default_system(sd_bus **bus)
{
    const int result = fake().note("sd_bus_default_system", "", 1);
    if (result >= 0) {
        *bus = fake().bus();
    }
    return result;
}

int sd_bus_add_object_vtable(sd_bus * /*bus*/, sd_bus_slot ** /*slot*/, const char *path,
                             const char *interface, const sd_bus_vtable *entries, void *userData)
{
    // Each interface has its own answer, so that either registration can fail alone.
    const int result = fake().note(std::string("sd_bus_add_object_vtable ") + interface, path, 0);
    if (result >= 0) {
        fake().tables.push_back({path, interface, entries, userData});
    }
    return result;
}

int sd_bus_request_name(sd_bus * /*bus*/, const char *name, uint64_t flags)
{
    return fake().note("sd_bus_request_name", text(name) + " flags " + std::to_string(flags), 1);
}

int sd_bus_release_name_async(sd_bus * /*bus*/, sd_bus_slot ** /*slot*/, const char *name,
                              sd_bus_message_handler_t callback, void *userData)
{
    fake().released = {callback, userData};
    return fake().note("sd_bus_release_name_async", text(name), 1);
}

int sd_bus_attach_event(sd_bus * /*bus*/, sd_event *loop, int priority)
{
    const std::string which = loop == fake().loop() ? "default-loop" : "other-loop";
    return fake().note("sd_bus_attach_event", which + " priority " + std::to_string(priority), 0);
}

int sd_bus_match_signal(sd_bus * /*bus*/, sd_bus_slot ** /*slot*/, const char *sender,
                        const char *path, const char *interface, const char *member,
                        sd_bus_message_handler_t callback, void *userData)
{
    fake().matched = {callback, userData};
    return fake().note("sd_bus_match_signal",
                       text(sender) + " " + text(path) + " " + text(interface) + " " + text(member),
                       1);
}

int sd_bus_get_property_string(sd_bus * /*bus*/, const char *destination, const char *path,
                               const char *interface, const char *member, sd_bus_error *error,
                               char **value)
{
    const int result = fake().note("sd_bus_get_property_string",
                                   text(destination) + " " + text(path) + " " + text(interface) +
                                       " " + text(member) + (error ? " error" : " no-error"),
                                   0);
    if (result >= 0 && fake().property) {
        *value = strdup(fake().property->c_str());
    }
    return result;
}

int sd_bus_call_method(sd_bus * /*bus*/, const char *destination, const char *path,
                       const char *interface, const char *member, sd_bus_error *error,
                       sd_bus_message **reply, const char *types, ...)
{
    const int result = fake().note("sd_bus_call_method",
                                   text(destination) + " " + text(path) + " " + text(interface) +
                                       " " + text(member) + " " + text(types),
                                   1);
    if (result < 0) {
        if (fake().errorMessage) {
            error->name = strdup("com.example.Error");
            error->message = strdup(fake().errorMessage->c_str());
        }
        ++fake().errorsToFree;
        return result;
    }
    *reply = fake().reply();
    ++fake().replyReferences;
    return result;
}

sd_bus_message *sd_bus_message_unref(sd_bus_message * /*message*/)
{
    fake().note("sd_bus_message_unref", "", 0);
    --fake().replyReferences;
    return nullptr;
}

void sd_bus_error_free(sd_bus_error *error)
{
    fake().note("sd_bus_error_free", "", 0);
    fake().errorsToFree = 0;
    free(const_cast<char *>(error->name));    // NOLINT(cppcoreguidelines-no-malloc): strdup's
    free(const_cast<char *>(error->message)); // NOLINT(cppcoreguidelines-no-malloc): strdup's
    *error = SD_BUS_ERROR_NULL;
}

int sd_bus_message_enter_container(sd_bus_message * /*message*/, char type, const char *contents)
{
    const bool inside = type == SD_BUS_TYPE_ARRAY || fake().nextEntry < fake().replyEntries.size();
    return fake().note(std::string("sd_bus_message_enter_container ") + type, text(contents),
                       inside ? 1 : 0);
}

int sd_bus_message_read(sd_bus_message * /*message*/, const char *types, ...)
{
    const std::size_t index = fake().nextEntry++;
    const bool readable = fake().unreadableEntry != index;
    const int result = fake().note("sd_bus_message_read", types, readable ? 1 : -EBADMSG);
    if (result > 0) {
        va_list targets;
        va_start(targets, types);
        *va_arg(targets, const char **) = fake().replyEntries.at(index).first.c_str();
        *va_arg(targets, const char **) = fake().replyEntries.at(index).second.c_str();
        va_end(targets);
    }
    return result;
}

int sd_bus_message_exit_container(sd_bus_message * /*message*/)
{
    return fake().note("sd_bus_message_exit_container", "", 1);
}

int sd_event_default(sd_event **loop)
{
    const int result = fake().note("sd_event_default", "", 1);
    if (result >= 0) {
        *loop = fake().loop();
    }
    return result;
}

int sd_event_get_fd(sd_event * /*loop*/)
{
    // Standard input: something that can be polled without opening anything.
    return fake().note("sd_event_get_fd", "", 0);
}

sd_event *sd_event_ref(sd_event *loop)
{
    fake().note("sd_event_ref", "", 0);
    ++fake().loopReferences;
    return loop;
}

sd_event *sd_event_unref(sd_event * /*loop*/)
{
    fake().note("sd_event_unref", "", 0);
    --fake().loopReferences;
    return nullptr;
}

int sd_event_prepare(sd_event * /*loop*/)
{
    return fake().note("sd_event_prepare", "", 0);
}

int sd_event_wait(sd_event * /*loop*/, uint64_t timeout)
{
    return fake().note("sd_event_wait", std::to_string(timeout), 0);
}

int sd_event_dispatch(sd_event * /*loop*/)
{
    return fake().note("sd_event_dispatch", "", 1);
}
}
