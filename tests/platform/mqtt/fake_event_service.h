/** Stands in for the event library: records what the MQTT client announces. */
#pragma once

#include <string>
#include <vector>

namespace mqtt_test {

/** What was announced, as seen from a test. All functions may be called on any thread. */
class FakeEventService {
public:
    struct Status {
        bool active;
        bool connected;
        bool operator==(const Status &) const = default;
    };

    /** Forgets everything and works again. */
    static void reset();
    /** All that was sent successfully, in order. */
    static std::vector<Status> sent();
    /** The declared keys as "key=value namespace" or "key:type tags", the property key with "!". */
    static std::vector<std::string> declaredKeys();
    /** Makes sending fail from now on, or work again. */
    static void setAway(bool away);
    /** Makes sending wait as long as the producer's time-out allows, and fail. */
    static void setStuck(bool stuck);
    /** Tries to send so far, failed ones included. */
    static int attempts();
    /** Producers that exist. */
    static int producers();
};

} // namespace mqtt_test
