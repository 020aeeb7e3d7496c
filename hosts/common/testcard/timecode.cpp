#include "timecode.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace vorn::testcard {

std::string timecode(double seconds, double framesPerSecond) {
    if (!std::isfinite(seconds)) seconds = 0;
    const bool hasRate = std::isfinite(framesPerSecond) && framesPerSecond > 0;
    const double rate = hasRate ? std::min(framesPerSecond, 1000.0) : 0;
    // A frame's time is a rounded quotient: a thousandth of a frame keeps it from the frame before.
    const double tolerance = hasRate ? 0.001 / std::max(rate, 1.0) : 0;
    const double magnitude = std::fmod(std::fabs(seconds), 360000.0) + tolerance;
    const double whole = std::floor(magnitude);
    const int total = static_cast<int>(whole) % 360000;
    const int frames = static_cast<int>((magnitude - whole) * rate);
    char text[32];
    std::snprintf(text, sizeof text, "%s%02d:%02d:%02d:%0*d", seconds < 0 ? "-" : "", total / 3600,
                  total / 60 % 60, total % 60, rate > 100 ? 3 : 2, frames);
    return text;
}

} // namespace vorn::testcard
