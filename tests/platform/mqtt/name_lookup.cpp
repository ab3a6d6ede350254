#include "platform/mqtt/name_lookup.h"

#include <dlfcn.h>
#include <netdb.h>

#include <condition_variable>
#include <mutex>
#include <string_view>

namespace {

struct Gate {
    std::mutex mutex; // guards all below
    std::condition_variable changed;
    bool closed = false;
    int waiting = 0;
};

/** Never destroyed: a lookup may outlast the test. */
Gate &gate()
{
    static auto *const instance = new Gate;
    return *instance;
}

using LookupFunction = decltype(&getaddrinfo);

} // namespace

/** Takes the place of the C library's function for the whole test program. */
extern "C" int getaddrinfo(const char *node, const char *service, const addrinfo *hints,
                           addrinfo **result)
{
    if (node != nullptr && std::string_view(node) == "slow.test") {
        Gate &lookups = gate();
        std::unique_lock lock(lookups.mutex);
        ++lookups.waiting;
        lookups.changed.wait(lock, [&] { return !lookups.closed; });
        --lookups.waiting;
        return EAI_NONAME;
    }
    if (node != nullptr && std::string_view(node) == mqtt_test::BROKER_NAME) {
        node = "127.0.0.1";
    }
    static const auto real = reinterpret_cast<LookupFunction>(dlsym(RTLD_NEXT, "getaddrinfo"));
    return real(node, service, hints, result);
}

namespace mqtt_test {

SlowLookup::SlowLookup()
{
    const std::lock_guard guard(gate().mutex);
    gate().closed = true;
}

SlowLookup::~SlowLookup()
{
    release();
}

int SlowLookup::waiting()
{
    const std::lock_guard guard(gate().mutex);
    return gate().waiting;
}

void SlowLookup::release()
{
    const std::lock_guard guard(gate().mutex);
    gate().closed = false;
    gate().changed.notify_all();
}

} // namespace mqtt_test
