// The clock of a film that is rendered.
#pragma once

#include <cstdint>

namespace vorn::hosts {

/// Drives the clock of the current session through a film: to the media time of each frame and up
/// to 999 nanoseconds beyond, by the frame's number. A player's clock is never exact to the
/// nanosecond, and filters that take chance from it, as unsteady light does, would stand still on
/// one that is. The same frames have the same clock each time.
class FilmClock {
public:
    /// Never backwards while the media time does not go backwards by more than that.
    void driveTo(std::uint64_t nanoseconds, std::uint64_t frameNumber);

private:
    std::uint64_t last_ = 0;
};

} // namespace vorn::hosts
