// The running time as text.
#pragma once

#include <string>

namespace vorn::testcard {

/// `seconds` as HH:MM:SS:FF with a minus in front where it is negative. FF is the number of whole
/// frames since the last whole second, of three digits above 100 frames per second. Hours start
/// again after 99. A time that is not finite counts as 0, and so does FF for a rate that is not a
/// finite number above 0.
std::string timecode(double seconds, double framesPerSecond);

} // namespace vorn::testcard
