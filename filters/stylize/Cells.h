// What the filters share that read the picture in cells.
#pragma once

#include "core/FilterSupport.h"

#include <cmath>

namespace vorn::filters {

/// How many pixels along an axis make one of the reduced image for the means of cells so long: a
/// quarter of the cell, rather more than less, so that two reads cover it (cell_mean.h).
inline int reductionForCells(float cell) {
    return cell > 4 ? static_cast<int>(std::ceil(std::min(cell, 4096.0f) / 4)) : 1;
}

} // namespace vorn::filters
