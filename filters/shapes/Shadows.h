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

/// A shadow of that softness, in pixels, is read in means of somewhat more pixels, up to the 64
/// that the framework adds up; a hard one, or one of no strength, as the picture is.
inline CIImage softShadow(const CIImage& shadow, double softness, const Number& level) {
    if (!(level.floatValue() > 0) || !(softness > 1.25)) return shadow;
    const int block = static_cast<int>(std::ceil(std::min(softness / 0.87, 64.0)));
    return shadow.imageWithReduction(block, block);
}

} // namespace vorn::filters
