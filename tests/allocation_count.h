#pragma once

#include <cstdint>

/// How often this thread took memory from the heap with `new`, here or in the library.
uint64_t heapAllocations();
