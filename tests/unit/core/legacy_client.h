/** A client of the legacy methods, on a blocking connection of its own. */
#pragma once

#include "core/bus_fields.h"
#include "interfaces/sd_bus_handles.h"
#include "unit/core/bus_neighbour.h"

#include <systemd/sd-bus.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tovrel::test {

/** An MQTT-to-event item on the wire. */
struct WireItem {
    std::string topicFilter;
    bool useDeviceTopicPrefix = false;
    std::int32_t qos = 0;
    bool isStateData = false;

    bool operator==(const WireItem &) const = default;
};

/** An event filter on the wire. */
struct WireFilter {
    std::string topicFilter;
    std::string retain;
    std::int32_t qos = 0;

    bool operator==(const WireFilter &) const = default;
};

/** An event-to-MQTT configuration on the wire. */
struct WirePublication {
    std::string topicPrefixSetting = "default";
    std::string customTopicPrefix;
    bool appendEventTopic = true;
    bool includeTopicNamespaces = true;
    bool includeSerialNumberInPayload = false;
    std::vector<WireFilter> filters;

    bool operator==(const WirePublication &) const = default;
};

/** What a call was answered with: an error, or a reply that was read. */
struct Answer {
    std::string errorName;
    std::string errorText;
    std::optional<std::int32_t> status;
    std::vector<WireItem> items;
    WirePublication publication;

    bool operator==(const Answer &) const = default;
};

inline Answer status(std::int32_t value)
{
    Answer answer;
    answer.status = value;
    return answer;
}

inline Answer internalError(const std::string &text)
{
    Answer answer;
    answer.errorName = "com.norq.Tovrel1.InternalError";
    answer.errorText = text;
    return answer;
}

/** Calls the methods under the service's name; to be used on the thread that makes it. */
class LegacyClient {
public:
    LegacyClient() { checked(sd_bus_open_system(OutParameter(bus)), "sd_bus_open_system"); }

    /** How long a call waits for its answer. */
    void waitAtMost(std::uint64_t microseconds) { patience = microseconds; }

    Answer setItems(const std::vector<WireItem> &items)
    {
        const BusMessage call = newCall("SetMQTTToEventConfig");
        checked(sd_bus_message_open_container(call.get(), 'a', "(sbib)"), "open");
        for (const WireItem &item : items) {
            checked(appendStruct(call.get(), item.topicFilter, item.useDeviceTopicPrefix, item.qos,
                                 item.isStateData),
                    "item");
        }
        checked(sd_bus_message_close_container(call.get()), "close");
        return send(call, readStatus);
    }

    Answer getItems() { return send(newCall("GetMQTTToEventConfig"), readItems); }

    Answer setPublication(const WirePublication &config)
    {
        const BusMessage call = newCall("SetEventToMQTTConfig");
        checked(appendFields(call.get(), config.topicPrefixSetting, config.customTopicPrefix,
                             config.appendEventTopic, config.includeTopicNamespaces,
                             config.includeSerialNumberInPayload),
                "settings");
        checked(sd_bus_message_open_container(call.get(), 'a', "(ssi)"), "open");
        for (const WireFilter &filter : config.filters) {
            checked(appendStruct(call.get(), filter.topicFilter, filter.retain, filter.qos),
                    "filter");
        }
        checked(sd_bus_message_close_container(call.get()), "close");
        return send(call, readStatus);
    }

    Answer getPublication() { return send(newCall("GetEventToMQTTConfig"), readPublication); }

    /** Readers of replies; they throw where the reply is of another form. */
    static void readStatus(sd_bus_message *reply, Answer &answer)
    {
        std::int32_t value = 0;
        checked(readFields(reply, value), "status");
        answer.status = value;
    }

    static void readItems(sd_bus_message *reply, Answer &answer)
    {
        checked(sd_bus_message_enter_container(reply, 'a', "(sbib)"), "enter");
        WireItem item;
        while (checked(readStruct(reply, item.topicFilter, item.useDeviceTopicPrefix, item.qos,
                                  item.isStateData),
                       "item") > 0) {
            answer.items.push_back(item);
        }
    }

    static void readPublication(sd_bus_message *reply, Answer &answer)
    {
        WirePublication &config = answer.publication;
        checked(readFields(reply, config.topicPrefixSetting, config.customTopicPrefix,
                           config.appendEventTopic, config.includeTopicNamespaces,
                           config.includeSerialNumberInPayload),
                "settings");
        checked(sd_bus_message_enter_container(reply, 'a', "(ssi)"), "enter");
        WireFilter filter;
        while (checked(readStruct(reply, filter.topicFilter, filter.retain, filter.qos), "filter") >
               0) {
            config.filters.push_back(filter);
        }
    }

private:
    using Reader = void (*)(sd_bus_message *reply, Answer &answer);

    BusMessage newCall(const char *method)
    {
        BusMessage call;
        checked(sd_bus_message_new_method_call(bus.get(), OutParameter(call), "com.norq.Tovrel1",
                                               "/com/norq/Tovrel1", "com.norq.Tovrel1", method),
                method);
        return call;
    }

    Answer send(const BusMessage &call, Reader read)
    {
        Answer answer;
        sd_bus_error error = {};
        BusMessage reply;
        if (sd_bus_call(bus.get(), call.get(), patience, &error, OutParameter(reply)) < 0) {
            answer.errorName = error.name != nullptr ? error.name : "(none)";
            answer.errorText = error.message != nullptr ? error.message : "(none)";
        } else {
            read(reply.get(), answer);
        }
        sd_bus_error_free(&error);
        return answer;
    }

    CHandle<sd_bus, sd_bus_flush_close_unref> bus;
    std::uint64_t patience = 20'000'000;
};

} // namespace tovrel::test
