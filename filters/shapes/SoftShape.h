// What the soft-edged crops share: how they read their size, edge, mode and position.
#pragma once

#include "core/FilterSupport.h"

namespace vorn::filters {

/// A size of 0 gives 0.5, one of 1 gives 0; in heights of the frame.
inline float radiusOf(const Number& size) {
    return static_cast<float>((1 - double(size.floatValue())) * 0.5);
}
/// Over 0 to 1: 0 to 0.2 heights of the frame.
inline float softnessOf(const Number& edge) {
    return static_cast<float>(edge.floatValue() * 0.2);
}

/// A position, with the step of an 8-bit control that is added to every one.
inline float placeOf(const Number& position) {
    return static_cast<float>(position.floatValue() + 0.00392156862745098);
}

/// What a positioned crop draws: even selectors up to 4 the normal shape, odd ones up to 5 the
/// reverse one; 0 and 1 in the middle, the others at the position, 4 and 5 with the aspect that is
/// set. Every selector but these is off the table. Without the XY flag only 0 and 1 can be had.
inline int shapeSelector(const Number& mode, const Number& isXY) {
    const int read = mode.modeValue();
    const int selector = read < 7 ? read : 5;
    if (isXY.unsignedIntValue() != 0) return selector;
    return std::min(selector, 1);
}
inline bool isReverseShape(int selector) {
    return selector == 1 || selector == 3 || selector == 5;
}
inline bool isPositionedShape(int selector) {
    return selector >= 2 && selector <= 5;
}
inline bool takesAspectAsSet(int selector) {
    return selector == 4 || selector == 5;
}

/// Width over height; not a number without an image.
inline float aspectOf(const CIImage& image) {
    const CGRect extent = image.extent();
    return static_cast<float>(extent.width / extent.height);
}

/// The inputs of the positioned circle and rectangle.
inline Attributes positionedShapeAttributes() {
    constexpr ScalarRange range{.min = -0.5, .sliderMin = -0.5, .sliderMax = 1.5, .standard = 0.5};
    return {scalar("inputMode", "mode", {}), // the slider ends before the modes do
            mixer(),
            scalar("inputSize", "size", {}),
            scalar("inputEdge", "edge", {}),
            scalar("inputXPosition", "X Position", range),
            scalar("inputYPosition", "Y Position", range),
            scalar("inputAspect", "aspect", {.sliderMax = 10, .standard = 1.778}),
            scalar("inputIsXY", "isXY", {})};
}

} // namespace vorn::filters
