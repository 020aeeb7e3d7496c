// Filters of colour.
#include "builtin_support.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <string>

namespace {

using namespace builtin_test;

Pixel straightened(const Pixel& p) {
    return p[3] > 0 ? Pixel{p[0] / p[3], p[1] / p[3], p[2] / p[3], p[3]} : Pixel{};
}
Pixel premultiplied(const Pixel& p) {
    return {p[0] * p[3], p[1] * p[3], p[2] * p[3], p[3]};
}
double lumaOf(const Pixel& p) {
    return 0.2126 * p[0] + 0.7152 * p[1] + 0.0722 * p[2];
}

/// Expects a filter to do to every straight colour what a function does.
void expectColor(const std::string& name, Settings settings,
                 const std::function<Pixel(const Pixel&)>& straight, double tolerance) {
    const Placed source = noise(17, 60, 20, 5, -4);
    settings.emplace_back("inputImage", source.image());
    const CIImage image = made(name, settings);
    EXPECT_EQ(extentOf(image), (CGRect{5, -4, 60, 20}));
    expectEverywhere(
        image, {4, -5, 63, 23},
        [&](int x, int y) { return premultiplied(straight(straightened(source.at(x, y)))); },
        tolerance);
}

TEST(HueAdjust, TurnsTheColourDifferencesAndKeepsTheLuma) {
    for (const double angle : {-2.5, -0.4, 0.0, 0.9, 3.1, 40.0})
        expectColor(
            "CIHueAdjust", {{"inputAngle", Number(angle)}},
            [&](const Pixel& p) {
                const double y = lumaOf(p);
                const double cb = (p[2] - y) / 1.8556, cr = (p[0] - y) / 1.5748;
                const double b = cb * std::cos(angle) - cr * std::sin(angle);
                const double r = cb * std::sin(angle) + cr * std::cos(angle);
                const double red = y + 1.5748 * r, blue = y + 1.8556 * b;
                return Pixel{red, (y - 0.2126 * red - 0.0722 * blue) / 0.7152, blue, p[3]};
            },
            1e-5);
}

TEST(HueAdjust, TakesRedTowardYellow) {
    Bitmap red(1, 1);
    red.set(0, 0, {1, 0, 0, 1});
    const Pixel p =
        render(referenceContext(),
               made("CIHueAdjust", {{"inputImage", red.image()}, {"inputAngle", Number(0.3)}}),
               {0, 0, 1, 1}, CIFormat::RGBAf)
            .pixel(0, 0);
    EXPECT_GT(p[1], p[2]);
}

TEST(ColorControls, SaturateThenContrastThenBrighten) {
    const double cases[][3] = {{1, 0, 1},    {0, 0, 1},   {1.7, 0, 1},
                               {1, 0.25, 1}, {1, 0, 2.5}, {0.4, -0.3, 0.7}};
    for (const double(&values)[3] : cases)
        expectColor(
            "CIColorControls",
            {{"inputSaturation", Number(values[0])},
             {"inputBrightness", Number(values[1])},
             {"inputContrast", Number(values[2])}},
            [&](Pixel p) {
                const double y = lumaOf(p);
                for (size_t c = 0; c < 3; ++c)
                    p[c] = (y + (p[c] - y) * values[0] - 0.5) * values[2] + 0.5 + values[1];
                return p;
            },
            1e-5);
}

TEST(ColorMonochrome, IsTheLumaInShadesOfAColour) {
    for (const double intensity : {0.0, 0.3, 1.0})
        expectColor(
            "CIColorMonochrome",
            {{"inputColor", CIColor(0.9, 0.2, 0.5, 0.3)}, {"inputIntensity", Number(intensity)}},
            [&](Pixel p) {
                const double shades[] = {0.9, 0.2, 0.5}, y = lumaOf(p);
                for (size_t c = 0; c < 3; ++c) p[c] += (y * shades[c] - p[c]) * intensity;
                return p;
            },
            1e-5);
}

/// sRGB of a black body, largest component 1, from the cubic approximation of the locus in CIE 1931
/// (x, y) by Kim and others (US patent 7024034, 2002), with Y = 1 brought into range.
Pixel blackBody(double t) {
    const double x =
        t <= 4000 ? -0.2661239e9 / (t * t * t) - 0.2343589e6 / (t * t) + 0.8776956e3 / t + 0.179910
                  : -3.0258469e9 / (t * t * t) + 2.1070379e6 / (t * t) + 0.2226347e3 / t + 0.240390;
    const double y =
        t <= 2222   ? -1.1063814 * x * x * x - 1.34811020 * x * x + 2.18555832 * x - 0.20219683
        : t <= 4000 ? -0.9549476 * x * x * x - 1.37418593 * x * x + 2.09137015 * x - 0.16748867
                    : 3.0817580 * x * x * x - 5.87338670 * x * x + 3.75112997 * x - 0.37001483;
    const double X = x / y, Z = (1 - x - y) / y;
    const double linear[] = {3.2406 * X - 1.5372 - 0.4986 * Z, -0.9689 * X + 1.8758 + 0.0415 * Z,
                             0.0557 * X - 0.2040 + 1.0570 * Z};
    const double most = std::max({linear[0], linear[1], linear[2]});
    Pixel p{0, 0, 0, 1};
    for (size_t c = 0; c < 3; ++c) {
        const double v = std::max(0.0, linear[c] / most * 0.5);
        p[c] = v <= 0.0031308 ? 12.92 * v : 1.055 * std::pow(v, 1 / 2.4) - 0.055;
    }
    return p;
}

TEST(TemperatureAndTint, TakesTheColourOfOneWhitePointToThatOfTheOther) {
    const double cases[][2] = {
        {6500, 3000}, {3000, 6500}, {2516, 10500}, {10500, 2516}, {5000, 5500}};
    for (const auto& [from, to] : cases) {
        Bitmap bitmap(3, 1, CIFormat::RGBAf);
        bitmap.set(1, 0, blackBody(from));
        const CIImage image =
            made("CITemperatureAndTint", {{"inputImage", bitmap.image()},
                                          {"inputNeutral", CIVector(from, 0)},
                                          {"inputTargetNeutral", CIVector(to, 0)}});
        const Pixel wanted = blackBody(to);
        for (CIContext* context : everyContext()) {
            const Pixel p = render(*context, image, {0, 0, 3, 1}, CIFormat::RGBAf).pixel(1, 0);
            // The luminance of the two differs; so compare the ratios in linear light.
            const auto linear = [](double v) { return std::pow((v + 0.055) / 1.055, 2.4); };
            for (size_t c = 0; c < 3; ++c)
                EXPECT_NEAR(linear(p[c]) / linear(p[1]), linear(wanted[c]) / linear(wanted[1]),
                            0.02)
                    << from << " K to " << to << " K, " << nameOf(*context);
        }
    }
}

TEST(TemperatureAndTint, WarmsTowardALowTargetAndGreensTowardAPositiveTint) {
    Bitmap grey(1, 1);
    grey.set(0, 0, {0.5, 0.5, 0.5, 1});
    const auto adapted = [&](CIVector target) {
        return render(referenceContext(),
                      made("CITemperatureAndTint",
                           {{"inputImage", grey.image()}, {"inputTargetNeutral", target}}),
                      {0, 0, 1, 1}, CIFormat::RGBAf)
            .pixel(0, 0);
    };
    const Pixel warm = adapted({4000, 0}), green = adapted({6500, 50}),
                magenta = adapted({6500, -50});
    EXPECT_GT(warm[0], warm[2] + 0.1);
    EXPECT_GT(green[1], std::max(green[0], green[2]) + 0.02);
    EXPECT_LT(magenta[1], std::min(magenta[0], magenta[2]) - 0.02);
    const CIImage image = grey.image();
    EXPECT_EQ(made("CITemperatureAndTint", {{"inputImage", image}}), image)
        << "without a change there is no pass";
}

TEST(TemperatureAndTint, ThereAndBackIsTheSamePicture) {
    const Placed source = noise(8, 30, 30);
    const CIVector a(3500, 20), b(8000, -40);
    const CIImage there =
        made("CITemperatureAndTint",
             {{"inputImage", source.image()}, {"inputNeutral", a}, {"inputTargetNeutral", b}});
    // A colour that leaves the gamut does not come back: compare where nothing was cut off.
    const Bitmap between = render(referenceContext(), there, {0, 0, 30, 30}, CIFormat::RGBAf);
    const Bitmap again =
        render(referenceContext(),
               made("CITemperatureAndTint",
                    {{"inputImage", there}, {"inputNeutral", b}, {"inputTargetNeutral", a}}),
               {0, 0, 30, 30}, CIFormat::RGBAf);
    int compared = 0;
    source.bitmap.forEach([&](int x, int y) {
        const Pixel p = between.pixel(x, y);
        if (p[0] <= 0 || p[1] <= 0 || p[2] <= 0) return;
        EXPECT_LT(differenceOf(again.pixel(x, y), source.at(x, y)), 1e-3);
        ++compared;
    });
    EXPECT_GT(compared, 50);
}

} // namespace
