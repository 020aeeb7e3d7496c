// The framework's own filters beside a plain computation in double precision, on every device and
// instruction-set level.
#pragma once

#include "support.h"

#include <cmath>
#include <functional>
#include <string>

namespace builtin_test {

using Pixels = std::function<Pixel(int x, int y)>;

inline CIImage made(const std::string& name, const Settings& settings) {
    const CIFilterRef filter = CIFilter::filterWithName(name);
    if (!filter) {
        ADD_FAILURE() << "there is no filter " << name;
        return {};
    }
    filter->setDefaults();
    for (const auto& [key, value] : settings)
        EXPECT_TRUE(filter->setValueForKey(value, key)) << key;
    return filter->outputImage();
}

/// Renders on every device and compares with a function of the coordinates of the working space.
inline void expectEverywhere(const CIImage& image, CGRect rect, const Pixels& expected,
                             double tolerance, CIFormat format = CIFormat::RGBAf) {
    ASSERT_TRUE(image);
    for (CIContext* context : everyContext())
        EXPECT_TRUE(isClose(render(*context, image, rect, format),
                            [&](int x, int y) {
                                return expected(x + static_cast<int>(rect.x),
                                                y + static_cast<int>(rect.y));
                            },
                            {tolerance}))
            << nameOf(*context);
}

/// A picture at an origin, read by coordinates of the working space.
struct Placed {
    Bitmap bitmap;
    int x, y;

    CIImage image() const& { return bitmap.image({double(x), double(y)}); }
    CIImage image() && = delete; // the pixels would be gone
    bool has(int px, int py) const {
        return px >= x && py >= y && px < x + bitmap.width() && py < y + bitmap.height();
    }
    Pixel at(int px, int py) const { return has(px, py) ? bitmap.pixel(px - x, py - y) : Pixel{}; }
    Pixel bilinear(double px, double py) const {
        const double u = px - 0.5, v = py - 0.5;
        const int column = static_cast<int>(std::floor(u)), row = static_cast<int>(std::floor(v));
        Pixel sum{};
        for (int i = 0; i < 2; ++i)
            for (int k = 0; k < 2; ++k) {
                const double weight =
                    (1 - std::fabs(u - column - i)) * (1 - std::fabs(v - row - k));
                const Pixel p = at(column + i, row + k);
                for (size_t c = 0; c < 4; ++c) sum[c] += weight * p[c];
            }
        return sum;
    }
};

inline Placed noise(uint32_t seed, int width, int height, int x = 0, int y = 0,
                    CIFormat format = CIFormat::RGBA8) {
    Random random(seed);
    return {randomBitmap(random, width, height, format), x, y};
}

inline CGRect extentOf(const CIImage& image) {
    return image ? image.extent() : CGRect{-1, -1, -1, -1};
}

inline bool isInfinite(const CIImage& image) {
    return extentOf(image) == CGRect::infinite();
}

} // namespace builtin_test
