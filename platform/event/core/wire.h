/**
 * How numbers and texts are laid out in the frames of the event socket: numbers in the byte order
 * of the machine, which both ends share, without padding; texts as their length and their bytes.
 */
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace norq::event {

template <typename Number>
concept WireNumber = std::integral<Number> && !std::same_as<Number, bool>;

/** Appends numbers and texts to a buffer that somebody else owns. */
class WireWriter {
public:
    explicit WireWriter(std::string &target) : buffer(target) {}

    template <WireNumber Number>
    void number(Number value)
    {
        char bytes[sizeof value]; // NOLINT(modernize-avoid-c-arrays): append wants a pointer anyway
        std::memcpy(bytes, &value, sizeof value);
        buffer.append(bytes, sizeof value);
    }

    /** A text with a length field of type Length; the text must not be longer than that holds. */
    template <std::unsigned_integral Length>
    void text(std::string_view value)
    {
        number(static_cast<Length>(value.size()));
        buffer.append(value);
    }

    void bytes(std::string_view value) { buffer.append(value); }

private:
    std::string &buffer;
};

/**
 * Reads numbers and texts from bytes that may be anything. Reading beyond the end gives zero and
 * empty texts and marks the reader as failed for good, so that one check at the end is enough.
 */
class WireReader {
public:
    explicit WireReader(std::string_view source) : rest(source) {}

    template <WireNumber Number>
    Number number()
    {
        Number value{};
        const std::string_view bytes = take(sizeof value);
        if (!bytes.empty()) {
            std::memcpy(&value, bytes.data(), sizeof value);
        }
        return value;
    }

    /** A text with a length field of type Length. The view lives as long as the source. */
    template <std::unsigned_integral Length>
    std::string_view text()
    {
        const auto length = number<Length>();
        return take(length);
    }

    /** So many bytes as they are. */
    std::string_view take(std::size_t count)
    {
        if (hasFailed || count > rest.size()) {
            hasFailed = true;
            return {};
        }
        const std::string_view taken = rest.substr(0, count);
        rest.remove_prefix(count);
        return taken;
    }

    /** What was not read yet. */
    [[nodiscard]] std::string_view remaining() const { return rest; }
    /** Whether something was read beyond the end. */
    [[nodiscard]] bool failed() const { return hasFailed; }
    /** Whether everything was read and nothing beyond. */
    [[nodiscard]] bool finished() const { return !hasFailed && rest.empty(); }

private:
    std::string_view rest;
    bool hasFailed = false;
};

} // namespace norq::event
