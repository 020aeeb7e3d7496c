// The instruction-set levels that kernel libraries carry code for.
#pragma once

#include <string>
#include <vector>

namespace vorn::imaging::cpu {

/// The levels that this processor runs, best first, the reference level not among them.
const std::vector<std::string>& supportedLevels();

/// Only the reference level: one lane, kept simple.
const std::vector<std::string>& referenceLevel();

} // namespace vorn::imaging::cpu
