// The Gaussian blur.
#include "builtin_support.h"

#include <algorithm>
#include <cmath>
#include <ostream>
#include <vector>

namespace {

using namespace builtin_test;

struct BlurCase {
    double radius;
    /// Largest difference: 1/1000 where every tap is computed, else what reduction may fold over.
    double tolerance;
};
std::ostream& operator<<(std::ostream& stream, const BlurCase& c) {
    return stream << c.radius;
}

class Blurs : public testing::TestWithParam<BlurCase> {};

TEST_P(Blurs, LikeAPlainConvolution) {
    const double radius = GetParam().radius;
    const int margin = static_cast<int>(std::ceil(3.5 * radius)),
              reach = static_cast<int>(5 * radius) + 2;
    // A picture of everything that is hard: noise, an edge on black, and single pixels.
    Placed source{Bitmap(90, 60), -17, 8};
    Random random(21);
    source.bitmap.forEach([&](int x, int y) {
        const double v = x < 30   ? random.whole(0, 1)
                         : x < 60 ? (x < 43)
                                  : (x % 13 == 3 && y % 11 == 5);
        source.bitmap.set(x, y, {v, 1 - v, 0.5, 1});
    });
    const CIImage image =
        made("CIGaussianBlur", {{"inputImage", source.image()}, {"inputRadius", Number(radius)}});
    EXPECT_EQ(extentOf(image), source.image().extent().grownBy(margin));

    std::vector<double> weights;
    double sum = 0;
    for (int i = -reach; i <= reach; ++i) {
        weights.push_back(std::exp(-0.5 * i * i / (radius * radius)));
        sum += weights.back();
    }
    const auto expected = [&](int px, int py) {
        Pixel out{};
        for (int y = source.y; y < source.y + 60; ++y)
            for (int x = source.x; x < source.x + 90; ++x) {
                if (std::abs(x - px) > reach || std::abs(y - py) > reach) continue;
                const double weight =
                    weights[size_t(x - px + reach)] * weights[size_t(y - py + reach)] / sum / sum;
                for (size_t c = 0; c < 4; ++c) out[c] += weight * source.at(x, y)[c];
            }
        return out;
    };
    const double left = source.x - std::min(margin, 12), low = source.y + 20;
    expectEverywhere(image, {left, low, 40, 3}, expected, GetParam().tolerance);
    expectEverywhere(image, {source.x + 35.0, low, 60, 3}, expected, GetParam().tolerance);
    expectEverywhere(image, {source.x + 50.0, source.y - 4.0, 3, 20}, expected,
                     GetParam().tolerance);
}

INSTANTIATE_TEST_SUITE_P(, Blurs,
                         testing::Values(BlurCase{0.4, 1e-3}, BlurCase{1, 1e-3}, BlurCase{3, 1e-3},
                                         BlurCase{3.32, 3e-3}, BlurCase{5, 3e-3},
                                         BlurCase{6.7, 3e-3}, BlurCase{10, 3e-3},
                                         BlurCase{25, 3e-3}, BlurCase{60, 3e-3}));

TEST(GaussianBlur, OfRadiusZeroIsTheImageItself) {
    const Placed pixels = noise(1, 5, 5);
    const CIImage image = pixels.image();
    EXPECT_EQ(made("CIGaussianBlur", {{"inputImage", image}, {"inputRadius", Number(0)}}), image);
}

TEST(GaussianBlur, KeepsAnEvenColourWithoutEndEven) {
    const CIImage color = CIImage::imageWithColor(CIColor(0.25, 0.5, 0.75, 0.5));
    for (const double radius : {1.0, 12.0, 200.0}) {
        const CIImage image =
            made("CIGaussianBlur", {{"inputImage", color}, {"inputRadius", Number(radius)}});
        EXPECT_TRUE(isInfinite(image));
        expectEverywhere(
            image, {-7, 900, 40, 9},
            [](int, int) {
                return Pixel{0.125, 0.25, 0.375, 0.5};
            },
            1e-5);
    }
}

TEST(GaussianBlur, IsTheSameInParts) {
    const Placed source = noise(31, 300, 200, -31, 7);
    for (const double radius : {2.0, 9.0, 40.0}) {
        const CIImage image = made(
            "CIGaussianBlur", {{"inputImage", source.image()}, {"inputRadius", Number(radius)}});
        for (const auto& context : cpuContexts()) {
            const Bitmap whole = render(*context, image, {-40, 0, 320, 220});
            const Bitmap part = render(*context, image, {13, 51, 57, 33});
            EXPECT_TRUE(
                isClose(part, [&](int x, int y) { return whole.pixel(x + 53, y + 51); }, {}))
                << nameOf(*context);
        }
    }
}

} // namespace
