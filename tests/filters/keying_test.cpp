// Keys: what each passes on, and what they promise to the eye.
#include "tables.h"

#include <cstring>
#include <map>

namespace {

double unit(double v) {
    return std::clamp(v, 0.0, 1.0);
}

const char* const kRamp = "1Amount \"amount\", 2Amount \"slope\", Mode \"mode\" to 2";

INSTANTIATE_TEST_SUITE_P(
    Keying, Advertised,
    testing::Values(
        AdvertisedCase{
            "VEChromaKey2017",
            "Sensitivity \"sensitivity\" min 0.01, Smoothing \"smoothing\", Red \"red\", "
            "Green \"green\" min 0.01, Blue \"blue\", Blur \"blur\""},
        AdvertisedCase{"VEChromaKeyRGB",
                       "Tolerance \"tolerance\" min 0.01, Amount \"amount\", Red \"red\", "
                       "Green \"green\" min 0.01, Blue \"blue\""},
        AdvertisedCase{"VEChromaKeyHSV",
                       "Tolerance \"tolerance\" min 0.01, Amount \"amount\", Hue \"hue\", "
                       "Saturation \"saturation\", Value \"value\""},
        AdvertisedCase{"VEChromaKeyXY", "Tolerance \"tolerance\" min 0.01, Amount \"amount\", "
                                        "Xposition \"x position\", Yposition \"y position\""},
        AdvertisedCase{"VELumaKey", kRamp}, AdvertisedCase{"VEBlackAlpha2ctl", kRamp},
        AdvertisedCase{"VEBlackAlpha",
                       "Amount \"amount\", Threshold \"threshold\", Mode \"mode\" to 9"},
        AdvertisedCase{"VEAutoAlphaMatte", "Mode \"mode\" to 7"},
        AdvertisedCase{"VEAlphaMaskFromFile", "Mixer \"mixer\" default 1, Mode \"mode\" to 8"},
        AdvertisedCase{"VEAlphaMaskFromImage", "Mixer \"mixer\" default 1, Mode \"mode\" to 10"},
        AdvertisedCase{"VE_AlphaMatteFromLayerXY",
                       "2 \"Mode\" to 255 default 80, 3 \"Scale\" to 255 default 80, "
                       "4 \"X Position\" to 255 default 80, 5 \"Y Position\" to 255 default 80"},
        AdvertisedCase{"VE_FixedAlphaMaskFromLayer",
                       "'Scale' no label to 255, 'X Position' no label to 255 default 127, "
                       "'Y Position' no label to 255 default 127, "
                       "'Rotation' no label to 255 default 127"},
        AdvertisedCase{"VE_BayerDitherFromFile", "Scale no label to 255 default 80, "
                                                 "Brightness no label to 255 default 127"}),
    kByFilter);

// ---- Mattes -------------------------------------------------------------------------------------

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

INSTANTIATE_TEST_SUITE_P(
    Keys, Graphs,
    testing::Values(
        GraphCase{"Chroma2017", "VEChromaKey2017",
                  inputs({{"Sensitivity", 0.1},
                          {"Smoothing", 0.2},
                          {"Red", 0.3},
                          {"Green", 0.4},
                          {"Blue", 0.5},
                          {"Blur", 0.6}}),
                  "VE_ChromaKey2017_chromaKey2017(source, 0.1, 0.2, 0.3, 0.4, 0.5, 0.6) own"},
        GraphCase{
            "ChromaRGB", "VEChromaKeyRGB",
            inputs(
                {{"Tolerance", 0.1}, {"Amount", 0.2}, {"Red", 0.3}, {"Green", 0.4}, {"Blue", 0.5}}),
            "VE_ChromaKeyRGBFilterKernel:VE_ChromaKey_chromaKeyRGB(source, 0.1, 0.2, 0.3, 0.4, "
            "0.5) own"},
        GraphCase{"ChromaHSV", "VEChromaKeyHSV",
                  inputs({{"Tolerance", 0.1},
                          {"Amount", 0.2},
                          {"Hue", 0.3},
                          {"Saturation", 0.4},
                          {"Value", 0.5}}),
                  "VE_ChromaKeyHSV_chromaKeyHSV(source, 0.1, 0.2, 0.3, 0.4, 0.5) own"},
        GraphCase{"ChromaXY", "VEChromaKeyXY", inputs({{"Xposition", 0.3}, {"Yposition", 0.4}}),
                  "VE_ChromaKeyXY_chromaKey_XYpos(source, 0, 0, 0.3, 0.4) [3 4 4096 5801]",
                  frame(4096, 5801, {3, 4})},
        GraphCase{"ChromaXYTooLarge", "VEChromaKeyXY", {}, "error FX 055", frame(4096, 5802)},
        GraphCase{"Luma", "VELumaKey", inputs({{"1Amount", 0.5}, {"2Amount", 0.5}}),
                  "VE_LumaKey_lumaKey(source, 0.5, -0.001) own"},
        GraphCase{"LumaInverse", "VELumaKey",
                  inputs({{"1Amount", 0.5}, {"2Amount", 0.5}, {"Mode", 2}}),
                  "VE_LumaKey_inverseLumaKey(source, 0.5, -0.001) own"},
        GraphCase{"LumaNegative", "VELumaKey", inputs({{"Mode", -1}}),
                  "VE_LumaKey_lumaKey(source, 0, -1.001) own"},
        GraphCase{"BlackTwoControls", "VEBlackAlpha2ctl",
                  inputs({{"1Amount", 0.5}, {"2Amount", 0.5}}),
                  "VE_BlackAlpha2ctl_blackAlpha(source, 1.5, -0.003) own"},
        GraphCase{"BlackLevel", "VEBlackAlpha2ctl", inputs({{"1Amount", 0.5}, {"Mode", 1}}),
                  "VE_BlackAlpha2ctl_blackLevel(source, 1.5, -1.503) own"},
        GraphCase{"BlackAlpha", "VEBlackAlpha", inputs({{"Amount", 0.5}, {"Mode", -1}}),
                  "VE_BlackAlpha_blackAlpha(source, 0.5, 0) own"},
        GraphCase{"BlueAlpha", "VEBlackAlpha", inputs({{"Threshold", 0.5}, {"Mode", 4}}),
                  "VE_BlackAlpha_blueAlpha(source, 0, 0.5) own"},
        GraphCase{"BlueOnly", "VEBlackAlpha", inputs({{"Mode", 9}}),
                  "VE_BlackAlpha_blueOnly(source, 0, 0) own"}),
    kByTitle);

std::array<double, 3> straight(const Pixel& p) {
    const double alpha = p[3] > 0 ? p[3] : 1;
    return {p[0] / alpha, p[1] / alpha, p[2] / alpha};
}

INSTANTIATE_TEST_SUITE_P(
    Keys, Pixels,
    testing::Values(PixelCase{"LumaKey", "VELumaKey", inputs({{"1Amount", 0.6}, {"2Amount", 0.3}}),
                              [](const Bitmap& s, int x, int y) {
                                  const auto v = straight(s.pixel(x, y));
                                  const double y709 = 0.2126 * v[0] + 0.7152 * v[1] + 0.0722 * v[2];
                                  return times(s.pixel(x, y), smooth((y709 - 0.18) / 0.42));
                              }},
                    PixelCase{"BlackLevel", "VEBlackAlpha2ctl",
                              inputs({{"1Amount", 0.6}, {"2Amount", 0.3}, {"Mode", 1}}),
                              [](const Bitmap& s, int x, int y) {
                                  const auto v = straight(s.pixel(x, y));
                                  Pixel p = times(s.pixel(x, y),
                                                  smooth((v[0] + v[1] + v[2] - 0.54) / 1.26));
                                  p[3] = s.pixel(x, y)[3];
                                  return p;
                              }},
                    PixelCase{"WhiteIsTakenOut", "VEBlackAlpha",
                              inputs({{"Amount", 1}, {"Mode", 1}}),
                              [](const Bitmap& s, int x, int y) {
                                  Pixel p = s.pixel(x, y);
                                  const double white = std::min({p[0], p[1], p[2]});
                                  for (double& c : p) c -= white;
                                  return p;
                              }},
                    PixelCase{"KeyOfTolerance0",
                              "VEChromaKeyHSV",
                              {},
                              [](const Bitmap& s, int x, int y) { return s.pixel(x, y); }}),
    kByTitle);

TEST(HardEdges, AreAPixelAndAHalfWideWhereverTheyRun) {
    struct Case {
        const char* filter;
        Settings settings;
        double level;    ///< of the grey at which the edge lies
        bool isReversed; ///< what is bright goes
        size_t channel;
    };
    const Case cases[] = {
        {"VEGobo", inputs({{"Intensity", 1}}), 0.5, false, 0},
        {"VELumaKey", inputs({{"1Amount", 0.4}, {"2Amount", 1}}), 0.39, false, 3},
        {"VELumaKey", inputs({{"1Amount", 0.6}, {"2Amount", 1}, {"Mode", 1}}), 0.41, true, 3},
        {"VEBlackAlpha2ctl", inputs({{"1Amount", 0.5}, {"2Amount", 1}}), 0.49, false, 3},
        {"VEBlackAlpha2ctl", inputs({{"1Amount", 0.5}, {"2Amount", 1}, {"Mode", 1}}), 0.49, false,
         0}};
    const int width = 48, height = 24;
    for (const Case& test : cases) {
        const Bitmap source = pictureOf(width, height, [&](int x, int y) {
            const double grey = leaningEdge(x, y, test.level);
            return Straight{grey, grey, grey};
        });
        const Bitmap result = lookOf(test.filter, test.settings, source);
        for (int y = 2; y < height - 2; ++y) {
            // How many pixels of the row are neither in nor out, and where the edge is by their
            // sum.
            int between = 0;
            double covered = 0;
            for (int x = 2; x < width - 2; ++x) {
                const double is = result.pixel(x, y)[test.channel];
                const double whole = test.channel == 3 ? 1 : source.pixel(x, y)[0];
                const double share = std::strcmp(test.filter, "VEGobo") == 0 || whole == 0
                                         ? is
                                         : std::min(is / whole, 1.0);
                between += share > 0.02 && share < 0.98;
                covered += test.isReversed ? 1 - share : share;
            }
            EXPECT_GE(between, 1) << test.filter << ", row " << y;
            EXPECT_LE(between, 3) << test.filter << ", row " << y;
            EXPECT_NEAR(width - 2 - covered, 16 + y / 3.0, 0.2) << test.filter << ", row " << y;
        }
    }
}

// ---- Keys ---------------------------------------------------------------------------------------

const Straight kScreen{0.07, 0.7, 0.3}, kHair{0.17, 0.09, 0.06}, kSkin{0.87, 0.65, 0.51};

Straight mixed(const Straight& a, const Straight& b, double share) {
    return {a[0] + (b[0] - a[0]) * share, a[1] + (b[1] - a[1]) * share,
            a[2] + (b[2] - a[2]) * share};
}

struct Key {
    const char* filter;
    const char* tolerance;
    Settings settings;
};
const Key kKeys[] = {
    {"VEChromaKey2017", "Sensitivity",
     inputs({{"Red", 0.07}, {"Green", 0.7}, {"Blue", 0.3}, {"Smoothing", 0.7}})},
    {"VEChromaKeyRGB", "Tolerance",
     inputs({{"Red", 0.07}, {"Green", 0.7}, {"Blue", 0.3}, {"Amount", 0.7}})},
    {"VEChromaKeyHSV", "Tolerance",
     inputs({{"Hue", 0.394}, {"Saturation", 0.9}, {"Value", 0.7}, {"Amount", 0.7}})},
    {"VEChromaKeyXY", "Tolerance",
     inputs({{"Xposition", 0.1}, {"Yposition", 0.1}, {"Amount", 0.7}})}};

/// A key's look at a colour; the screen is in the corner, where one of the keys takes its colour.
Pixel keyed(const Key& key, double tolerance, const Straight& color) {
    const Bitmap picture =
        pictureOf(20, 20, [&](int x, int y) { return x < 8 && y < 8 ? kScreen : color; });
    return lookOf(key.filter, with(key.settings, key.tolerance, tolerance), picture).pixel(15, 15);
}

TEST(ColourKeys, TakeTheScreenAndLeaveThePicture) {
    const Straight pictures[] = {{0, 0, 0}, {1, 1, 1},       {0.5, 0.5, 0.5},    kHair,
                                 kSkin,     {0.9, 0.1, 0.1}, {0.03, 0.05, 0.04}, {0.8, 0.65, 0.4}};
    for (const Key& key : kKeys)
        for (const double tolerance : {0.2, 0.35, 0.5, 0.7, 0.9}) {
            EXPECT_LT(keyed(key, tolerance, kScreen)[3], 0.01) << key.filter << ", " << tolerance;
            for (const Straight& color : pictures) {
                const Pixel p = keyed(key, tolerance, color);
                EXPECT_GT(p[3], 0.93) << key.filter << ", " << tolerance << textOf(p);
                for (size_t c = 0; c < 3; ++c)
                    EXPECT_NEAR(p[c], color[c], 0.06) << key.filter << ", " << tolerance;
            }
        }
}

TEST(ColourKeys, LeaveNoTraceOfTheScreenInHairAndOnSkin) {
    for (const Key& key : kKeys)
        for (const double tolerance : {0.2, 0.35, 0.5, 0.65}) {
            for (const double share : {0.1, 0.3, 0.5, 0.7}) {
                const Pixel p = keyed(key, tolerance, mixed(kHair, kScreen, share));
                EXPECT_LT(p[1], std::max(p[0], p[2]) + 0.01)
                    << key.filter << ", " << tolerance << ", " << share << textOf(p);
            }
            // Half a hair is neither there nor gone, where the screen is.
            const Pixel half = keyed(key, tolerance, mixed(kHair, kScreen, 0.5));
            EXPECT_GT(half[3], 0.1) << key.filter << ", " << tolerance;
            if (tolerance > 0.3) {
                EXPECT_LT(half[3], 0.85) << key.filter << ", " << tolerance;
            }
            // Light of the screen on grey goes, and the brightness stays.
            const Straight lit = mixed({0.5, 0.5, 0.5}, kScreen, 0.12);
            const Pixel p = keyed(key, tolerance, lit);
            EXPECT_LT(std::max({p[0], p[1], p[2]}) - std::min({p[0], p[1], p[2]}), 0.05)
                << key.filter << ", " << tolerance;
            EXPECT_NEAR(luma(p) / p[3], luma({lit[0], lit[1], lit[2], 1}), 0.03) << key.filter;
        }
}

TEST(ColourKeys, TakeMoreAtEveryStepOfTheSlider) {
    for (const Key& key : kKeys) {
        double last = 100;
        for (double tolerance = 0.1; tolerance < 1.01; tolerance += 0.1) {
            // The screen in shade and in light, and strands of hair.
            double stays = 0;
            for (double shade = 0.5; shade < 1.2; shade += 0.05)
                stays += keyed(key, tolerance, mixed({0, 0, 0}, kScreen, shade))[3];
            for (double share = 0.1; share < 1; share += 0.1)
                stays += keyed(key, tolerance, mixed(kHair, kScreen, share))[3];
            EXPECT_LT(stays, last - 0.05) << key.filter << " at " << tolerance;
            last = stays;
        }
    }
}

TEST(LevelKeys, TakeBlackAtEverySlopeAndNothingAtAnAmountOf0) {
    for (const char* filter : {"VELumaKey", "VEBlackAlpha2ctl"})
        for (const double slope : {0.0, 0.3, 0.7, 1.0}) {
            const auto look = [&](double amount, const Straight& color) {
                return lookOf(filter, inputs({{"1Amount", amount}, {"2Amount", slope}}), color);
            };
            for (const double amount : {0.1, 0.5, 1.0})
                EXPECT_NEAR(look(amount, {0, 0, 0})[3], 0, 1e-6) << filter << ", " << slope;
            EXPECT_NEAR(look(0, {0, 0, 0})[3], 1, 1e-6) << filter << ", " << slope;
            EXPECT_NEAR(look(0.5, {0.8, 0.8, 0.8})[3], 1, 1e-6) << filter << ", " << slope;
        }
}

TEST(BlackTakenOut, LeavesNoDarkFringe) {
    // Over black it is the source again, wherever something of the pixel is left.
    for (const double grey : {0.2, 0.3, 0.45, 0.7}) {
        const Straight color{grey, grey * 0.9, grey * 0.6};
        const Pixel p =
            lookOf("VEBlackAlpha2ctl", inputs({{"1Amount", 0.3}, {"2Amount", 0.2}}), color);
        ASSERT_GT(p[3], 0.2);
        const double level = std::min(1.0, p[3] / grey);
        for (size_t c = 0; c < 3; ++c) EXPECT_NEAR(p[c], color[c] * level, 1e-5) << grey;
    }
}

TEST(TakingAColourOut, LeavesNoneOfTheOpposite) {
    const Straight orange{0.9, 0.4, 0.27}, cream{0.8, 0.75, 0.7};
    for (const double threshold : {0.0, 0.1, 0.2})
        for (const auto& [mode, color] : {std::pair{2, orange}, std::pair{1, cream}}) {
            const Pixel p =
                lookOf("VEBlackAlpha",
                       inputs({{"Mode", mode}, {"Amount", 1}, {"Threshold", threshold}}), color);
            EXPECT_GE(p[0], p[1] - 1e-5) << mode << ", " << threshold << ": " << textOf(p);
            EXPECT_GE(p[1], p[2] + 0.005) << mode << ", " << threshold << ": " << textOf(p);
            EXPECT_LE(p[0], p[3] + 1e-5) << mode << ", " << threshold << ": " << textOf(p);
        }
}

TEST(OnlyModes, ChooseRatherThanGhost) {
    const Straight red{0.9, 0.1, 0.1}, cyan{0.1, 0.8, 0.8}, white{0.95, 0.95, 0.95};
    const auto alpha = [](double mode, double amount, const Straight& color) {
        return lookOf("VEBlackAlpha", inputs({{"Mode", mode}, {"Amount", amount}}), color)[3];
    };
    for (const double amount : {0.5, 0.75, 1.0}) {
        EXPECT_NEAR(alpha(6, amount, red), 1, 1e-6) << amount;
        EXPECT_NEAR(alpha(6, amount, cyan), 0, 1e-6) << amount;
        EXPECT_NEAR(alpha(5, amount, white), 1, 1e-6) << amount;
        EXPECT_LT(alpha(5, amount, {0, 0, 0}), 0.2) << amount;
    }
    EXPECT_NEAR(alpha(6, 0, cyan), 1, 1e-6);
}

const Straight kOpposites[] = {{1, 1, 1}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {1, 0, 1}};

TEST(AutomaticMatte, TakesTheFirstColourOfEachPair) {
    for (int mode = 0; mode < 10; ++mode)
        for (const double share : {0.0, 0.3, 1.0}) {
            // From black to the colour, then the other way.
            Straight color = kOpposites[mode / 2];
            for (double& c : color) c *= mode % 2 == 0 ? share : 1 - share;
            const Pixel p = lookOf("VEAutoAlphaMatte", inputs({{"Mode", mode}}), color);
            EXPECT_NEAR(p[3], share, 1e-6) << mode;
            for (size_t c = 0; c < 3; ++c)
                EXPECT_NEAR(p[c], mode % 2 == 0 ? color[c] : 0, 1e-6) << mode << ", " << share;
        }
}

TEST(AutomaticMatte, GivesTheSourceBackOverWhatItTook) {
    Random random(12);
    const Bitmap source = pictureOf(20, 12, [&](int, int) {
        return Straight{random.real(0, 1), random.real(0, 1), random.real(0, 1)};
    });
    for (int mode = 0; mode < 10; ++mode) {
        const bool takesBlack = mode % 2 == 0;
        const Straight& color = kOpposites[mode / 2];
        const Bitmap result = lookOf("VEAutoAlphaMatte", inputs({{"Mode", mode}}), source);
        result.forEach([&](int x, int y) {
            const Pixel from = source.pixel(x, y), p = result.pixel(x, y);
            double most = 0, light = 0;
            for (size_t c = 0; c < 3; ++c) {
                EXPECT_LE(p[c], p[3] + 1e-6) << mode << ": " << textOf(from);
                most = std::max(most, from[c]), light = std::max(light, from[c] * color[c]);
            }
            // What has more of other light than of the second colour's fades as a whole.
            const double level = takesBlack ? light / most : 1;
            for (size_t c = 0; c < 3; ++c)
                EXPECT_NEAR(p[c] + (takesBlack ? 0 : color[c] * (1 - p[3])), from[c] * level, 1e-5)
                    << mode << ": " << textOf(from);
        });
    }
}

} // namespace
