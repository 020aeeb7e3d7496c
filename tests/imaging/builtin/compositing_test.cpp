// Blend modes, and pictures over each other.
#include "builtin_support.h"

#include <algorithm>
#include <functional>
#include <ostream>
#include <string>

namespace {

using namespace builtin_test;

struct BlendCase {
    const char* name;
    std::function<double(double back, double source)> straight;
};
std::ostream& operator<<(std::ostream& stream, const BlendCase& c) {
    return stream << c.name;
}

const BlendCase kBlends[] = {
    {"CISourceOverCompositing", [](double, double s) { return s; }},
    {"CIDarkenBlendMode", [](double b, double s) { return std::min(b, s); }},
    {"CIHardLightBlendMode",
     [](double b, double s) { return s <= 0.5 ? 2 * s * b : 1 - 2 * (1 - s) * (1 - b); }},
    {"CIPinLightBlendMode",
     [](double b, double s) { return s < 0.5 ? std::min(b, 2 * s) : std::max(b, 2 * s - 1); }},
    {"CIDivideBlendMode",
     [](double b, double s) { return b == 0   ? 0
                                     : s == 0 ? 1
                                              : std::min(1.0, b / s); }},
};

class Blends : public testing::TestWithParam<BlendCase> {};

TEST_P(Blends, LikeTheStraightFormula) {
    for (uint32_t seed = 1; seed <= 12; ++seed) {
        const Placed source = noise(seed, 40, 9, -3, 2), back = noise(seed + 100, 31, 11);
        const CIImage image = made(GetParam().name, {{"inputImage", source.image()},
                                                     {"inputBackgroundImage", back.image()}});
        EXPECT_EQ(extentOf(image), (CGRect{-3, 0, 40, 11}));
        const auto expected = [&](int x, int y) {
            const Pixel s = source.at(x, y), b = back.at(x, y);
            Pixel out{0, 0, 0, s[3] + b[3] - s[3] * b[3]};
            for (size_t c = 0; c < 3; ++c) {
                const double cs = s[3] > 0 ? s[c] / s[3] : 0, cb = b[3] > 0 ? b[c] / b[3] : 0;
                out[c] = s[c] * (1 - b[3]) + b[c] * (1 - s[3]) +
                         s[3] * b[3] * GetParam().straight(cb, cs);
            }
            return out;
        };
        expectEverywhere(image, {-5, -1, 44, 14}, expected, 2e-5);
        expectEverywhere(image, {-5, -1, 44, 14}, expected, 1 / 255.0, CIFormat::BGRA8);
    }
}

INSTANTIATE_TEST_SUITE_P(, Blends, testing::ValuesIn(kBlends),
                         [](const auto& test) { return test.param.name; });

TEST(Maximum, IsThatOfEveryPremultipliedComponent) {
    const Placed source = noise(5, 20, 9, -3, 2), back = noise(6, 31, 11);
    expectEverywhere(
        made("CIMaximumCompositing",
             {{"inputImage", source.image()}, {"inputBackgroundImage", back.image()}}),
        {-5, -1, 44, 14},
        [&](int x, int y) {
            Pixel out = source.at(x, y);
            for (size_t c = 0; c < 4; ++c) out[c] = std::max(out[c], back.at(x, y)[c]);
            return out;
        },
        1e-6);
}

TEST(BlendWithMask, IsTheMeanByLumaOrAlphaAndExactAtTheEnds) {
    const Placed source = noise(5, 20, 9, -3, 2), back = noise(6, 31, 11), mask = noise(7, 12, 11);
    for (const bool isAlpha : {false, true}) {
        const CIImage image = made(isAlpha ? "CIBlendWithAlphaMask" : "CIBlendWithMask",
                                   {{"inputImage", source.image()},
                                    {"inputBackgroundImage", back.image()},
                                    {"inputMaskImage", mask.image()}});
        const auto expected = [&](int x, int y) {
            const Pixel m = mask.at(x, y), s = source.at(x, y);
            const double weight = isAlpha ? m[3] : 0.2126 * m[0] + 0.7152 * m[1] + 0.0722 * m[2];
            Pixel out = back.at(x, y);
            for (size_t c = 0; c < 4; ++c) out[c] += (s[c] - out[c]) * weight;
            return out;
        };
        expectEverywhere(image, {-5, -1, 44, 14}, expected, 1e-5);
        // Beyond the mask nothing of the image is left.
        EXPECT_EQ(extentOf(image), (CGRect{0, 0, 31, 11}));
    }
}

TEST(Compositing, GivesTheOtherImageWhereOneIsMissing) {
    const Placed pixels = noise(1, 4, 4);
    const CIImage image = pixels.image();
    for (const std::string& name : CIFilter::filterNames("Built-in Compositing")) {
        EXPECT_EQ(made(name, {{"inputImage", image}}), image) << name;
        EXPECT_EQ(made(name, {{"inputBackgroundImage", image}}), image) << name;
        EXPECT_FALSE(made(name, {})) << name;
    }
}

} // namespace
