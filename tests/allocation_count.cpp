// Counts allocations by replacing the program's `new` and `delete`, which the library then uses.
#include "allocation_count.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

thread_local uint64_t allocations = 0;

void* allocate(std::size_t size, std::size_t alignment) {
    ++allocations;
    const std::size_t wholeBlocks = (size + alignment - 1) / alignment * alignment;
    if (void* memory = std::aligned_alloc(alignment, wholeBlocks ? wholeBlocks : alignment))
        return memory;
    throw std::bad_alloc();
}

} // namespace

uint64_t heapAllocations() {
    return allocations;
}

void* operator new(std::size_t size) {
    return allocate(size, alignof(std::max_align_t));
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return allocate(size, static_cast<std::size_t>(alignment));
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
    std::free(memory);
}
