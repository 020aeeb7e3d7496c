// The monotonic clock of the session that is current on a thread.
#include "platform/Surroundings.h"

namespace vorn {

uint64_t PlatformClock::ticks() {
    return Surroundings::current().clock();
}

PlatformClock::Timebase PlatformClock::timebase() {
    return {1, 1};
}

void PlatformClock::drive(uint64_t nanoseconds) {
    Surroundings::current().driveClock(nanoseconds);
}

void PlatformClock::release() {
    Surroundings::current().releaseClock();
}

bool PlatformClock::isDriven() {
    return Surroundings::current().isClockDriven();
}

} // namespace vorn
