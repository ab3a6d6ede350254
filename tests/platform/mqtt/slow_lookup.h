/** A name server that does not answer: lookups of the host "slow.test" wait. */
#pragma once

namespace mqtt_test {

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
