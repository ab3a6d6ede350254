/** Which declarations a client has been told, and under which number. */
#pragma once

#include "event/core/frames.h"
#include "event/daemon/limits.h"
#include "event/daemon/published.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>

namespace norq::event {

/**
 * Mirrors what a client holds to understand its deliveries. When the client would hold too much it
 * is told to forget all of it, declarations that are gone included, and the table starts anew.
 */
class SlotTable {
public:
    /** The slot of a declaration, after appending to `buffer` what the client must be told first.
     */
    std::uint32_t slotOf(const Published &published, std::string &buffer)
    {
        if (const auto known = slots.find(published.serial); known != slots.end()) {
            return known->second;
        }
        const std::size_t size = published.declaration.textSize();
        if (slots.size() >= MAX_SLOTS || texts + size > MAX_SLOT_TEXTS) {
            appendForget(buffer);
            slots.clear();
            texts = 0;
        }
        const auto slot = static_cast<std::uint32_t>(slots.size());
        appendDefine(buffer, slot, published.declaration);
        slots.emplace(published.serial, slot);
        texts += size;
        return slot;
    }

private:
    std::unordered_map<std::uint64_t, std::uint32_t> slots; // by serial
    std::size_t texts = 0;
};

} // namespace norq::event
