/** The content of one event: the values that its declaration leaves open. */
#pragma once

#include "event/core/declaration.h"
#include "event/core/value.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace norq::event {

/** A declaration that events share. */
using SharedDeclaration = std::shared_ptr<const Declaration>;

/** Time, values and origin of an event. */
struct EventContent {
    SharedDeclaration declaration;
    std::int64_t time = 0;                  // microseconds since 1970-01-01 UTC
    bool initial = false;                   // a kept value, not just sent
    std::vector<std::optional<Value>> open; // by DeclaredKey::openPosition

    /** Value of the key at an index of the declaration; nullptr while it is unset. */
    [[nodiscard]] const Value *valueAt(std::size_t index) const;
};

/** Checks that every open key is set and that the event is not too large. */
Status checkSendable(const EventContent &content);

/**
 * Appends the body of an event to a frame: the time and the values of the open keys in their
 * order. The content must be sendable.
 */
void writeBody(std::string &frame, const EventContent &content);

/** Reads a body that writeBody() wrote; nothing when it is not one of this declaration. */
std::optional<EventContent> readBody(std::string_view body, SharedDeclaration declaration);

/**
 * Checks a body whose sender is not trusted, as strictly as the library checks its callers, and
 * finds the bytes of each open value in it.
 *
 * @param values one view for each open key, into `body`; a text without its length
 * @return false when the body is malformed or exceeds a limit
 */
bool scanBody(std::string_view body, const Declaration &declaration,
              std::vector<std::string_view> &values);

/** The bytes that scanBody() finds for a value. */
std::string bytesOf(const Value &value);

} // namespace norq::event
