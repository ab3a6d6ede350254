/** Takes the bytes of a fuzz input for calls of the legacy methods. */
#pragma once

#include "unit/core/fuzz_wire.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tovrel::test {

/** Bytes, taken from the front; behind the end there are zeros. */
class FuzzInput {
public:
    FuzzInput(const std::uint8_t *data, std::size_t size)
        : rest(reinterpret_cast<const char *>(data), size)
    {
    }

    [[nodiscard]] bool empty() const { return rest.empty(); }

    unsigned int byte();
    /** Takes the next byte only if it is this one. */
    bool take(char expected);
    /** Up to a zero byte, which is taken, too. */
    std::string text();
    /** At most `count` bytes. */
    std::string bytes(std::size_t count);

private:
    std::string_view rest;
};

std::vector<WireItem> readItems(FuzzInput &input);
WirePublication readPublication(FuzzInput &input);
/** Any body with any valid signature, for one of the methods. */
WireCall readRawCall(FuzzInput &input);

} // namespace tovrel::test
