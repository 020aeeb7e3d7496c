// What filters share that move by the platform's clock.
#pragma once

#include "core/FilterSupport.h"

#include <cmath>

namespace vorn::filters {

/// Measures the time between frames on the platform's clock; the first frame counts from when the
/// filter was made, or from the clock's zero.
class FrameClock {
public:
    FrameClock() : FrameClock(VornEffectsGetUptimeInNanoseconds()) {}
    static FrameClock fromZero() { return FrameClock(0); }

    /// Nanoseconds since the last call.
    double nanoseconds() {
        const uint64_t now = VornEffectsGetUptimeInNanoseconds();
        const auto elapsed = static_cast<double>(now - last_);
        last_ = now;
        return elapsed;
    }
    double seconds() { return nanoseconds() * 1e-9; }
    void restart() { last_ = VornEffectsGetUptimeInNanoseconds(); }

private:
    explicit FrameClock(uint64_t start) : last_(start) {}

    uint64_t last_;
};

/// Moves a phase on. A step that is no finite number, from a speed that is none, leaves it where it
/// is.
inline void advance(double& phase, double step) {
    const double moved = phase + step;
    if (std::isfinite(moved)) phase = moved;
}

} // namespace vorn::filters
