/** Counts C++ allocations; to be linked once into a benchmark. */
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>

namespace tovrel {

/** Allocations of this thread so far, those of the libraries included. */
std::uint64_t allocationsOfThread();

/** Adds the allocations since its making to a benchmark's counters. */
class AllocationCounter {
public:
    explicit AllocationCounter(benchmark::State &ofState)
        : state(ofState), before(allocationsOfThread())
    {
    }
    AllocationCounter(const AllocationCounter &) = delete;
    AllocationCounter &operator=(const AllocationCounter &) = delete;
    ~AllocationCounter()
    {
        state.counters["allocs"] =
            benchmark::Counter(static_cast<double>(allocationsOfThread() - before),
                               benchmark::Counter::kAvgIterations);
    }

private:
    benchmark::State &state;
    std::uint64_t before;
};

} // namespace tovrel
