// Keys: what each passes on, and what they promise to the eye.
#include "tables.h"

#include <cstring>
#include <map>

namespace {

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
