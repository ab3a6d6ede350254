/** Stands in for the device's MQTT client library: records calls and answers as scripted. */
#pragma once

#include <norq/mqtt_messaging.h>

#include <functional>
#include <optional>
#include <string>

namespace tovrel::test {

/**
 * The scripted library. Its calls are recorded as "MQTTMsg_... argument argument ...", flags as 0
 * or 1, except for the pure functions on topics. To be set up before calls come from other threads.
 */
struct FakeMqtt {
    /** Result of a call that failCall() lets fail. */
    int failureResult = MQTTMSG_FAILED;
    /** Error text of such a call; none: left unset. */
    std::optional<std::string> failureText = "scripted failure";
    /** What MQTTMsg_topic_matches() answers; by default '+' and '#' stand for levels. */
    std::function<bool(const char *topicFilter, const char *topic)> topicMatches;
    /** Runs inside every MQTTMsg_publish(), before it answers. */
    std::function<void()> onPublish;

    /** Gives a message to the callback of the living handle, as the library would. */
    void deliver(const char *topic, bool devicePrefix, const std::string &payload) const;

    /** Number of handles that were created and not deleted. */
    int livingHandles = 0;
    MQTTMsg_message_callback callback = nullptr;
    void *userData = nullptr;
};

/** The one library of the process. */
FakeMqtt &fakeMqtt();

/** Puts the library back to its first state. */
void resetFakeMqtt();

} // namespace tovrel::test
