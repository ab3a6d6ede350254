#include "allocation_counter.h"

#include <cstdlib>
#include <new>

namespace {

thread_local std::uint64_t allocations = 0;

} // namespace

// Not inlined, or the compiler takes the pair for mismatched.
[[gnu::noinline]] void *operator new(std::size_t size)
{
    ++allocations;
    if (void *const memory = std::malloc(size)) {
        return memory;
    }
    throw std::bad_alloc();
}

[[gnu::noinline]] void operator delete(void *memory) noexcept
{
    std::free(memory);
}

[[gnu::noinline]] void operator delete(void *memory, std::size_t /*size*/) noexcept
{
    std::free(memory);
}

namespace tovrel {

std::uint64_t allocationsOfThread()
{
    return allocations;
}

} // namespace tovrel
