// "Did you mean …?"
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vorn::hosts {

/// Up to three of `candidates` that a mistyped name may stand for, nearest first: those that differ
/// by few letters (case and punctuation do not count), and those that contain it.
std::vector<std::string> nearestNames(std::string_view name,
                                      const std::vector<std::string>& candidates);

/// "; did you mean VEMirrors or VETiles?", or nothing when no candidate is near.
std::string suggestion(std::string_view name, const std::vector<std::string>& candidates);

} // namespace vorn::hosts
