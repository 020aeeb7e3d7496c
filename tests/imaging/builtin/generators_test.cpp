// Gradients and noise.
#include "builtin_support.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace {

using namespace builtin_test;

Pixel mixOf(const CIColor& a, const CIColor& b, double t) {
    const auto part = [t](double x, double y) { return x * (1 - t) + y * t; };
    return {part(a.red() * a.alpha(), b.red() * b.alpha()),
            part(a.green() * a.alpha(), b.green() * b.alpha()),
            part(a.blue() * a.alpha(), b.blue() * b.alpha()), part(a.alpha(), b.alpha())};
}

const CIColor kOrange(1, 0.5, 0.1, 0.8), kClear(0.2, 0.3, 0.9, 0.1);

TEST(RadialGradient, IsALineBetweenTwoRadiiInPremultipliedColour) {
    const double radii[][2] = {{5, 100}, {100, 5}, {0, 30}, {40.25, 40.25}, {-3, 10}};
    for (const auto& [from, to] : radii) {
        const CIImage image = made("CIRadialGradient", {{"inputCenter", CIVector(20, -10)},
                                                        {"inputRadius0", Number(from)},
                                                        {"inputRadius1", Number(to)},
                                                        {"inputColor0", kOrange},
                                                        {"inputColor1", kClear}});
        EXPECT_TRUE(isInfinite(image));
        expectEverywhere(
            image, {-100, -90, 150, 40},
            [&, from = from, to = to](int x, int y) {
                const double d = std::hypot(x + 0.5 - 20, y + 0.5 + 10);
                const double t =
                    std::clamp(from == to ? d - from + 0.5 : (d - from) / (to - from), 0.0, 1.0);
                return mixOf(kOrange, kClear, t);
            },
            1e-5);
    }
}

TEST(SmoothLinearGradient, FollowsTheHermiteCurveBetweenTwoPoints) {
    const CIVector points[][2] = {{{0, 0}, {200, 200}}, {{50, 3}, {-20, 3}}, {{7, 7}, {7, 7}}};
    for (const auto& [a, b] : points) {
        const CIImage image = made("CISmoothLinearGradient", {{"inputPoint0", a},
                                                              {"inputPoint1", b},
                                                              {"inputColor0", kOrange},
                                                              {"inputColor1", kClear}});
        EXPECT_TRUE(isInfinite(image));
        expectEverywhere(
            image, {-30, -20, 150, 60},
            [&, a = a, b = b](int x, int y) {
                const double dx = b.X() - a.X(), dy = b.Y() - a.Y();
                const double square = dx * dx + dy * dy;
                double t = 1;
                if (square > 0)
                    t = std::clamp(((x + 0.5 - a.X()) * dx + (y + 0.5 - a.Y()) * dy) / square, 0.0,
                                   1.0);
                return mixOf(kOrange, kClear, t * t * (3 - 2 * t));
            },
            2e-5);
    }
}

TEST(RandomGenerator, IsThePublishedHashOfTheCoordinates) {
    const CIImage image = made("CIRandomGenerator", {});
    EXPECT_TRUE(isInfinite(image));
    for (const CGRect rect : {CGRect{-40, -9, 70, 20}, CGRect{4000, -100000, 33, 3}})
        expectEverywhere(
            image, rect,
            [](int px, int py) {
                uint32_t v[4] = {uint32_t(px), uint32_t(py), 0, 0};
                for (uint32_t& n : v) n = n * 1664525u + 1013904223u;
                const auto stir = [&] {
                    v[0] += v[1] * v[3], v[1] += v[2] * v[0];
                    v[2] += v[0] * v[1], v[3] += v[1] * v[2];
                };
                stir();
                for (uint32_t& n : v) n ^= n >> 16;
                stir();
                Pixel p;
                for (size_t c = 0; c < 4; ++c) p[c] = (v[c] >> 8) / 16777216.0;
                return p;
            },
            0);
}

TEST(RandomGenerator, IsEvenAndUncorrelatedBetweenChannelsAndNeighbours) {
    constexpr int size = 256;
    const Bitmap picture = render(referenceContext(), made("CIRandomGenerator", {}),
                                  {-128, -128, size + 1, size + 1}, CIFormat::RGBAf);
    // Of n independent pairs a correlation has a standard deviation of 1 / sqrt(n): 5 of them here.
    constexpr double limit = 5.0 / size;
    const auto correlation = [&](size_t c, size_t d, int dx, int dy) {
        double sum = 0;
        for (int y = 0; y < size; ++y)
            for (int x = 0; x < size; ++x)
                sum += (picture.pixel(x, y)[c] - 0.5) * (picture.pixel(x + dx, y + dy)[d] - 0.5);
        return sum * 12 / (size * size);
    };
    for (size_t c = 0; c < 4; ++c) {
        std::array<int, 16> counts{};
        picture.forEach(
            [&](int x, int y) { ++counts[static_cast<size_t>(picture.pixel(x, y)[c] * 16)]; });
        for (const int count : counts)
            EXPECT_NEAR(count, 257 * 257 / 16.0, 5 * std::sqrt(257 * 257 / 16.0));
        for (size_t d = c + 1; d < 4; ++d) EXPECT_LT(std::fabs(correlation(c, d, 0, 0)), limit);
        EXPECT_LT(std::fabs(correlation(c, c, 1, 0)), limit);
        EXPECT_LT(std::fabs(correlation(c, c, 0, 1)), limit);
    }
}

} // namespace
