// How a value goes from one keyframe to the next.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vorn::hosts {

/// None of them leaves what lies between the two values.
enum class Easing {
    Linear, ///< straight
    Hold,   ///< stands, and jumps at the end
    Smooth, ///< begins and ends at rest
    Cubic,  ///< the same with more in the middle
    Bounce, ///< falls onto the next value and comes to rest on it
};

/// "linear", "hold", "smooth", "cubic", "bounce".
const char* easingName(Easing easing);
const std::vector<std::string>& easingNames();
/// A usage error with the nearest name for any other text.
Easing parseEasing(std::string_view name, std::string_view where);

/// How far the value has come when so much of the time has passed, both from 0 to 1.
double eased(Easing easing, double share);

} // namespace vorn::hosts
