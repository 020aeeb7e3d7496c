// What the filters share that cut a picture out by a second one.
#pragma once

#include "core/FilterSupport.h"
#include "platform/Messages.h"

namespace vorn::filters {

/// Ten modes, in the order of the kernels: each channel, and what it leaves.
inline std::vector<ModeGuide> channelModes(double first = 0) {
    std::vector<ModeGuide> modes;
    for (const char* name : {"luma", "inverted luma", "red", "inverted red", "green",
                             "inverted green", "blue", "inverted blue", "alpha", "inverted alpha"})
        modes.emplace_back(name, first + static_cast<double>(modes.size()));
    return modes;
}

/// The size of a mask as a multiple of the picture's, that a kernel stretches it by.
inline CIVector maskScale(const CIImage& mask, const CIImage& picture) {
    const CGRect from = mask.extent(), to = picture.extent();
    return {from.width / to.width, from.height / to.height};
}

/// A picture or a mask that the masking kernels do not stretch.
inline bool isTooLargeToMask(const CIImage& picture, const CIImage& mask) {
    return area(picture) > kFixedArea23764000 || area(mask) > kFixedArea23764000;
}

/// The picture through a mask that is stretched over it; where there is none, a line that says so
/// for the filter, and the picture itself.
inline CIImage masked(const CIKernel& kernel, const CIImage& picture, const CIImage& mask,
                      const Number& mixer, const char* filter) {
    const CISampler source(picture);
    CISampler masking(mask);
    if (!masking) {
        report(Severity::Warning, "### %s - no mask!", filter);
        masking = source;
    }
    return kernel.applyWithExtent(source.extent(),
                                  RegionOfInterest::wholeByIndex(picture.extent(), mask.extent()),
                                  {source, masking, maskScale(mask, picture), mixer});
}

/// A control on 0 to 255 that rests at 127, as a scale: shrinking below, growing above, by one more
/// after every 18.4. In the double range, 2, the values below 127 begin at twice the size: hosts
/// rely on that jump.
inline float matteScale(const Number& control, float range) {
    const float t = control.floatValue() - 126.0f;
    if (t > 1.0f) return (t / 18.4f + 1.0f) * range;
    if (t == 1.0f) return 1.0f;
    return range == 2.0f ? range * (1.0f - 0.0079f * std::fabs(t)) : 1.0f - 0.006f * std::fabs(t);
}

/// What kernels get beside the scale: by it the middle stays where it is.
inline float halfOf(float scale) {
    return scale * 0.5f + 0.5f;
}

/// How far a control is from its rest, in its own steps.
inline double fromRest(const Number& control) {
    return control.doubleValue() - 127;
}

/// All of either image, and a pixel around it.
inline RegionOfInterest allAndAPixel(const CISampler& first, const CISampler& second) {
    return RegionOfInterest::wholeByIndex(first.extent().grownBy(1), second.extent().grownBy(1));
}

} // namespace vorn::filters
