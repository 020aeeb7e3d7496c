// The monotonic clock, which a host may take over.
#include "vorneffects/Platform.h"

#include <atomic>
#include <ctime>

namespace vorn {
namespace {

std::atomic<bool> driven{false};
std::atomic<uint64_t> drivenNanoseconds{0};

} // namespace

uint64_t PlatformClock::ticks() {
    if (driven.load(std::memory_order_acquire))
        return drivenNanoseconds.load(std::memory_order_relaxed);
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000u + static_cast<uint64_t>(now.tv_nsec);
}

PlatformClock::Timebase PlatformClock::timebase() {
    return {1, 1};
}

void PlatformClock::drive(uint64_t nanoseconds) {
    drivenNanoseconds.store(nanoseconds, std::memory_order_relaxed);
    driven.store(true, std::memory_order_release);
}

void PlatformClock::release() {
    driven.store(false, std::memory_order_release);
}

bool PlatformClock::isDriven() {
    return driven.load(std::memory_order_acquire);
}

} // namespace vorn
