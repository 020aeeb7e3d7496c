// What the wipes share whose order a picture gives.
#pragma once

#include "filters/shared/Transition.h"

namespace vorn::filters {

/// Stretches a matte over a frame that begins at the origin; where the matte itself begins counts
/// for nothing.
class StretchedMatte {
public:
    CIImage of(const CIImage& matte, const CIImage& picture) {
        const CGRect from = matte.extent(), to = picture.extent();
        CIFilter& stretched = chained(perspective_, "CIPerspectiveTransformWithExtent");
        stretched.setValueForKey(matte, "inputImage");
        stretched.setValueForKey(CIVector(0, 0, from.width, from.height), "inputExtent");
        stretched.setValueForKey(CIVector(0, to.height), "inputTopLeft");
        stretched.setValueForKey(CIVector(to.width, to.height), "inputTopRight");
        stretched.setValueForKey(CIVector(0, 0), "inputBottomLeft");
        stretched.setValueForKey(CIVector(to.width, 0), "inputBottomRight");
        return stretched.outputImage();
    }

private:
    CIFilterRef perspective_;
};

/// What is stated of a kernel that reads the matte around each pixel. In a frame without end it
/// dissolves, and nothing comes of what it reads elsewhere.
inline RegionOfInterest matteWipeReads(CGRect frame) {
    const RegionOfInterest rule = RegionOfInterest::identity();
    return frame.isFinite() ? rule : rule.exact();
}

} // namespace vorn::filters
