// What the drop shadows share.
#pragma once

#include "core/FilterSupport.h"

#include <cmath>

namespace vorn::filters {

/// The shadow's reach is no part of its region: hosts are told of a pixel around it, whatever the
/// offset, and rely on that.
inline RegionOfInterest shadowReads() {
    return RegionOfInterest::grownBy(1);
}

/// A shadow whose blur has that standard deviation, in pixels, is read in means of about as many
/// pixels; one of no strength reads nothing.
inline CIImage softShadow(const CIImage& result, double softness, const Number& level) {
    if (!(level.floatValue() > 0)) return result;
    const int block = softness > 1 ? static_cast<int>(std::ceil(std::min(softness / 0.8, 64.0))) : 1;
    return result.imageWithReduction(block, block);
}

} // namespace vorn::filters
