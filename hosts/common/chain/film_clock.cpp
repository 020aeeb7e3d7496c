#include "film_clock.h"

#include "vorneffects/Platform.h"

namespace vorn::hosts {

namespace {

constexpr std::uint64_t kUnsteadiness = 1000; ///< nanoseconds

/// A hash of a number, the finalizer of "splitmix64" (G. Steele and others, "Fast splittable
/// pseudorandom number generators", 2014).
std::uint64_t hashOf(std::uint64_t number) {
    number += 0x9e3779b97f4a7c15;
    number = (number ^ (number >> 30)) * 0xbf58476d1ce4e5b9;
    number = (number ^ (number >> 27)) * 0x94d049bb133111eb;
    return number ^ (number >> 31);
}

} // namespace

void FilmClock::driveTo(std::uint64_t nanoseconds, std::uint64_t frameNumber) {
    std::uint64_t time = nanoseconds + hashOf(frameNumber) % kUnsteadiness;
    // Two frames of one media time, as some films have, follow each other all the same.
    if (time < last_ && last_ - time < kUnsteadiness) time = last_;
    last_ = time;
    PlatformClock::drive(time);
}

} // namespace vorn::hosts
