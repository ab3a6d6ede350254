/** What the service holds at most, so that its memory is bounded whatever its clients do. */
#pragma once

#include <cstddef>

namespace norq::event {

inline constexpr std::size_t KIB = 1024;
inline constexpr std::size_t MIB = KIB * KIB;

/** Clients at once; each takes one file descriptor. */
inline constexpr std::size_t MAX_CLIENTS = 256;
/** Declarations of all clients together. One client has at most EVENT_MAX_IDS. */
inline constexpr std::size_t MAX_DECLARATIONS = 16384;
/** Subscriptions of all clients together. One client has at most EVENT_MAX_IDS. */
inline constexpr std::size_t MAX_SUBSCRIPTIONS = 16384;
/** Memory for the declarations and expressions of one client, and of all together. */
inline constexpr std::size_t MAX_CLIENT_TEXTS = 16 * MIB;
inline constexpr std::size_t MAX_TEXTS = 64 * MIB;
/** Memory for the kept values of one client's properties, and of all together. */
inline constexpr std::size_t MAX_CLIENT_KEPT = 8 * MIB;
inline constexpr std::size_t MAX_KEPT = 32 * MIB;
/** What waits for one client that does not keep up. */
inline constexpr std::size_t MAX_BACKLOG_EVENTS = 16384;
inline constexpr std::size_t MAX_BACKLOG_BYTES = 8 * MIB;
/** What waits for all of them together; beyond it the longest backlog gives way. */
inline constexpr std::size_t MAX_BACKLOGS = 64 * MIB;
/** Bytes that are taken out of the backlog at a time to be written to the socket. */
inline constexpr std::size_t WRITE_SIZE = 64 * KIB;
/** Pairs of subscription and declaration remembered as matching, for all declarations. */
inline constexpr std::size_t MAX_MATCHES = KIB * KIB;
/** Texts of the declarations that a client keeps to understand its deliveries. */
inline constexpr std::size_t MAX_SLOT_TEXTS = 4 * MIB;
/** Longest answer of ListDeclarations and ListMatching. */
inline constexpr std::size_t MAX_LISTING = 16 * MIB;

} // namespace norq::event
