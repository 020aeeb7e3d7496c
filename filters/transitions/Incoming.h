// What the transitions share.
#pragma once

#include "core/FilterSupport.h"

namespace vorn::filters {

/// The incoming image for a frame of the extent `frame`. Where it covers less than the frame its
/// border goes on, so that a transition between pictures of unlike size ends without a hole.
inline CIImage incomingFor(const CIImage& target, CGRect frame) {
    if (!target || target.extent().intersection(frame) == frame) return target;
    return target.imageByClampingToExtent();
}

} // namespace vorn::filters
