/** Under which name a handle connects. */
#pragma once

#include <string>

namespace norq::mqtt {

/**
 * The client id without one in the settings: stable for the device and the program, and another
 * one for each program, as a broker ends a connection when its id connects again.
 */
std::string deriveClientId();

/** A client id that no other handle of the process uses. Not thread-safe by itself. */
class ClientIdLease {
public:
    ClientIdLease() = default;
    /** Gives it back. */
    ~ClientIdLease();
    ClientIdLease(const ClientIdLease &) = delete;
    ClientIdLease &operator=(const ClientIdLease &) = delete;

    /** Takes `wish`, or the first free one of `wish`-2, `wish`-3, ...; to be called once. */
    void take(const std::string &wish);
    [[nodiscard]] const std::string &value() const { return id; }

private:
    std::string id;
};

} // namespace norq::mqtt
