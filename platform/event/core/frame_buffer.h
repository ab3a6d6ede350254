/** Cuts the stream of a socket into frames. */
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

namespace norq::event {

/**
 * Collects received bytes and hands out whole frames. Takes no memory while it holds nothing, and
 * never more than about twice what was received of the frame at its end.
 */
class FrameBuffer {
public:
    /** @param largest longest content of a frame; a longer one makes the stream malformed */
    explicit FrameBuffer(std::size_t largest) : limit(largest) {}

    /** Room to receive into; valid until the next call. */
    std::span<char> room();
    /** Says how many bytes of the room were filled. */
    void filled(std::size_t count) { end += count; }
    /** Content of the next whole frame; valid until the next call of room() or clear(). */
    std::optional<std::string_view> next();
    /** Whether the stream cannot be cut any further: a frame is empty or too long. */
    [[nodiscard]] bool malformed() const { return isMalformed; }
    /** Gives the memory back when nothing is held. To be called after next() gave nothing. */
    void releaseIfEmpty();
    /** Forgets everything. */
    void clear();

private:
    static constexpr std::size_t FIRST_CAPACITY = std::size_t{64} * 1024;
    static constexpr std::size_t LEAST_ROOM = std::size_t{16} * 1024;

    std::size_t limit;
    std::unique_ptr<char[]> storage; // NOLINT(modernize-avoid-c-arrays): left uninitialised
    std::size_t capacity = 0;
    std::size_t begin = 0;
    std::size_t end = 0;
    bool isMalformed = false;
};

} // namespace norq::event
