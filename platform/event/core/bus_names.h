/** What the event service is called on the bus. */
#pragma once

namespace norq::event {

inline constexpr const char *BUS_NAME = "com.norq.EventService1";
inline constexpr const char *BUS_PATH = "/com/norq/EventService1";
inline constexpr const char *BUS_INTERFACE = "com.norq.EventService1";

/** Signature of the keys of a declaration: name, type, fixed value, namespace, nice names, tags. */
inline constexpr const char *KEYS_SIGNATURE = "a(suavsssas)";
inline constexpr const char *KEY_FIELDS = "suavsssas";

/** An argument is wrong or exceeds a limit of its kind. */
inline constexpr const char *ERROR_INVALID = "com.norq.EventService1.Error.Invalid";
/** The client, or all clients together, hold as much as the service allows. */
inline constexpr const char *ERROR_LIMIT = "com.norq.EventService1.Error.LimitExceeded";
/** The caller has not opened a client, or has no such declaration or subscription. */
inline constexpr const char *ERROR_UNKNOWN = "com.norq.EventService1.Error.Unknown";

} // namespace norq::event
