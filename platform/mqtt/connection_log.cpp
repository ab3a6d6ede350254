#include "mqtt/connection_log.h"

#include <glib.h>

#include <utility>

namespace norq::mqtt {

ConnectionLog::ConnectionLog(std::string broker) : brokerName(std::move(broker)) {}

void ConnectionLog::connected()
{
    failing = false;
    g_info("MQTT: connected to %s", brokerName.c_str());
}

void ConnectionLog::disconnected(const std::string &reason)
{
    g_warning("MQTT: disconnected from %s: %s", brokerName.c_str(), reason.c_str());
}

void ConnectionLog::attemptFailed(const std::string &reason)
{
    if (!failing) {
        g_warning("MQTT: cannot connect to %s: %s; trying again until it works", brokerName.c_str(),
                  reason.c_str());
    }
    failing = true;
}

void ConnectionLog::subscriptionRefused(const std::string &filter)
{
    g_warning("MQTT: %s refused the subscription of \"%s\"", brokerName.c_str(), filter.c_str());
}

} // namespace norq::mqtt
