// What the filters that blend an image with a background share.
#pragma once

#include "imaging/builtin/Builtin.h"

namespace vorn::imaging {

/// `image` blended with `background` by a kernel of the blend library, over both extents. Without
/// one of the two, the other: against transparent black every blend gives its image back.
inline CIImage blend(const CIFilter& filter, std::string_view kernel, const CIImage& image,
                     const CIImage& background) {
    if (!image || !background) return image ? image : background;
    return outputOf(filter,
                    applyFrameworkKernel("CIBlendKernel", kernel,
                                         image.extent().unionWith(background.extent()),
                                         RegionOfInterest::identity(), {image, background}));
}

} // namespace vorn::imaging
