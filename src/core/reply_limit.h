/** How large a reply on the bus may become. */
#pragma once

#include <cerrno>
#include <cstddef>
#include <initializer_list>
#include <string_view>

namespace tovrel {

/**
 * Bytes of text in one reply, at most: 24 MiB. The bus daemon disconnects whoever sends a message
 * of more than 32 MiB; what is left of these is for what stands around the texts. Only a
 * configuration that was filled on purpose comes near: a client that does so must not end the
 * service for all.
 */
inline constexpr std::size_t MOST_REPLY_BYTES = 25'165'824;

/** Adds up the texts of a reply. */
class ReplySize {
public:
    /** To be called before texts are appended: a result of sd-bus, -EMSGSIZE beyond the limit. */
    int add(std::initializer_list<std::string_view> texts)
    {
        for (const std::string_view text : texts) {
            bytes += text.size();
        }
        return bytes <= MOST_REPLY_BYTES ? 0 : -EMSGSIZE;
    }

private:
    std::size_t bytes = 0;
};

} // namespace tovrel
