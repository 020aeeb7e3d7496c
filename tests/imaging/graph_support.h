// Graphs to try the framework on.
#pragma once

#include "support.h"

#include <limits>

namespace graph_test {

inline constexpr double kInfinity = std::numeric_limits<double>::infinity();
inline constexpr CGRect kBounds{-3, 5, 70, 40};

inline Bitmap noise(uint32_t seed = 1, CIFormat format = CIFormat::RGBA8) {
    Random random(seed);
    return randomBitmap(random, 70, 40, format);
}

inline CIImage square(const CIImage& image) {
    return pictureKernel("square").applyWithExtent(image.extent(), {image});
}

inline CIImage box(const CIImage& image, RegionOfInterest rule) {
    return pictureKernel("box").applyWithExtent(image.extent(), rule, {image, 1});
}

inline void expectLikeReference(const CIImage& image, Tolerance tolerance,
                                CGRect bounds = kBounds) {
    const Bitmap expected = render(referenceContext(), image, bounds);
    for (const auto& context : cpuContexts())
        EXPECT_TRUE(isClose(render(*context, image, bounds), expected, tolerance))
            << nameOf(*context);
}

} // namespace graph_test
