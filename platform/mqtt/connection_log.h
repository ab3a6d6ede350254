/** What the log says about a connection: each change once, however often it is tried. */
#pragma once

#include <string>

namespace norq::mqtt {

/** I/O thread only. */
class ConnectionLog {
public:
    /** @param broker "host:port" */
    explicit ConnectionLog(std::string broker);

    void connected();
    void disconnected(const std::string &reason);
    /** An attempt failed; said once for each run of failures. */
    void attemptFailed(const std::string &reason);
    void subscriptionRefused(const std::string &filter);

private:
    std::string brokerName;
    bool failing = false;
};

} // namespace norq::mqtt
