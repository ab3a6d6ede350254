/** Exceptions that cross the borders between the service's layers. Each carries only its message.
 */
#pragma once

#include <exception>
#include <stdexcept>
#include <string>
#include <utility>

namespace tovrel {

/** A failure of the system bus connection or of a message on it. */
class SdBusException : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/** An operation of the bridge needs a collaborator that is not there. */
class EventBridgeException : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/** An MQTT-to-event item or its id is invalid, or the items could not be stored. */
class SubscribeConfigException : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/** An item or a free id does not exist. */
class NoSuchConfigException : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/** An event-to-MQTT item, id or retain policy is invalid. */
class ConfigException : public std::exception {
public:
    explicit ConfigException(std::string text) : message(std::move(text)) {}
    const char *what() const noexcept override { return message.c_str(); }

private:
    std::string message;
};

} // namespace tovrel
