/**
 * The frames on the event socket. Each is a length (32 bits, of what follows it), a kind (8 bits)
 * and the fields of its kind; docs/event-service.md has the table.
 */
#pragma once

#include "event/core/event_content.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace norq::event {

/** What a frame is. */
enum class FrameKind : std::uint8_t {
    EVENT = 1,    /**< client to service: an event of one of its declarations */
    DEFINE = 2,   /**< service to client: what the slot of coming deliveries means */
    FORGET = 3,   /**< service to client: no slot means anything any more */
    DELIVERY = 4, /**< service to client: an event for some of its subscriptions */
};

/** Bytes of the length field. */
inline constexpr std::size_t LENGTH_SIZE = sizeof(std::uint32_t);
/** Largest frame that a client may send, without the length field. */
inline constexpr std::size_t MAX_EVENT_FRAME =
    EVENT_MAX_SIZE + EVENT_MAX_KEYS * sizeof(std::uint32_t) + 32;
/** Largest frame that the service sends, without the length field. */
inline constexpr std::size_t MAX_SERVICE_FRAME = std::size_t{1024} * 1024;
/** Slots that a client keeps for declarations. */
inline constexpr std::uint32_t MAX_SLOTS = 1024;

/** Bit of an event's or delivery's flags: a kept value handed over once more. */
inline constexpr std::uint8_t FLAG_KEPT = 1;

/** Kind of a frame's content; 0 of an empty one. */
std::uint8_t kindOf(std::string_view content);

/** EVENT as the service sees it. */
struct EventFrame {
    std::uint8_t flags = 0;
    std::uint32_t declaration = 0;
    std::string_view body;
};

/** DELIVERY as a client sees it. */
struct DeliveryFrame {
    std::uint8_t flags = 0;
    std::uint32_t slot = 0;
    std::vector<std::uint32_t> subscriptions;
    std::string_view body;
};

/** DEFINE as a client sees it. */
struct DefineFrame {
    std::uint32_t slot = 0;
    SharedDeclaration declaration;
};

/** A whole EVENT frame with its length. */
std::string eventFrame(std::uint32_t declaration, std::uint8_t flags, const EventContent &content);
/** Appends a DEFINE frame. */
void appendDefine(std::string &buffer, std::uint32_t slot, const Declaration &declaration);
/** Appends a FORGET frame. */
void appendForget(std::string &buffer);
/** Appends a DELIVERY frame; `subscriptions` has at most EVENT_MAX_IDS elements. */
void appendDelivery(std::string &buffer, std::uint8_t flags, std::uint32_t slot,
                    const std::vector<std::uint32_t> &subscriptions, std::string_view body);

/** Readers of a frame's content (without the length field); nothing when it is malformed. */
std::optional<EventFrame> readEvent(std::string_view content);
std::optional<DefineFrame> readDefine(std::string_view content);
std::optional<DeliveryFrame> readDelivery(std::string_view content);

} // namespace norq::event
