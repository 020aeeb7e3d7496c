// What a session gives to the layer of the operating system: the clock, where lines go, and random
// numbers. One of them is current on each thread; without any session that is the standard one.
#pragma once

#include "vorneffects/Platform.h"

#include <atomic>
#include <memory>
#include <mutex>

namespace vorn {

class Session;

class Surroundings {
public:
    explicit Surroundings(uint64_t randomSeed = 0, MessageSink sink = {});
    Surroundings(const Surroundings&) = delete;
    Surroundings& operator=(const Surroundings&) = delete;

    /// Those of whoever makes no session. Never destroyed.
    static Surroundings& standard();
    static Surroundings& current();
    /// On this thread; null: the standard ones. Gives what was current before, in the same sense.
    static Surroundings* makeCurrent(Surroundings* surroundings);

    /// Nanoseconds: of the system's monotonic clock, or where `driveClock` has put them.
    uint64_t clock() const;
    void driveClock(uint64_t nanoseconds);
    void releaseClock();
    bool isClockDriven() const;

    /// Hands a line to the sink, or prints it on standard output where there is none. A line that
    /// the sink causes itself is dropped.
    void say(Severity severity, std::string_view line) noexcept;
    /// Gives the former one. Where it throws, that one stays.
    MessageSink setSink(MessageSink sink);

    /// Even over all 64 bits; the same from the same seed on.
    uint64_t random();

    /// The session that they are part of; null for the standard ones.
    Session* session = nullptr;

private:
    std::atomic<bool> isDriven_ = false;
    std::atomic<uint64_t> drivenTo_ = 0;
    std::atomic<uint64_t> random_;
    std::recursive_mutex sinkMutex_;
    std::shared_ptr<const MessageSink> sink_;
    bool isSaying_ = false;
};

/// Makes surroundings current on this thread while it lives.
class CurrentSurroundings {
public:
    explicit CurrentSurroundings(Surroundings& surroundings)
        : outer_(Surroundings::makeCurrent(&surroundings)) {}
    ~CurrentSurroundings() { Surroundings::makeCurrent(outer_); }
    CurrentSurroundings(const CurrentSurroundings&) = delete;
    CurrentSurroundings& operator=(const CurrentSurroundings&) = delete;

private:
    Surroundings* outer_;
};

} // namespace vorn
