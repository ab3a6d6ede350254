#include "unit/core/failing_sd_bus.h"

#include <systemd/sd-bus.h>

#include <cstdarg>
#include <optional>

namespace tovrel::test {

namespace {

struct Failure {
    std::string function;
    int result = 0;
    int callsUntil = 0;
};

thread_local std::optional<Failure> pending;

struct Replacement {
    std::string text;
    int readingsUntil = 0;
};

thread_local Replacement replacement; // what was read points to the text for as long as it is used

/** The result that this call is to fail with, or nothing. */
std::optional<int> failureOf(const char *function)
{
    if (!pending || pending->function != function || --pending->callsUntil > 0) {
        return {};
    }
    const int result = pending->result;
    pending.reset();
    return result;
}

/** The text that this reading is to give, or null for what stands in the message. */
const char *replacementText()
{
    if (replacement.readingsUntil == 0 || --replacement.readingsUntil > 0) {
        return nullptr;
    }
    return replacement.text.c_str();
}

} // namespace

void failSdBus(const std::string &function, int result, int number)
{
    pending = Failure{function, result, number};
}

bool sdBusFailurePending()
{
    return pending.has_value();
}

void replaceReadText(const std::string &text, int number)
{
    replacement = {text, number};
}

} // namespace tovrel::test

using tovrel::test::failureOf;
using tovrel::test::replacementText;

extern "C" {

int __real_sd_bus_message_enter_container(sd_bus_message *message, char type, const char *contents);
int __real_sd_bus_message_exit_container(sd_bus_message *message);
int __real_sd_bus_message_open_container(sd_bus_message *message, char type, const char *contents);
int __real_sd_bus_message_close_container(sd_bus_message *message);
int __real_sd_bus_message_new_method_return(sd_bus_message *call, sd_bus_message **message);

int __wrap_sd_bus_message_enter_container(sd_bus_message *message, char type, const char *contents)
{
    const auto failure = failureOf("sd_bus_message_enter_container");
    return failure ? *failure : __real_sd_bus_message_enter_container(message, type, contents);
}

int __wrap_sd_bus_message_exit_container(sd_bus_message *message)
{
    const auto failure = failureOf("sd_bus_message_exit_container");
    return failure ? *failure : __real_sd_bus_message_exit_container(message);
}

int __wrap_sd_bus_message_open_container(sd_bus_message *message, char type, const char *contents)
{
    const auto failure = failureOf("sd_bus_message_open_container");
    return failure ? *failure : __real_sd_bus_message_open_container(message, type, contents);
}

int __wrap_sd_bus_message_close_container(sd_bus_message *message)
{
    const auto failure = failureOf("sd_bus_message_close_container");
    return failure ? *failure : __real_sd_bus_message_close_container(message);
}

int __wrap_sd_bus_message_new_method_return(sd_bus_message *call, sd_bus_message **message)
{
    const auto failure = failureOf("sd_bus_message_new_method_return");
    return failure ? *failure : __real_sd_bus_message_new_method_return(call, message);
}

int __wrap_sd_bus_message_read(sd_bus_message *message, const char *types, ...)
{
    if (const auto failure = failureOf("sd_bus_message_read")) {
        return *failure;
    }
    va_list arguments;
    va_start(arguments, types);
    const int result = sd_bus_message_readv(message, types, arguments);
    va_end(arguments);
    if (const char *const text = replacementText()) {
        va_start(arguments, types);
        *va_arg(arguments, const char **) = text;
        va_end(arguments);
    }
    return result;
}

int __wrap_sd_bus_message_append(sd_bus_message *message, const char *types, ...)
{
    if (const auto failure = failureOf("sd_bus_message_append")) {
        return *failure;
    }
    va_list arguments;
    va_start(arguments, types);
    const int result = sd_bus_message_appendv(message, types, arguments);
    va_end(arguments);
    return result;
}

} // extern "C"
