// What the catalogue found wrong with its manifest.
#pragma once

#include <string>

namespace vorn::core {

/// One line for each fault, each ended by a line break; empty until the manifest has been read.
std::string manifestProblem();

} // namespace vorn::core
