// Timing of repeated work.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>

namespace vorn::hosts::cli {

/// How long to repeat: until both minima are reached, or exactly `frames` times when that is set.
struct Effort {
    size_t leastFrames = 15;
    double leastSeconds = 0.5;
    size_t frames = 0;
    size_t warmUpFrames = 3;
};

/// The median of the seconds that `frame` takes; it is handed the number of the frame, which counts
/// on from the warm-up.
double medianSeconds(const Effort& effort, const std::function<void(size_t)>& frame);

/// The median of the seconds in which this machine copies a block of memory, cut into equal parts
/// for that many threads.
double copySeconds(size_t bytes, int threads);

} // namespace vorn::hosts::cli
