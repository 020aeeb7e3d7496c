// What the filters share that draw the picture smaller.
#pragma once

#include "core/FilterSupport.h"

#include <cmath>

namespace vorn::filters {

/// How many pixels of a picture along each axis make one of the reduced image for a copy that is so
/// many times smaller: half as many as make one of the copy, for its kernel weighs about two by
/// two.
inline int reductionForCopies(float scale) {
    return scale > 2 ? static_cast<int>(std::ceil(std::min(scale, 4096.0f) / 2)) : 1;
}

} // namespace vorn::filters
