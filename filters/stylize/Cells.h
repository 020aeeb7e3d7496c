// What the filters share that read the picture in cells.
#pragma once

#include "core/FilterSupport.h"

namespace vorn::filters {

/// How many pixels along an axis make one of the reduced image for the means of cells so long: a
/// quarter of the cell (cell_mean.h).
inline int reductionForCells(float cell) {
    return timesSmaller(cell / 4);
}

} // namespace vorn::filters
