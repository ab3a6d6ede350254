/** Names of hosts that a test program knows wherever it runs, beside those of the machine. */
#pragma once

#include <string>

namespace mqtt_test {

/**
 * The address where the brokers of the tests listen, and no other: what "localhost" is, and which
 * address of it comes first, differs between machines.
 */
constexpr const char *BROKER_NAME = "broker.test";

/** A host with an IPv6 address, where none of these brokers listens, and then the one above. */
constexpr const char *DUAL_NAME = "dual.test";

/** How often a name or an address has been looked up in this process. */
int timesLookedUp(const std::string &name);

/** While it lives, lookups of "slow.test" wait until they are released; others are as usual. */
class SlowLookup {
public:
    SlowLookup();
    ~SlowLookup();
    SlowLookup(const SlowLookup &) = delete;
    SlowLookup &operator=(const SlowLookup &) = delete;

    /** Lookups that wait now. */
    static int waiting();
    /** Lets them go on; they find nothing. */
    static void release();
};

} // namespace mqtt_test
