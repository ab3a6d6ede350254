/** What calls of the legacy methods are to do and to show, worked out on what they carry. */
#pragma once

#include "unit/core/fuzz_service.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tovrel::test {

/** Whether sd-bus carries a text: it takes UTF-8 without noncharacters. */
bool isReadable(const std::string &text);
/** Whether a list can be sent with all its texts. */
bool isReadable(const std::vector<WireItem> &items);
bool isReadable(const WirePublication &publication);

/** What replacing the items comes to, as long as the bridge does its part. */
struct ItemsOutcome {
    bool applied = false;
    /** Nothing: the answer is an error. */
    std::optional<std::int32_t> status;
    SubscriptionStore::Items items;
};
ItemsOutcome expectedOutcome(const std::vector<WireItem> &records);

/** What replacing the event-to-MQTT configuration comes to, as long as the bridge does its part. */
struct PublicationOutcome {
    bool applied = false;
    /** More filters than there are ids: nobody expects that, and the service ends. */
    bool endsService = false;
    std::int32_t status = 0;
    WirePublication publication;
};
PublicationOutcome expectedOutcome(const WirePublication &sent);

/** The status of an answer; nothing when it is an error. */
std::optional<std::int32_t> statusOf(const CallResult &result);

bool isError(const CallResult &result);

/** The response to a request; ends the process when it is none that the backend gives. */
std::string responseOf(const CallResult &result);

/** What a bridge has and what a call has listed, in the order of the ids. */
std::vector<WireItem> itemsOf(const KeepingBridge &bridge);
std::vector<WireItem> itemsOf(const CallResult &result);
WirePublication publicationOf(const KeepingBridge &bridge);
WirePublication publicationOf(const CallResult &result);

} // namespace tovrel::test
