#pragma once

#include <cstdint>

/// How often this thread took memory from the heap, here or in a library.
uint64_t heapAllocations();
/// The same of every thread together.
uint64_t heapAllocationsOfAllThreads();
/// False under a sanitizer, which has a heap of its own: both counts stay 0 then.
bool countsAllocations();
