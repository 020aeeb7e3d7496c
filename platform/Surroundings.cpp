#include "platform/Surroundings.h"

#include "platform/NeverDestroyed.h"

#include <cstdio>
#include <ctime>
#include <utility>

namespace vorn {
namespace {

thread_local constinit Surroundings* currentOfThread = nullptr; // null: the standard ones

void print(std::string_view line) {
    flockfile(stdout);
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::putchar('\n');
    funlockfile(stdout);
}

} // namespace

Surroundings::Surroundings(uint64_t randomSeed, MessageSink sink) : random_(randomSeed) {
    setSink(std::move(sink));
}

Surroundings& Surroundings::standard() {
    static NeverDestroyed<Surroundings> surroundings; // lines may come while the process ends
    return surroundings.get();
}

Surroundings& Surroundings::current() {
    return currentOfThread ? *currentOfThread : standard();
}

Surroundings* Surroundings::makeCurrent(Surroundings* surroundings) {
    return std::exchange(currentOfThread, surroundings);
}

// ---- Clock --------------------------------------------------------------------------------------

uint64_t Surroundings::clock() const {
    if (isDriven_.load(std::memory_order_acquire)) return drivenTo_.load(std::memory_order_relaxed);
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000u + static_cast<uint64_t>(now.tv_nsec);
}

void Surroundings::driveClock(uint64_t nanoseconds) {
    drivenTo_.store(nanoseconds, std::memory_order_relaxed);
    isDriven_.store(true, std::memory_order_release);
}

void Surroundings::releaseClock() {
    isDriven_.store(false, std::memory_order_release);
}

bool Surroundings::isClockDriven() const {
    return isDriven_.load(std::memory_order_acquire);
}

// ---- Lines --------------------------------------------------------------------------------------

void Surroundings::say(Severity severity, std::string_view line) noexcept {
    const std::lock_guard lock(sinkMutex_);
    if (!sink_) return print(line);
    if (isSaying_) return;
    isSaying_ = true;
    const std::shared_ptr<const MessageSink> sink = sink_; // it may replace itself
    try {
        (*sink)(severity, line);
    } catch (...) { // a host's mistake: there is nowhere to tell it
    }
    isSaying_ = false;
}

MessageSink Surroundings::setSink(MessageSink sink) {
    auto wanted = sink ? std::make_shared<const MessageSink>(std::move(sink)) : nullptr;
    const std::lock_guard lock(sinkMutex_);
    MessageSink former = sink_ ? *sink_ : nullptr; // which may throw, as long as nothing is done
    std::swap(sink_, wanted);
    return former;
}

// ---- Random numbers -----------------------------------------------------------------------------

/// SplitMix64 (Steele, Lea, Flood: Fast Splittable Pseudorandom Number Generators, 2014): a counter
/// with a mixer on top, so that several threads may draw.
uint64_t Surroundings::random() {
    constexpr uint64_t step = 0x9e3779b97f4a7c15;
    uint64_t bits = random_.fetch_add(step, std::memory_order_relaxed) + step;
    bits = (bits ^ (bits >> 30)) * 0xbf58476d1ce4e5b9;
    bits = (bits ^ (bits >> 27)) * 0x94d049bb133111eb;
    return bits ^ (bits >> 31);
}

} // namespace vorn
