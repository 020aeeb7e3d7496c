// What the two filters that blend by a mask share.
#pragma once

#include "imaging/builtin/Builtin.h"

namespace vorn::imaging {

/// `image` over the place of the background where the mask says so, by a kernel of the blend
/// library. The mask's values are taken as they are coded. Without one of the two pictures the
/// other; without a mask, or beyond its extent, the background.
inline CIImage blendWithMask(const CIFilter& filter, std::string_view kernel, const CIImage& image,
                             const CIImage& background, const CIImage& mask) {
    if (!image || !background) return image ? image : background;
    if (!mask) return background;
    const CGRect extent = background.extent().unionWith(image.extent().intersection(mask.extent()));
    const CISampler weights(mask, {.colorSpace = CGColorSpace::SRGB});
    return outputOf(filter, applyFrameworkKernel("CIBlendKernel", kernel, extent,
                                                 RegionOfInterest::identity(),
                                                 {image, background, weights}));
}

} // namespace vorn::imaging
