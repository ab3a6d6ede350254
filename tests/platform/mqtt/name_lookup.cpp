#include "platform/mqtt/name_lookup.h"

#include <dlfcn.h>
#include <netdb.h>

#include <condition_variable>
#include <map>
#include <mutex>
#include <string_view>

namespace {

struct Gate {
    std::mutex mutex; // guards all below
    std::condition_variable changed;
    bool closed = false;
    int waiting = 0;
    std::map<std::string, int, std::less<>> lookups;
};

/** Never destroyed: a lookup may outlast the test. */
Gate &gate()
{
    static auto *const instance = new Gate;
    return *instance;
}

using LookupFunction = decltype(&getaddrinfo);

LookupFunction realLookup()
{
    static const auto real = reinterpret_cast<LookupFunction>(dlsym(RTLD_NEXT, "getaddrinfo"));
    return real;
}

void count(const char *node)
{
    if (node != nullptr) {
        const std::lock_guard guard(gate().mutex);
        ++gate().lookups[node];
    }
}

/** As the C library frees a list entry by entry, two lists become one. */
int lookUpDualName(const char *service, const addrinfo *hints, addrinfo **result)
{
    addrinfo *second = nullptr;
    if (const int code = realLookup()("127.0.0.1", service, hints, &second); code != 0) {
        return code;
    }
    if (const int code = realLookup()("::1", service, hints, result); code != 0) {
        freeaddrinfo(second);
        return code;
    }
    addrinfo *last = *result;
    while (last->ai_next != nullptr) {
        last = last->ai_next;
    }
    last->ai_next = second;
    return 0;
}

} // namespace

/** Takes the place of the C library's function for the whole test program. */
extern "C" int getaddrinfo(const char *node, const char *service, const addrinfo *hints,
                           addrinfo **result)
{
    count(node);
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
    if (node != nullptr && std::string_view(node) == mqtt_test::DUAL_NAME) {
        return lookUpDualName(service, hints, result);
    }
    return realLookup()(node, service, hints, result);
}

namespace mqtt_test {

int timesLookedUp(const std::string &name)
{
    const std::lock_guard guard(gate().mutex);
    return gate().lookups[name];
}

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
