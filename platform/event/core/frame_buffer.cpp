#include "event/core/frame_buffer.h"

#include "event/core/frames.h"

#include <cstring>
#include <utility>

namespace norq::event {

std::span<char> FrameBuffer::room()
{
    if (!storage) {
        storage = std::make_unique_for_overwrite<char[]>(FIRST_CAPACITY); // NOLINT: see the header
        capacity = FIRST_CAPACITY;
    }
    if (begin > 0) { // what is left over is part of one frame, mostly short
        std::memmove(storage.get(), storage.get() + begin, end - begin);
        end -= begin;
        begin = 0;
    }
    if (capacity - end < LEAST_ROOM) {
        auto larger = std::make_unique_for_overwrite<char[]>(2 * capacity); // NOLINT: as above
        std::memcpy(larger.get(), storage.get(), end);
        storage = std::move(larger);
        capacity *= 2;
    }
    return {storage.get() + end, capacity - end};
}

std::optional<std::string_view> FrameBuffer::next()
{
    if (isMalformed || end - begin < LENGTH_SIZE) {
        return std::nullopt;
    }
    std::uint32_t length = 0;
    std::memcpy(&length, storage.get() + begin, sizeof length);
    if (length == 0 || length > limit) {
        isMalformed = true;
        return std::nullopt;
    }
    if (end - begin - LENGTH_SIZE < length) {
        return std::nullopt;
    }
    const std::string_view content(storage.get() + begin + LENGTH_SIZE, length);
    begin += LENGTH_SIZE + length;
    return content;
}

void FrameBuffer::releaseIfEmpty()
{
    if (begin == end) {
        clear();
    }
}

void FrameBuffer::clear()
{
    storage.reset();
    capacity = 0;
    begin = 0;
    end = 0;
    isMalformed = false;
}

} // namespace norq::event
