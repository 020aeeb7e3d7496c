// The clock of the generators and of the effects that move by themselves.
#pragma once

#include "vorneffects/Platform.h"

/// Nanoseconds of the platform's monotonic clock. Every source file that includes this has its own
/// copy, which reads the timebase once, on its first call. Safe from any thread.
static inline uint64_t MachAbsoluteTime() {
    static const vorn::PlatformClock::Timebase timebase = vorn::PlatformClock::timebase();
    static const bool ticksAreNanoseconds = timebase.numerator == timebase.denominator;
    const uint64_t ticks = vorn::PlatformClock::ticks();
    return ticksAreNanoseconds ? ticks : ticks * timebase.numerator / timebase.denominator;
}
