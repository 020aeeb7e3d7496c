// Counts allocations by standing before the C library's allocator, which `new` ends at as well.
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

#if VORN_COUNTS
extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);

static void count() {
    ++allocations;
    allocationsOfAllThreads.fetch_add(1, std::memory_order_relaxed);
}

void* malloc(std::size_t size) noexcept {
    count();
    return __libc_malloc(size);
}
void* calloc(std::size_t number, std::size_t size) noexcept {
    count();
    return __libc_calloc(number, size);
}
void* realloc(void* memory, std::size_t size) noexcept {
    count();
    return __libc_realloc(memory, size);
}
void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
    count();
    return __libc_memalign(alignment, size);
}
void* memalign(std::size_t alignment, std::size_t size) noexcept {
    count();
    return __libc_memalign(alignment, size);
}
int posix_memalign(void** memory, std::size_t alignment, std::size_t size) noexcept {
    count();
    *memory = __libc_memalign(alignment, size);
    return *memory ? 0 : ENOMEM;
}
}
#endif
