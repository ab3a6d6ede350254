/** Rendering events as JSON while memory is short. */
#include "json_events.h"

#include "support/log_capture.h"

#include <gtest/gtest.h>
#include <jansson.h>

#include <cstddef>
#include <cstdlib>
#include <iterator>
#include <limits>
#include <memory>
#include <new>
#include <string>

using json_test::documentedEvent;
using json_test::Event;
using json_test::render;

namespace {

/** An allocator for Jansson that fails from a given allocation on, and is not that of free(). */
struct OddAllocator {
    static constexpr std::size_t HEADER = 64;
    static inline long allowed = 0;
    static inline long live = 0;

    static void *allocate(std::size_t size)
    {
        if (allowed-- <= 0) {
            return nullptr;
        }
        ++live;
        auto *block = static_cast<char *>(std::malloc(size + HEADER));
        return std::next(block, HEADER);
    }
    static void release(void *block)
    {
        if (block != nullptr) {
            --live;
            std::free(static_cast<char *>(block) - HEADER);
        }
    }
};

struct ReleaseText {
    void operator()(char *text) const { std::free(text); }
};
using CText = std::unique_ptr<char, ReleaseText>;

/** So many C++ allocations of this thread succeed, the next one fails; negative: none fails. */
thread_local long allocationsUntilFailure = -1;

class EventJsonMemory : public testing::Test {
protected:
    EventJsonMemory() { json_set_alloc_funcs(OddAllocator::allocate, OddAllocator::release); }
    ~EventJsonMemory() override { json_set_alloc_funcs(std::malloc, std::free); }

    /** Lets one allocation after the other fail, until none does: there are more than `least`. */
    static void expectWholeOrNull(long least, void (*allow)(long allocations))
    {
        const Event event = documentedEvent().build();
        OddAllocator::allowed = std::numeric_limits<long>::max();
        const std::string expected = render(event);
        const test_support::LogCapture log;
        long allocations = 0;
        CText text;
        for (; !text && allocations < 10000; ++allocations) {
            allow(allocations);
            text.reset(event_get_json(event.get(), nullptr));
            allocationsUntilFailure = -1;
        }
        ASSERT_NE(text, nullptr);
        EXPECT_STREQ(text.get(), expected.c_str());
        EXPECT_EQ(log.count(256, "Rendering an event as JSON failed: "), allocations - 1);
        EXPECT_GT(allocations, least);
    }
};

} // namespace

// In place of the standard library's, for the event library too. Not inlined, or the compiler takes
// the pair for mismatched.
[[gnu::noinline]] void *operator new(std::size_t size, const std::nothrow_t & /*tag*/) noexcept
{
    return allocationsUntilFailure-- == 0 ? nullptr : std::malloc(size);
}

[[gnu::noinline]] void *operator new(std::size_t size)
{
    void *const memory = operator new(size, std::nothrow);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

[[gnu::noinline]] void operator delete(void *memory) noexcept
{
    std::free(memory);
}

[[gnu::noinline]] void operator delete(void *memory, std::size_t /*size*/) noexcept
{
    std::free(memory);
}

TEST_F(EventJsonMemory, givesATextForFreeWhateverAllocatorJanssonUses)
{
    const Event event = documentedEvent().build();
    OddAllocator::allowed = std::numeric_limits<long>::max();
    EXPECT_NE(render(event), "");
    EXPECT_EQ(OddAllocator::live, 0);
}

TEST_F(EventJsonMemory, isTheWholeDocumentOrNullAtEveryExhaustionOfJansson)
{
    expectWholeOrNull(1, [](long allocations) { OddAllocator::allowed = allocations; });
    EXPECT_EQ(OddAllocator::live, 0);
}

TEST_F(EventJsonMemory, isTheWholeDocumentOrNullAtEveryExhaustion)
{
    expectWholeOrNull(5, [](long allocations) { allocationsUntilFailure = allocations; });
}
