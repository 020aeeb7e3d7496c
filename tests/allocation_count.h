#pragma once

#include <cstdint>

/// How often this thread took memory from the heap, here or in a library.
uint64_t heapAllocations();
/// The same of every thread together.
uint64_t heapAllocationsOfAllThreads();
/// False under a sanitizer, which has a heap of its own: both counts stay 0 then.
bool countsAllocations();

/// While this lives, requests for memory fail on every thread, but for the first `spared` and those
/// for less than `leastBytes`. Where allocations are not counted nothing fails.
class MemoryShortage {
public:
    explicit MemoryShortage(int64_t spared = 0, uint64_t leastBytes = 0);
    ~MemoryShortage();
    MemoryShortage(const MemoryShortage&) = delete;
    MemoryShortage& operator=(const MemoryShortage&) = delete;

    /// Whether a request has failed.
    static bool wasFelt();
};
