/**
 * D-Bus messages byte by byte: sd-bus itself would refuse to make the ones that a hostile client
 * can send, with texts that are no UTF-8 or with fields that do not fit the signature.
 */
#pragma once

#include "unit/core/legacy_client.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tovrel::test {

/** A call as it is to be sent. */
struct WireCall {
    std::string path = "/com/norq/Tovrel1";
    std::string interface = "com.norq.Tovrel1";
    std::string member = {};
    std::string signature = {};
    std::string body = {};
    bool expectsReply = true;
};

/** The bytes of a call. The serial, not 0, comes back in its reply. */
std::string messageBytes(const WireCall &call, std::uint32_t serial);

/** The body of a call with one text. */
std::string textBody(const std::string &text);

/** The body of a call that replaces the items. */
std::string itemsBody(const std::vector<WireItem> &items);

/** The body of a call that replaces the event-to-MQTT configuration. */
std::string publicationBody(const WirePublication &publication);

} // namespace tovrel::test
