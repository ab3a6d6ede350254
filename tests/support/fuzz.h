/**
 * A fuzz target: LLVMFuzzerTestOneInput() over one input. With TOVREL_LIBFUZZER the fuzzing engine
 * calls it; otherwise a program that takes the files named on its command line.
 */
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace test_support {

/** Ends the process with a message unless what must hold holds. */
inline void require(bool condition, const char *what)
{
    if (!condition) {
        std::fprintf(stderr, "violated: %s\n", what);
        std::abort();
    }
}

} // namespace test_support
