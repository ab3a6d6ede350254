/** The settings of the device's MQTT client; docs/mqtt-client.md describes the file. */
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace norq {

/** Encryption of the connection to the broker. */
struct MqttTlsSettings {
    bool enabled = false;
    /** PEM file of the authorities to trust; empty: those of the operating system. */
    std::string caFile;
    /** PEM files of the client's own certificate and key; both set or both empty. */
    std::string certificateFile;
    std::string keyFile;
    /** Oldest version to accept, as libmosquitto names it: "tlsv1.2" or "tlsv1.3". */
    std::string minimumVersion = "tlsv1.2";

    bool operator==(const MqttTlsSettings &) const = default;
};

/** The message that the broker publishes when the client is lost. */
struct MqttWillSettings {
    /** Complete topic, with the device topic prefix if the file asks for it. */
    std::string topic;
    std::string payload;
    int qos = 0;
    bool retain = false;

    bool operator==(const MqttWillSettings &) const = default;
};

/** All settings, with the defaults that hold without a file. */
struct MqttSettings {
    /** Whether the device uses MQTT at all. */
    bool active = true;
    /** What the flag "use device topic prefix" puts in front of topics; may be empty. */
    std::string deviceTopicPrefix;
    std::string host = "localhost";
    int port = 1883;
    /** Seconds, 5 or more. */
    int keepalive = 60;
    /** Empty: derived from the device and the program. */
    std::string clientId;
    std::string user;
    std::string password;
    /** False: the broker keeps subscriptions and messages while the client is away. */
    bool cleanSession = true;
    /** Highest QoS that messages are published with; a higher one that is asked for becomes this.
     */
    int maximumQos = 2;
    MqttTlsSettings tls;
    std::optional<MqttWillSettings> will;
    /** Most messages, and bytes of them, that are accepted for publication and not yet finished. */
    std::size_t queueMessages = 10'000;
    std::size_t queueBytes = 32UL * 1024 * 1024;
    /** Most received messages, and bytes of them, that wait for the main loop. */
    std::size_t inboundMessages = 4'096;
    std::size_t inboundBytes = 16UL * 1024 * 1024;

    bool operator==(const MqttSettings &) const = default;
};

/** The settings file: "/etc/norq/mqtt.conf" unless the environment variable NORQ_MQTT_CONF names
 * one. */
std::string mqttSettingsFile();

/**
 * Reads a settings file. No file is no fault: the defaults hold. Everything that is wrong is
 * logged as one warning with key and value, and the default takes its place; neither the password
 * nor a line that might contain it is ever logged. Reads small local files. Any thread.
 */
MqttSettings loadMqttSettings(const std::string &path = mqttSettingsFile());

} // namespace norq
