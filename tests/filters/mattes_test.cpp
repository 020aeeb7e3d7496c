// Mattes and masks: what each passes on, and where it covers.
#include "tables.h"

#include <cstring>
#include <map>

namespace {

Settings withImage(Settings settings, const char* key, const CIImage& image) {
    settings.emplace_back(key, image);
    return settings;
}

GraphCase masked(const char* title, const char* filter, double mode, const std::string& kernel) {
    return {title, filter, withImage(inputs({{"Mode", mode}}), "inputMaskImage", secondFrame()),
            kernel + "(source, target, (0.333333 0.444444), 1) [0 0 1920 1080] [0 0 640 480]"};
}
/// By mode, scale and position.
GraphCase matted(const char* title, std::array<double, 4> controls, const std::string& rest) {
    return {title, "VE_AlphaMatteFromLayerXY",
            withImage(inputs({{"1", 1},
                              {"2", controls[0]},
                              {"3", controls[1]},
                              {"4", controls[2]},
                              {"5", controls[3]}}),
                      "inputMatteImage", secondFrame()),
            "VE_AlphaMatteFromLayerXY_multiply" + rest + " [-1 -1 1922 1082] [-1 -1 642 482]"};
}
GraphCase fixedMask(const char* title, Settings settings, const std::string& arguments) {
    return {title, "VE_FixedAlphaMaskFromLayer",
            withImage(std::move(settings), "inputFixedMaskImage", secondFrame()),
            "VE_FixedAlphaMaskFromLayer_fixedAlphaMask(target, source, " + arguments +
                ") [-1 -1 642 482] [-1 -1 1922 1082] at [0 0 640 480]"};
}
GraphCase refused(const char* title, const char* filter, const char* key, CGSize size,
                  const char* label) {
    return {title, filter, withImage(inputs({}), key, frame(size.width, size.height)), label};
}

INSTANTIATE_TEST_SUITE_P(
    Mattes, Graphs,
    testing::Values(
        GraphCase{"AutomaticMatte", "VEAutoAlphaMatte", inputs({{"Mode", -4}}),
                  "VE_AutoAlphaMatte_BlackWhite(source)"},
        GraphCase{"AutomaticMattePastTheLast", "VEAutoAlphaMatte", inputs({{"Mode", 12}}),
                  "VE_AutoAlphaMatte_MagentaBlack(source)"},
        masked("MaskFirst", "VEAlphaMaskFromFile", -1, "VE_AlphaMaskFromFile_multiplyAlpha1"),
        masked("MaskUpsideDown", "VEAlphaMaskFromFile", 2,
               "VE_AlphaMaskFromFile_multiplyAlpha1MirrorV"),
        masked("MaskPastTheLast", "VEAlphaMaskFromFile", 8,
               "VE_AlphaMaskFromFile_multiplyAlpha2MirrorHV"),
        masked("ImageMaskFirst", "VEAlphaMaskFromImage", 0, "VE_AlphaMaskFromImage_multiplyLuma"),
        masked("ImageMaskPastTheLast", "VEAlphaMaskFromImage", 10,
               "VE_AlphaMaskFromImage_multiplyInvAlpha"),
        GraphCase{"NoMask", "VEAlphaMaskFromFile", inputs({{"Mixer", 0.5}}),
                  "VE_AlphaMaskFromFile_multiplyAlpha1(source, source, (0 0), 0.5) "
                  "[0 0 1920 1080] [0 0 0 0]"},
        refused("MaskTooLarge", "VEAlphaMaskFromFile", "inputMaskImage", {23764, 1001},
                "error FX 090"),
        refused("ImageMaskTooLarge", "VEAlphaMaskFromImage", "inputImage", {23764001, 1},
                "error FX 091"),
        GraphCase{"MatteOff", "VE_AlphaMatteFromLayerXY", {}, "source", frame(9000, 9000)},
        matted("MatteAtRest", {0, 127, 127, 127}, "LumaXY(source, target, 1, (0 0), 1)"),
        matted("MatteOfDoubleRange", {103, 127, 137, 117},
               "InvRedXY(source, target, 1, (20 -20), 1)"),
        matted("MatteShrunk", {9, 0, 127, 0}, "InvAlphaXY(source, target, 0.244, (0 -127), 0.622)"),
        matted("MatteShrunkInDoubleRange", {108, 0, 127, 127},
               "AlphaXY(source, target, 0.0092001, (0 0), 0.5046)"),
        matted("MatteJumps", {250, 126, 127, 127}, "InvAlphaXY(source, target, 2, (0 0), 1.5)"),
        matted("MatteGrown", {-1, 144.4, 127, 127}, "LumaXY(source, target, 2, (0 0), 1.5)"),
        matted("MatteGrownInDoubleRange", {100, 144.4, 127, 127},
               "LumaXY(source, target, 4, (0 0), 2.5)"),
        fixedMask("FixedMaskUnset", {}, "0.244, (-127 -127), 0.622, -3.14159"),
        fixedMask("FixedMaskTurned", inputs({{"1", 127}, {"2", 137}, {"3", 120.5}, {"4", 190.5}}),
                  "1, (10 -6.5), 1, 1.5708"),
        refused("MatteTooLarge", "VE_FixedAlphaMaskFromLayer", "inputFixedMaskImage", {4321, 4320},
                "error FX 093"),
        GraphCase{"Dither",
                  "VE_BayerDitherFromFile",
                  {{"bayerImage", secondFrame()}},
                  "VE_BayerDitherFromFile_bayerDither(target, source, 1.2549, 4.00431) "
                  "[0 0 640 480] [0 0 1920 1080]"},
        refused("PatternTooLarge", "VE_BayerDitherFromFile", "bayerImage", {1025, 1024},
                "error FX 150")),
    kByTitle);

TEST(Masks, ThatAreNotThereAreTold) {
    const std::pair<const char*, const char*> lines[] = {
        {"VEAlphaMaskFromFile", "### VEAlphaMaskFromFile - no mask!\n"},
        {"VEAlphaMaskFromImage", "### VEAlphaMaskFromImage - no mask!\n"},
        {"VE_AlphaMatteFromLayerXY", "### VE_AlphaMatteFromLayerXY - no matte!\n"}};
    filtered("VEDummy", frame(1, 1), {}); // registers the filters
    for (const auto& [name, line] : lines) {
        const CIFilterRef filter = CIFilter::filterWithName(name);
        filter->setDefaults();
        filter->setValueForKey(frame(8, 8), filter->filterClass().guide().frameKey);
        filter->setValueForKey(1.0, "input1");
        for (int i = 0; i < 2; ++i) {
            testing::internal::CaptureStdout();
            EXPECT_TRUE(filter->outputImage()) << name;
            EXPECT_EQ(testing::internal::GetCapturedStdout(), line);
        }
    }
}

const Bitmap& matte(int width, int height) {
    static std::map<std::pair<int, int>, Bitmap> all;
    Random random(static_cast<uint32_t>(width));
    return all.try_emplace({width, height}, randomBitmap(random, width, height, CIFormat::RGBAf))
        .first->second;
}

/// The bilinear value at a point, in pixels; the border's pixels go on.
Pixel at(const Bitmap& picture, double x, double y) {
    x = std::clamp(x - 0.5, 0.0, picture.width() - 1.0);
    y = std::clamp(y - 0.5, 0.0, picture.height() - 1.0);
    const int left = std::min(int(x), picture.width() - 2);
    const int low = std::min(int(y), picture.height() - 2);
    Pixel p;
    for (size_t c = 0; c < 4; ++c) {
        const auto row = [&](int line) {
            const double from = picture.pixel(left, line)[c];
            return from + (picture.pixel(left + 1, line)[c] - from) * (x - left);
        };
        p[c] = row(low) + (row(low + 1) - row(low)) * (y - low);
    }
    return p;
}
/// How much of a pixel a line shows that is so long, at a distance from its middle.
double shown(double distance, double length) {
    return unit(length / 2 - std::fabs(distance) + 0.5);
}

INSTANTIATE_TEST_SUITE_P(
    Mattes, Pixels,
    testing::Values(
        PixelCase{"MaskOfTheSameSizeUpsideDown", "VEAlphaMaskFromFile",
                  withImage(inputs({{"Mode", 2}}), "inputMaskImage", matte(44, 26).image({5, 6})),
                  [](const Bitmap& s, int x, int y) {
                      return times(s.pixel(x, y), matte(44, 26).pixel(x, 25 - y)[3]);
                  }},
        PixelCase{"InvertedMaskOfHalfTheSizeSwapped", "VEAlphaMaskFromFile",
                  withImage(inputs({{"Mode", 5}, {"Mixer", 0.75}}), "inputMaskImage",
                            matte(22, 13).image()),
                  [](const Bitmap& s, int x, int y) {
                      const double mask = at(matte(22, 13), (43.5 - x) / 2, (y + 0.5) / 2)[3];
                      return times(s.pixel(x, y), 1 - 0.75 * mask);
                  }},
        PixelCase{"MaskOfTwiceTheSizeIsAMean", "VEAlphaMaskFromImage",
                  withImage({}, "inputMaskImage", matte(88, 52).image({-7, 2})),
                  [](const Bitmap& s, int x, int y) {
                      double sum = 0;
                      for (const auto& [i, j] : {std::pair{0, 0}, {1, 0}, {0, 1}, {1, 1}})
                          sum += luma(matte(88, 52).pixel(2 * x + i, 2 * y + j));
                      return times(s.pixel(x, y), sum / 4);
                  }},
        PixelCase{"NoMaskIsTheOwnGreen", "VEAlphaMaskFromImage", inputs({{"Mode", 5}}),
                  [](const Bitmap& s, int x, int y) {
                      return times(s.pixel(x, y), 1 - s.pixel(x, y)[1]);
                  }},
        PixelCase{"MatteOfTwiceTheSizeMoved", "VE_AlphaMatteFromLayerXY",
                  withImage(inputs({{"1", 1}, {"2", 102}, {"3", 126}, {"4", 132}, {"5", 124}}),
                            "inputMatteImage", matte(44, 26).image({1, 1})),
                  [](const Bitmap& s, int x, int y) {
                      // From the middle, which moves by 10 to the right and by 6 down.
                      const double right = x + 0.5 - 22 - 10, up = y + 0.5 - 13 + 6;
                      return times(s.pixel(x, y),
                                   at(matte(44, 26), 22 + right / 2, 13 + up / 2)[0]);
                  }},
        PixelCase{"InvertedMatteShrunk", "VE_AlphaMatteFromLayerXY",
                  withImage(inputs({{"1", 1}, {"2", 9}, {"3", 43}, {"4", 129}, {"5", 127}}),
                            "inputMatteImage", matte(11, 7).image()),
                  [](const Bitmap& s, int x, int y) {
                      const double scale = 1 - 0.006 * 83;
                      const double right = x + 0.5 - 24, up = y + 0.5 - 13;
                      const double there = shown(right, 44 * scale) * shown(up, 26 * scale);
                      const Pixel m =
                          at(matte(11, 7), 5.5 + right / scale / 4, 3.5 + up / scale * 7 / 26);
                      return times(s.pixel(x, y), 1 - m[3] * there);
                  }}),
    kByTitle);

TEST(FixedMask, TurnsAnticlockwiseOverALayerThatStays) {
    Random random(5);
    const Bitmap layer = randomBitmap(random, 40, 30, CIFormat::RGBAf);
    const CIImage image =
        filtered("VE_FixedAlphaMaskFromLayer", layer.image({-2, 3}),
                 withImage(inputs({{"1", 127}, {"2", 130}, {"3", 125}, {"4", 190.5}}),
                           "inputFixedMaskImage", matte(24, 20).image({4, 1})));
    EXPECT_EQ(image.extent(), (CGRect{4, 1, 24, 20}));
    const auto expected = [&](int x, int y) {
        // A quarter turn takes what lies to the right of the middle above it.
        const double right = x + 0.5 - 12 - 3, up = y + 0.5 - 10 + 2;
        const double mask =
            at(matte(24, 20), 12 + up, 10 - right)[3] * shown(up, 24) * shown(right, 20);
        const int column = x + 6, row = y - 2;
        return row < 0 || row >= 30 || column >= 40 ? Pixel{}
                                                    : times(layer.pixel(column, row), mask);
    };
    for (CIContext* context : everyContext())
        EXPECT_TRUE(
            isClose(render(*context, image, image.extent(), CIFormat::RGBAf), expected, {2e-5}))
            << nameOf(*context);
}

// ---- Dither -------------------------------------------------------------------------------------

/// The Bayer matrix of 8 by 8, as a picture of thresholds.
const Bitmap& bayer() {
    static const Bitmap pattern = pictureOf(8, 8, [](int x, int y) {
        int threshold = 0;
        for (int bit = 0; bit < 3; ++bit)
            threshold = threshold * 4 + ((x ^ y) >> bit & 1) * 2 + (y >> bit & 1);
        const double grey = (threshold + 0.5) / 64;
        return Straight{grey, grey, grey};
    });
    return pattern;
}

PixelCase dither(const char* title, double scale, double brightness, int cell, double gain) {
    return {title,
            "VE_BayerDitherFromFile",
            {{"inputScale", Number(scale)},
             {"inputBrightness", Number(brightness)},
             {"bayerImage", bayer().image({3, -4})}},
            [=](const Bitmap& s, int x, int y) {
                const Pixel p = s.pixel(x, y);
                const double largest = std::max({p[0], p[1], p[2], 1e-6});
                const double v = unit(largest / std::max(p[3], 1e-6));
                const double value = gain * v / (1 + (gain - 1) * v);
                const double threshold = bayer().pixel(x / cell % 8, y / cell % 8)[0];
                const double lit = unit((value - threshold * 63 / 64) * 64) * p[3] / largest;
                return Pixel{p[0] * lit, p[1] * lit, p[2] * lit, p[3]};
            }};
}
INSTANTIATE_TEST_SUITE_P(
    Dither, Pixels,
    testing::Values(dither("DitherInPixels", 0, 127, 1, std::pow(1.001078478, 2)),
                    dither("DitherInCellsOfTwoByTwo", 63.75, 63.1125, 2, 0.25)),
    kByTitle);

TEST(Dither, KeepsHueAndLightOnTheWhole) {
    for (const double scale : {0.0, 80.0})
        for (const Straight& color :
             {Straight{0, 0, 0}, {1, 1, 1}, {0.5, 0.5, 0.5}, {0.87, 0.65, 0.51}, {0.1, 0.2, 0.3}}) {
            constexpr int kSide = 192;
            const Bitmap result =
                lookOf("VE_BayerDitherFromFile",
                       {{"inputScale", Number(scale)}, {"bayerImage", bayer().image()}},
                       pictureOf(kSide, kSide, [&](int, int) { return color; }));
            Straight sum{};
            result.forEach([&](int x, int y) {
                for (size_t c = 0; c < 3; ++c) sum[c] += result.pixel(x, y)[c];
            });
            for (size_t c = 0; c < 3; ++c)
                EXPECT_NEAR(sum[c] / (kSide * kSide), color[c], 0.02) << scale << ", " << c;
        }
}

} // namespace
