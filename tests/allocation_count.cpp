// Counts allocations, and lets them fail, by standing before the C library's allocator, which `new`
// ends at as well.
#include "allocation_count.h"

#include <atomic>
#include <cerrno>
#include <cstddef>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define VORN_COUNTS 0
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define VORN_COUNTS 0
#endif
#endif
#ifndef VORN_COUNTS
#define VORN_COUNTS 1
#endif

namespace {

thread_local uint64_t allocations = 0;
std::atomic<uint64_t> allocationsOfAllThreads = 0;
std::atomic<bool> isShort = false;
std::atomic<int64_t> spared = 0;
std::atomic<uint64_t> leastBytes = 0;

} // namespace

uint64_t heapAllocations() {
    return allocations;
}
uint64_t heapAllocationsOfAllThreads() {
    return allocationsOfAllThreads;
}
bool countsAllocations() {
    return VORN_COUNTS;
}

MemoryShortage::MemoryShortage(int64_t first, uint64_t least) {
    spared = first;
    leastBytes = least;
    isShort = true;
}
MemoryShortage::~MemoryShortage() {
    isShort = false;
}
bool MemoryShortage::wasFelt() {
    return spared < 0;
}

#if VORN_COUNTS
extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);

/// Counts a request; false when it is to fail.
static bool count(std::size_t size) {
    ++allocations;
    allocationsOfAllThreads.fetch_add(1, std::memory_order_relaxed);
    return !isShort || size < leastBytes || spared.fetch_sub(1) > 0;
}

void* malloc(std::size_t size) noexcept {
    return count(size) ? __libc_malloc(size) : nullptr;
}
void* calloc(std::size_t number, std::size_t size) noexcept {
    return count(number * size) ? __libc_calloc(number, size) : nullptr;
}
void* realloc(void* memory, std::size_t size) noexcept {
    return count(size) ? __libc_realloc(memory, size) : nullptr;
}
void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
    return count(size) ? __libc_memalign(alignment, size) : nullptr;
}
void* memalign(std::size_t alignment, std::size_t size) noexcept {
    return count(size) ? __libc_memalign(alignment, size) : nullptr;
}
int posix_memalign(void** memory, std::size_t alignment, std::size_t size) noexcept {
    *memory = count(size) ? __libc_memalign(alignment, size) : nullptr;
    return *memory ? 0 : ENOMEM;
}
}
#endif
