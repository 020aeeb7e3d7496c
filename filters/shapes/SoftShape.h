// What the soft-edged crops share: how they read their size, edge, mode and position.
#pragma once

#include "core/FilterSupport.h"

namespace vorn::filters {

/// Half of what stays open: a size of 0 gives 0.5, one of 1 gives 0; in parts of a side, for a
/// circle in heights of the frame.
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

/// What the guides of all crops say alike.
inline std::vector<InputGuide> softShapeGuides() {
    return {{.key = "inputSize", .purpose = "how small the shape is; nothing at 1"},
            {.key = "inputEdge", .purpose = "how far the edge is softened"}};
}
inline std::vector<InputGuide> positionedShapeGuides(std::vector<InputGuide> guides = {}) {
    for (const InputGuide& guide : softShapeGuides()) guides.push_back(guide);
    guides.push_back(
        {.key = "inputXPosition", .purpose = "middle of the shape, 0 at the left edge"});
    guides.push_back(
        {.key = "inputYPosition", .purpose = "middle of the shape, 0 at the lower edge"});
    guides.push_back(
        {.key = "inputAspect",
         .purpose = "the larger, the narrower; that of the frame gives a circle or a square"});
    return guides;
}

/// A shape beside the middle, with a soft edge.
inline std::vector<Setting> positionedShapeSettings() {
    return {{"inputIsXY", 1},    {"inputMode", 4},        {"inputSize", 0.45},
            {"inputEdge", 0.3},  {"inputXPosition", 0.4}, {"inputYPosition", 0.55},
            {"inputAspect", 1.2}};
}

} // namespace vorn::filters
