// Pictures moved, mirrored and repeated.
#include "tables.h"

#include <numbers>

namespace {

INSTANTIATE_TEST_SUITE_P(
    Geometry, Advertised,
    testing::Values(
        AdvertisedCase{"VEMirrors", "Mode \"mode\" to 12, Mixer \"mixer\" default 1"},
        AdvertisedCase{"VETiles", "Divisions \"divisions\" min 1 from 1 to 16 default 4, "
                                  "Mixer \"mixer\" default 1"},
        AdvertisedCase{"VETiles_2", "Xdiv \"H divisions\" min 1 from 1 to 100 default 1, "
                                    "Ydiv \"V divisions\" min 1 from 1 to 100 default 1, "
                                    "Xoffset \"H spacing\" min 1 from 1 to 100 default 1, "
                                    "Yoffset \"V spacing\" min 1 from 1 to 100 default 1, "
                                    "Mixer \"mixer\" default 1"},
        AdvertisedCase{"VE_Repeats",
                       "Mode \"mode\" to 255 default 1, Scale \"scale\" from 1 to 64 default 1, "
                       "Repeats \"repeats\" to 255 default 1, "
                       "OffsetX \"offsetX\" to 8 default 1, OffsetY \"offsetY\" to 8 default 1"},
        AdvertisedCase{"VEWobble",
                       "Mixer \"mixer\" default 1, Mode \"mode\" to 10, Size \"size\" default 0.2, "
                       "Speed \"speed\" default 0.2, C \"c\", D \"d\""},
        AdvertisedCase{
            "VE_FaceTrack",
            "Scale \"scale\" default 0.5, Padding \"padding\" min 1.2 from 1.2 to 1.5 default 1.2, "
            "Smoothing \"smoothing\" default 0.5, "
            "Responsiveness \"responsiveness\" default 0.5, "
            "PanStrength \"pan_strength\" default 0.5, "
            "ScaleComputed \"scale_computed\" min 1 from 1 to 8 default 1 identity 1, "
            "PanXComputed \"pan_x_computed\" no min no from no to, "
            "PanYComputed \"pan_y_computed\" no min no from no to, "
            "TrackingConfidence \"tracking_confidence\""},
        AdvertisedCase{"VE_Ripple",
                       "Mode \"mode\", OriginX \"originX\", OriginY \"originY\", "
                       "Amplitude \"amplitude\" to 200 default 10, "
                       "Period \"period\" to 100 default 10, Speed \"speed\" to 200 default 50, "
                       "RingWidth \"ringWidth\" to 200 default 30, "
                       "Decay \"decay\" min 0.001 from 0.001 to 0.02 default 0.0025, "
                       "Interval \"interval\" min 0.01 from 0.01 to 10 default 1, "
                       "RippleCount \"rippleCount\" min 1 from 1 to 30 default 5"},
        AdvertisedCase{"VE_Waves",
                       "Mixer \"mixer\" to 255, Mode \"mode\" to 5, Speed \"speed\" to 255, "
                       "Frequency \"frequency\" to 255, Intensity \"intensity\" to 255"},
        AdvertisedCase{"VE_Spin_Z", "Spin no label default 0.5"},
        AdvertisedCase{"VEUVMapFromLayer",
                       "Param_1 \"param_1\" default 1, Param_2 \"param_2\" default 1, "
                       "Param_3 \"param_3\" default 1, Mode \"mode\" to 14"},
        AdvertisedCase{"VEHorizontal",
                       "Mixer \"mixer\" default 1, Mode \"mode\" to 3, Row \"row\""},
        AdvertisedCase{"VEDoubleVision",
                       "Mixer \"mixer\" default 1, SeparationX \"sep x\" default 0.5, "
                       "SeparationY \"sep y\" default 0.5"},
        AdvertisedCase{"VEChromaticAberration",
                       "Mixer \"mixer\", SampleCount \"sample_count\" min 1 from 1 to 20 "
                       "default 1, Start \"start\", Blur \"blur\" to 100"},
        AdvertisedCase{"VESlitscan",
                       "Mixer \"mixer\" default 1, Mode \"mode\" to 6, Amount \"amount\" to 1.1, "
                       "Speed \"speed\", Swing \"swing\" to 10.1, "
                       "Softness \"softness\" min 1e-07 from 1e-07 to 0.5 default 1e-07"}),
    kByFilter);

GraphCase follow(const char* title, InputValue scale, double panX, const char* graph) {
    return {title,
            "VE_FaceTrack",
            {{"inputScaleComputed", scale},
             {"inputPanXComputed", panX},
             {"inputPanYComputed", InputValue()}},
            graph};
}

INSTANTIATE_TEST_SUITE_P(Faces, Graphs,
                         testing::Values(follow("Followed", Number(3), 0.2,
                                                "VE_FaceTrack_zoomPanScan(source, 3, 0.2, 0) own"),
                                         follow("NeverSmaller", Number(0.5), 9,
                                                "VE_FaceTrack_zoomPanScan(source, 1, 9, 0) own"),
                                         follow("NoTracker", InputValue(), 0.2, "source"),
                                         follow("NoZoom", Number(0), 0.2, "source"),
                                         follow("Negative", Number(-2), 0.2, "source"),
                                         follow("NoNumber", Number(NAN), 0.2, "source"),
                                         follow("WithoutEnd", Number(1e39), 0.2, "source"),
                                         follow("NowhereToGo", Number(2), -INFINITY, "source"),
                                         GraphCase{"NoFace", "VE_FaceTrack", {}, "", CIImage()}),
                         kByTitle);

/// Between pixels, whose border goes on.
Pixel between(const Bitmap& s, double x, double y) {
    const auto column = std::floor(x - 0.5), row = std::floor(y - 0.5);
    Pixel sum{};
    for (const int i : {0, 1})
        for (const int j : {0, 1}) {
            const double across = x - 0.5 - column, up = y - 0.5 - row;
            const Pixel p = s.pixel(std::clamp(static_cast<int>(column) + i, 0, kWidth - 1),
                                    std::clamp(static_cast<int>(row) + j, 0, kHeight - 1));
            for (size_t c = 0; c < 4; ++c)
                sum[c] += p[c] * (i ? across : 1 - across) * (j ? up : 1 - up);
        }
    return sum;
}
const auto kFollowed = [](double zoom, double panX, double panY) {
    return inputs({{"ScaleComputed", zoom}, {"PanXComputed", panX}, {"PanYComputed", panY}});
};

INSTANTIATE_TEST_SUITE_P(
    Faces, Pixels,
    testing::Values(PixelCase{"RightAndUp", "VE_FaceTrack", kFollowed(2, 0.125, 0.1),
                              [](const Bitmap& s, int x, int y) {
                                  return between(s, kWidth * 0.625 + (x + 0.5 - kWidth / 2) / 2,
                                                 kHeight * 0.6 + (y + 0.5 - kHeight / 2) / 2);
                              }},
                    // No further than the border, which never comes in.
                    PixelCase{"LowerLeftCorner", "VE_FaceTrack", kFollowed(4, -0.5, -7),
                              [](const Bitmap& s, int x, int y) {
                                  return between(s, (x + 0.5) / 4, (y + 0.5) / 4);
                              }},
                    PixelCase{"AsItIs", "VE_FaceTrack", kFollowed(1, 0.3, 0.3),
                              [](const Bitmap& s, int x, int y) { return s.pixel(x, y); }}),
    kByTitle);

std::string repeats(int number, const char* arguments) {
    return "VE_Repeats_repeats" + std::to_string(number) + "(source, 1, 1, " + arguments +
           ") [0 0 1920 1080]";
}
GraphCase repeat(const char* title, double mode, double x, double y, std::string graph) {
    return {title, "VE_Repeats", inputs({{"Mode", mode}, {"OffsetX", x}, {"OffsetY", y}}),
            std::move(graph)};
}
GraphCase mirror(const char* title, double mode, CIImage source, const std::string& mirrored) {
    return {title, "VEMirrors", inputs({{"Mode", mode}}),
            "VE_Mirrors_mixer(source, " + mirrored + ", 1) [99 100 52 53] [99 100 52 53]",
            std::move(source)};
}

INSTANTIATE_TEST_SUITE_P(
    Copies, Graphs,
    testing::Values(
        GraphCase{"Tiles",
                  "VETiles",
                  {},
                  "VE_Tiles_tiles1(source, 1, 4) [0 0 5760 4125]",
                  frame(5760, 4125)},
        GraphCase{"TilesTooLarge", "VETiles", {}, "error FX 127", frame(5760, 4126)},
        GraphCase{
            "TilesOfNothing", "VETiles", {}, "VE_Tiles_tiles1(nothing, 1, 4) [0 0 0 0]", CIImage()},
        GraphCase{"Tiles2", "VETiles_2",
                  inputs({{"Xdiv", 2}, {"Ydiv", 3}, {"Xoffset", 4}, {"Yoffset", 5}}),
                  "VE_Tiles_2_tiles2(source, 1, 2, 3, 4, 5) [5 6 70 80]", frame(70, 80, {5, 6})},
        GraphCase{"Tiles2TooLarge", "VETiles_2", {}, "error FX 128", frame(5760, 4126)},
        repeat("Repeats0", 0, 0.5, 1, repeats(1, "0.0156863, 4.01569")),
        repeat("Repeats2", 2, 1, 2, repeats(3, "4, 8")),
        repeat("Repeats6", 6, kMiddle, 2, repeats(7, "0, 8")),
        repeat("Repeats7", 7, 1, 1, repeats(8, "-4, 4")),
        repeat("Repeats8", 8, 1, kMiddle, repeats(9, "4, 0")),
        repeat("Repeats9", 9, 1, kMiddle, repeats(10, "-4, 0")),
        repeat("Repeats10", 10, 1, 1, repeats(11, "4, -4")),
        repeat("Repeats11", 11, kMiddle, 1, repeats(12, "0, -4")),
        repeat("Repeats12", 255, 1, 2, repeats(13, "-4, -8")),
        repeat("RepeatsNegative", -1, 1, 1, "source"),
        GraphCase{"RepeatsAtTheLimit",
                  "VE_Repeats",
                  {},
                  "VE_Repeats_repeats2(source, 1, 1, 4.01569, 4.01569) [0 0 5760 3240]",
                  frame(5760, 3240)},
        GraphCase{"RepeatsTooLarge", "VE_Repeats", {}, "error FX 139", frame(5760, 3241)},
        mirror("MirrorFlip", 0, frame(300, 200, {9, 8}),
               "VE_Mirrors_backwards(source, 1) [9 8 300 200]"),
        mirror("MirrorHalf", 4, frame(5000, 201),
               "VE_Mirrors_mirrorRightToLeft(source, 1) [2500 0 2500 201]"),
        mirror("MirrorQuarter", 12, frame(300, 201),
               "VE_Mirrors_topLeftQuadMirror(source, 1) [0 100.5 150 100.5]"),
        mirror("MirrorLargeFlip", 2, frame(4096, 2160),
               "CIAffineTransform(source, (-1 0 0 -1)+(4096 2160))"),
        mirror("MirrorLargeHalf", 3, frame(8192, 100),
               "{CIAffineTransform(CICrop(source, (0 0 4096 100)), (-1 0 0 1)+(8192 0)) over "
               "CICrop(source, (0 0 4096 100))}"),
        mirror("MirrorLargeQuarter", 8, frame(8192, 100),
               "{CIAffineTransform({CIAffineTransform(CICrop(source, (4096 0 4096 50)), "
               "(1 0 0 -1)+(0 100)) over CICrop(source, (4096 0 4096 50))}, (-1 0 0 1)+(8192 0)) "
               "over {CIAffineTransform(CICrop(source, (4096 0 4096 50)), (1 0 0 -1)+(0 100)) over "
               "CICrop(source, (4096 0 4096 50))}}"),
        GraphCase{"MirrorNegative", "VEMirrors", inputs({{"Mode", -1}}), "source"},
        GraphCase{"MirrorTooLarge", "VEMirrors", {}, "error FX 155", frame(12000, 12000)}),
    kByTitle);

/// A pixel of a copy half as large: along each axis it weighs its two pixels by 0.4 and their
/// neighbours by 0.1.
Pixel halved(const std::function<Pixel(int, int)>& at) {
    constexpr double kWeights[] = {0.1, 0.4, 0.4, 0.1};
    Pixel sum{};
    for (int j = 0; j < 4; ++j)
        for (int i = 0; i < 4; ++i) {
            const Pixel p = at(i - 1, j - 1);
            for (size_t c = 0; c < 4; ++c) sum[c] += kWeights[i] * kWeights[j] * p[c];
        }
    return sum;
}

INSTANTIATE_TEST_SUITE_P(
    Copies, Pixels,
    testing::Values(
        PixelCase{"Backwards",
                  "VEMirrors",
                  {},
                  [](const Bitmap& s, int x, int y) { return s.pixel(kWidth - 1 - x, y); }},
        PixelCase{
            "RightHalf", "VEMirrors", inputs({{"Mode", 4}}),
            [](const Bitmap& s, int x, int y) { return s.pixel(std::max(x, kWidth - 1 - x), y); }},
        PixelCase{"TopLeftQuarterHalfMixed", "VEMirrors", inputs({{"Mode", 10}, {"Mixer", 0.5}}),
                  [](const Bitmap& s, int x, int y) {
                      Pixel p = times(s.pixel(x, y), 0.5);
                      const Pixel q =
                          s.pixel(std::min(x, kWidth - 1 - x), std::max(y, kHeight - 1 - y));
                      for (size_t c = 0; c < 4; ++c) p[c] += 0.5 * q[c];
                      return p;
                  }},
        PixelCase{"Tiles", "VETiles", inputs({{"Divisions", 2}}),
                  [](const Bitmap& s, int x, int y) {
                      return halved([&](int i, int j) {
                          return s.pixel((2 * x + i + kWidth) % kWidth,
                                         (2 * y + j + kHeight) % kHeight);
                      });
                  }},
        // The upper left copy of the two that a scale of 2 has room for.
        PixelCase{"Repeats", "VE_Repeats", inputs({{"Mode", 10}, {"Scale", 2}, {"Repeats", 0}}),
                  [](const Bitmap& s, int x, int y) {
                      if (x >= kWidth / 2 || y < kHeight / 2) return Pixel{};
                      return halved([&](int i, int j) {
                          return s.pixel(std::clamp(2 * x + i, 0, kWidth - 1),
                                         std::clamp(2 * y - kHeight + j, 0, kHeight - 1));
                      });
                  }}),
    kByTitle);

TEST(Copies, KeepFinePatternsCalm) {
    // Waves of four thirds of a pixel of the copies: a plain mean lets 30 % of them through.
    Bitmap source(192, 96, CIFormat::RGBAf);
    source.forEach([&](int x, int y) {
        const double level = 0.5 + 0.5 * std::cos(2 * std::numbers::pi * (x + 0.3) / 8);
        source.set(x, y, {level, level, level, 1});
    });
    const std::pair<const char*, Settings> cases[] = {
        {"VETiles", inputs({{"Divisions", 6}})},
        {"VETiles_2", inputs({{"Xdiv", 6}, {"Ydiv", 6}})},
        {"VE_Repeats", inputs({{"Mode", 0}, {"Scale", 6}, {"Repeats", 0}})}};
    for (const auto& [name, settings] : cases) {
        const CIImage image = filtered(name, source.image(), settings);
        for (CIContext* context : everyContext()) {
            // Well inside of one copy in the middle.
            const Bitmap copy = render(*context, image, {84, 44, 8, 8}, CIFormat::RGBAf);
            double least = 1, most = 0;
            copy.forEach([&](int x, int y) {
                least = std::min(least, double(copy.pixel(x, y)[0]));
                most = std::max(most, double(copy.pixel(x, y)[0]));
            });
            EXPECT_LT(most - least, 0.15) << name << ", " << nameOf(*context);
        }
    }
}

TEST(FixedRegions, HoldForImagesThatAreComputedAndLieElsewhere) {
    // What a mirror reads is measured from (0, 0); that must not leave a
    // hole in a picture whose source is not there before.
    Random random(29);
    const Bitmap source = randomBitmap(random, 60, 40, CIFormat::RGBA8);
    for (const CGPoint origin : {CGPoint{}, CGPoint{-200, 90}}) {
        const CIImage copy = filtered("VESolarize", source.image(origin), {});
        for (const double mode : {4.0, 6.0, 9.0}) {
            const CIImage expected =
                filtered("VEMirrors", source.image(origin), inputs({{"Mode", mode}}));
            const CIImage image = filtered("VEMirrors", copy, inputs({{"Mode", mode}}));
            for (const auto& context : cpuContexts())
                EXPECT_TRUE(isClose(render(*context, image, copy.extent()),
                                    render(*context, expected, copy.extent()), {1.01 / 255}))
                    << mode;
        }
    }
}

TEST(Tiles, OfWholePixelsAreThoseOfThePlainComputation) {
    // Divisions that leave whole pixels both ways, one way and neither; the last has an incomplete
    // tile. Parts begin and end inside of tiles.
    filtered("VEDummy", frame(1, 1), {});
    Random random(61);
    const Bitmap source = randomBitmap(random, 48, 30, CIFormat::RGBA8);
    const CIImage image = source.image({-7, 5});
    const std::pair<double, double> divisions[] = {{2, 2},  {4, 3}, {4, 4},   {5, 7},
                                                   {16, 2}, {1, 3}, {48, 30}, {3.2, 2.5}};
    for (const auto& [across, up] : divisions)
        for (const double spacing : {1.0, 40.0}) {
            const CIImage tiles = filtered(
                "VETiles_2", image,
                inputs(
                    {{"Xdiv", across}, {"Ydiv", up}, {"Xoffset", spacing}, {"Yoffset", spacing}}));
            for (const CGRect rect :
                 {CGRect{-7, 5, 48, 30}, CGRect{-3, 8, 40, 25}, CGRect{-20, 0, 90, 50}})
                for (const CIFormat format : {CIFormat::RGBA8, CIFormat::RGBAh})
                    for (const auto& context : cpuContexts())
                        ASSERT_TRUE(isClose(render(*context, tiles, rect, format),
                                            render(referenceContext(), tiles, rect, format),
                                            {1.01 / 255}))
                            << across << " by " << up << ", " << nameOf(*context);
        }
}

std::string wobble(const char* kernel, const char* arguments,
                   const char* reads = "[0 0 1920 1080]") {
    return "VE_Wobble_" + std::string(kernel) + "(source, 1, " + arguments + ") " + reads;
}
Settings wobbleInputs(double mode, double size, double speed) {
    return inputs({{"Mode", mode}, {"Size", size}, {"Speed", speed}});
}

INSTANTIATE_TEST_SUITE_P(
    Wobbles, Stories,
    testing::Values(
        // sin 35 + sin 13.37 + sin 8.701 and so on for a second of speed 1.
        StoryCase{"Shake",
                  "VEWobble",
                  wobbleInputs(0, 1, 1),
                  {{1, {}, wobble("shake", "0.0953918, 0.0923924")},
                   {2, inputs({{"Size", 0}}), wobble("shake", "0, 0")}}},
        StoryCase{"Wobble",
                  "VEWobble",
                  wobbleInputs(1, 0.5, 1),
                  {{1, {}, wobble("wobble", "0.0476959, 0.0461962, 0.998337, 0.0576533")}}},
        StoryCase{
            "Flicker",
            "VEWobble",
            wobbleInputs(2, 1, 1),
            {{1, {}, wobble("flicker", "0.000953918, 0.000923924, 0.724117", "[99 100 52 53]")}}},
        StoryCase{"RollStopsAndGoes",
                  "VEWobble",
                  wobbleInputs(3, 0.25, 1),
                  {{0.1, {}, wobble("rollDown", "0.5, 0, 1")},
                   {0.5, {}, wobble("rollDown", "0, 0, 1")},
                   {1.125, inputs({{"Mode", 4}}), wobble("rollUp", "0.625, 0, 1")},
                   {1.125, inputs({{"Mode", 5}}), wobble("rollRight", "0.625, 0, 1")},
                   {1.125, inputs({{"Mode", 6}}), wobble("rollLeft", "0.625, 0, 1")}}},
        StoryCase{"Rippling",
                  "VEWobble",
                  wobbleInputs(7, 0.5, 0.5),
                  {{1, {}, wobble("rippling", "64, 0.005, 50")},
                   {2, {}, wobble("rippling", "64, 0.005, 100")}}},
        StoryCase{"RollBothWays",
                  "VEWobble",
                  wobbleInputs(8, kMiddle, kMiddle - 0.1),
                  {{1, {}, wobble("roll_XY", "0, -0.5")}, {3, {}, wobble("roll_XY", "0, -0.5")}}},
        StoryCase{"Wrap",
                  "VEWobble",
                  wobbleInputs(10, 0, 1),
                  {{1, inputs({{"C", 0}, {"D", 1}}),
                    wobble("wrap_XY", "-1.98434, 1.99997, -0.0156882, 0.0158118")}}},
        StoryCase{"SyncedToTheHost",
                  "VEWobble",
                  inputs({{"Mode", 7}, {"Size", 1}, {"Speed", 0.5}, {"SyncMode", 1}}),
                  {{5, {}, wobble("rippling", "64, 0.01, 100"), 2'000'000'000},
                   {9, {}, wobble("rippling", "64, 0.01, 100"), 2'000'000'000},
                   // Without a frame time the clock goes on from there.
                   {10, {}, wobble("rippling", "64, 0.01, 150")},
                   {11, inputs({{"SyncMode", 0}}), wobble("rippling", "64, 0.01, 200"), 7}}},
        StoryCase{"TooLargeByMode",
                  "VEWobble",
                  wobbleInputs(0, 0.5, 1),
                  {{1, {}, "error FX 161", 0, frame(5760, 4000)},
                   {2, inputs({{"Mode", 7}}), wobble("rippling", "128, 0.005, 200"), 0,
                    frame(1920, 1080)},
                   {3, inputs({{"Mode", -1}}), "nothing"}}},
        StoryCase{"TooLargeWithoutALabel",
                  "VEWobble",
                  wobbleInputs(10, 0, 1),
                  {{1, {}, "error ", 0, frame(5760, 4000)}}}),
    kByTitle);

TEST(Rolls, MoveTheirWayAndComeInAgain) {
    Random random(11);
    const Bitmap source = randomBitmap(random, 16, 8, CIFormat::RGBA8);
    filtered("VEDummy", frame(1, 1), {});
    struct Roll {
        int mode, dx, dy;
    };
    for (const Roll& roll : {Roll{3, 0, -2}, {4, 0, 2}, {5, 4, 0}, {6, -4, 0}}) {
        PlatformClock::drive(0);
        const CIFilterRef filter = CIFilter::filterWithName("VEWobble");
        filter->setDefaults();
        for (const auto& [key, value] : wobbleInputs(roll.mode, 0.25, 0))
            filter->setValueForKey(value, key);
        filter->setValueForKey(source.image(), "inputImage");
        PlatformClock::drive(250'000'000); // a quarter of the cycle
        const Bitmap result = render(*cpuContexts().front(), filter->outputImage(), {0, 0, 16, 8});
        EXPECT_TRUE(isClose(result,
                            [&](int x, int y) {
                                return source.pixel((x - roll.dx + 16) % 16, (y - roll.dy + 8) % 8);
                            },
                            {1.01 / 255}))
            << roll.mode;
    }
    PlatformClock::release();
}

TEST(Shakes, UncoverNoBorder) {
    filtered("VEDummy", frame(1, 1), {});
    Bitmap white(40, 24);
    white.forEach([&](int x, int y) { white.set(x, y, {1, 1, 1, 1}); });
    for (const int mode : {0, 1}) {
        PlatformClock::drive(0);
        const CIFilterRef filter = CIFilter::filterWithName("VEWobble");
        filter->setDefaults();
        for (const auto& [key, value] : wobbleInputs(mode, 1, 1))
            filter->setValueForKey(value, key);
        filter->setValueForKey(white.image({-6, 3}), "inputImage");
        for (uint64_t i = 1; i <= 5; ++i) {
            PlatformClock::drive(i * 170'000'000);
            const CIImage image = filter->outputImage();
            for (CIContext* context : everyContext())
                EXPECT_TRUE(isClose(render(*context, image, image.extent()), white, {1.01 / 255}))
                    << mode << ", " << nameOf(*context);
        }
    }
    PlatformClock::release();
}

// ---- Ripples, waves and spins -------------------------------------------------------------------

std::string ring(const char* arguments) {
    return "VE_Ripple_singleRipple(source, " + std::string(arguments) + ") own";
}
std::string train(const char* arguments) {
    return "VE_Ripple_multiRipple(source, " + std::string(arguments) + ") own";
}
Settings packed(Settings settings, std::vector<uint8_t> bytes) {
    settings.emplace_back("inputData", std::make_shared<const std::vector<uint8_t>>(bytes));
    return settings;
}
Settings wavesInputs(double mode, double frequency, double intensity) {
    return inputs({{"Mixer", 255},
                   {"Mode", mode},
                   {"Speed", 100},
                   {"Frequency", frequency},
                   {"Intensity", intensity}});
}

INSTANTIATE_TEST_SUITE_P(
    Distortions, Stories,
    testing::Values(
        StoryCase{
            "Drops",
            "VE_Ripple",
            inputs({{"OriginX", 0.5}, {"OriginY", 0.25}}),
            {{0, {}, ring("963.765, 272.118, 10, 10, 50, 0, 30, 0.0025, 1"), 7'000'000'000},
             {0, {}, ring("963.765, 272.118, 10, 10, 50, 0.9, 30, 0.0025, 0.4"), 7'900'000'000},
             {0, {}, ring("963.765, 272.118, 10, 10, 50, 0.1, 30, 0.0025, 1"), 8'100'000'000},
             // A time that has run on by more than a second does not count.
             {0, {}, ring("963.765, 272.118, 10, 10, 50, 0.1, 30, 0.0025, 1"), 11'000'000'000},
             {0, {}, ring("963.765, 272.118, 10, 10, 50, 0.3, 30, 0.0025, 1"), 11'200'000'000},
             // One that runs back, or stands, begins a new drop.
             {0, {}, ring("963.765, 272.118, 10, 10, 50, 0, 30, 0.0025, 1"), 5'000'000'000},
             {0, {}, ring("963.765, 272.118, 10, 10, 50, 0, 30, 0.0025, 1"), 5'000'000'000}}},
        StoryCase{"DropsByTheClock",
                  "VE_Ripple",
                  {},
                  {{0, {}, ring("3.76471, 2.11765, 10, 10, 50, 0, 30, 0.0025, 1")},
                   {0.5, {}, ring("3.76471, 2.11765, 10, 10, 50, 0.5, 30, 0.0025, 1")}}},
        // The interval goes from 1 to 2 by 0.2 / (0.2 + 0.2), and to 1.75 then.
        StoryCase{"DropsFollowTheirInterval",
                  "VE_Ripple",
                  {},
                  {{0, {}, ring("3.76471, 2.11765, 10, 10, 50, 0, 30, 0.0025, 1")},
                   {0.2, inputs({{"Interval", 2}}),
                    ring("3.76471, 2.11765, 10, 10, 50, 0.2, 30, 0.0025, 1")},
                   {0.4, {}, ring("3.76471, 2.11765, 10, 10, 50, 0.4, 30, 0.0025, 1")},
                   {1.35, inputs({{"Interval", 1.75}}),
                    ring("3.76471, 2.11765, 10, 10, 50, 1.35, 30, 0.0025, 1")},
                   {1.65, {}, ring("3.76471, 2.11765, 10, 10, 50, 1.65, 30, 0.0025, 0.4")}}},
        StoryCase{"Packed",
                  "VE_Ripple",
                  packed({}, {0, 0, 255, 255, 255, 51, 255, 51, 255, 9, 255, 0, 0}),
                  {{0, {}, ring("0.0146487, 1080.01, 200, 20, 200, 0, 40, 0.001, 1")},
                   {1, inputs({{"Mode", 7}}),
                    train("0.0146487, 1080.01, 200, 20, 200, 1001, 0.001, 30")}}},
        // What a short record lacks is taken from the controls, whole numbers only.
        StoryCase{"PackedShort",
                  "VE_Ripple",
                  packed({}, {128, 0, 128}),
                  {{0, {}, ring("960.029, 2.11765, 10, 10, 50, 0, 30, 0.0025, 1")},
                   {0, packed({}, {}), ring("3.76471, 2.11765, 10, 10, 50, 0, 30, 0.0025, 1")},
                   {0, packed(inputs({{"Mode", 1}}), {0, 0, 0, 0, 0, 0, 0, 0, 0}),
                    train("0.0146487, 0.00823987, 0, 0, 0, 1000, 0.0029, 5")}}},
        StoryCase{"Waves",
                  "VE_Waves",
                  wavesInputs(0, 100, 100),
                  {{1, {}, "VE_Waves_waves(source, 1, 0.2, 10, 0.0045) [0 0 1920 1080]"},
                   {2, inputs({{"Mode", 5}, {"Mixer", 51}}),
                    "VE_Waves_wave_distort_4(source, 0.2, 0.6, 40, 0.09) [0 0 1920 1080]"},
                   // The phase stands while a frame is refused and while there is no speed.
                   {3, {}, "error FX 202", 0, frame(5760, 3241)},
                   {4, inputs({{"Speed", 0}, {"Mode", -1}}),
                    "VE_Waves_waves(source, 0.2, 0.6, 10, 0.0045) [0 0 1920 1080]", 0,
                    frame(1920, 1080)}}},
        StoryCase{"Spin",
                  "VE_Spin_Z",
                  inputs({{"Spin", kMiddle + 0.018}}),
                  {{1, {}, "VE_Spin_Z_spinZ(source, 1.57079) [99 100 52 53]"},
                   {2, inputs({{"Spin", 0}}), "VE_Spin_Z_spinZ(source, 0) [99 100 52 53]"},
                   {3, inputs({{"Spin", kMiddle + 0.018}}), "error FX 200", 0, frame(7500, 7500)},
                   {5, inputs({{"Spin", kMiddle - 0.036}}),
                    "VE_Spin_Z_spinZ(source, -3.1416) [99 100 52 53]", 0, frame(1920, 1080)}}},
        StoryCase{"SpinOfALargeFrame",
                  "VE_Spin_Z",
                  inputs({{"Spin", kMiddle + 0.018}}),
                  {{1,
                    {},
                    "CILanczosScaleTransform(<VE_Spin_Z_spinZ(CILanczosScaleTransform(source, "
                    "0.5, 1), 1.57079) [0 0 4095 50]>, 2, 1)"}},
                  frame(8190, 100)}),
    kByTitle);

Pixel mixed(const Pixel& a, const Pixel& b, double share) {
    Pixel p;
    for (size_t c = 0; c < 4; ++c) p[c] = a[c] + share * (b[c] - a[c]);
    return p;
}
/// Between four pixels, in pixels from the lower left corner; beyond the border mirrored.
Pixel mirroredAt(const Bitmap& s, double x, double y) {
    const auto folded = [](double place, double size) {
        place = size - std::fabs(place - 2 * size * std::floor(place / (2 * size)) - size);
        return std::clamp(place, 0.5, size - 0.5) - 0.5;
    };
    x = folded(x, s.width());
    y = folded(y, s.height());
    const int i = std::min(int(x), s.width() - 2), j = std::min(int(y), s.height() - 2);
    return mixed(mixed(s.pixel(i, j), s.pixel(i + 1, j), x - i),
                 mixed(s.pixel(i, j + 1), s.pixel(i + 1, j + 1), x - i), y - j);
}

// ---- Smears and offsets -------------------------------------------------------------------------

std::string smear(const char* kernel, const std::string& row, const std::string& strip) {
    return "VE_Horizontal_mixer(source, VE_Horizontal_" + std::string(kernel) + "(source, " + row +
           ") " + strip + ", 1) [99 100 52 53] [99 100 52 53]";
}
Settings rowInputs(double mode, double place) {
    return inputs({{"Mode", mode}, {"RowOrColumn", place}});
}
std::string slits(const char* kernel, const char* time) {
    return "VE_Slitscan_" + std::string(kernel) + "(source, 1, 0.5, 2, 0.25, " + time +
           ", 0.125) own";
}

INSTANTIATE_TEST_SUITE_P(
    Offsets, Graphs,
    testing::Values(
        GraphCase{"SmearedRow", "VEHorizontal", rowInputs(0, 0.25),
                  smear("smearVertical", "0.25", "[0 805 1920 10]")},
        GraphCase{"SmearedColumn", "VEHorizontal", rowInputs(1, 0.25),
                  smear("smearHorizontal", "0.25", "[475 0 10 1080]")},
        GraphCase{"SmearedColumnPastTheLastMode", "VEHorizontal", rowInputs(3, 1),
                  smear("smearHorizontal", "1", "[1915 0 10 1080]")},
        GraphCase{"SmearedRowBeforeTheFirstMode", "VEHorizontal", rowInputs(-1, 0),
                  smear("smearVertical", "0", "[0 1075 1920 10]")},
        GraphCase{"SmearWithoutARow", "VEHorizontal", inputs({{"Mode", 0}}), ""},
        GraphCase{"SmearTooLarge", "VEHorizontal", rowInputs(0, 0), "error FX 114",
                  frame(5760, 4785)},
        GraphCase{"SmearTooLargeByColumn", "VEHorizontal", rowInputs(-1, 0), "error FX 113",
                  frame(5760, 4785)},
        GraphCase{"DoubleVision", "VEDoubleVision",
                  inputs({{"SeparationX", 1}, {"SeparationY", 0}}),
                  "VE_DoubleVision_doubleVision(source, 1, (480 -270)) [0 0 1920 1080]"},
        GraphCase{"DoubleVisionTooLarge", "VEDoubleVision", {}, "error FX 158", frame(5760, 4126)},
        GraphCase{"Aberration", "VEChromaticAberration",
                  inputs({{"Mixer", 1}, {"SampleCount", 3}, {"Start", 0.5}, {"Blur", 20}}),
                  "VE_ChromaticAberration_transverseChromaticAberration(source, (1920 1080), 3, "
                  "0.5, 20, 1) own"},
        GraphCase{"AberrationOfNothing",
                  "VEChromaticAberration",
                  {},
                  "VE_ChromaticAberration_transverseChromaticAberration(nothing, (0 0), 1, 0, 0, "
                  "0) own",
                  CIImage()}),
    kByTitle);

INSTANTIATE_TEST_SUITE_P(
    Slits, Stories,
    testing::Values(StoryCase{
        "InStepsOfTheClock",
        "VESlitscan",
        inputs({{"Amount", 0.5}, {"Swing", 2}, {"Speed", 0.25}, {"Softness", 0.125}}),
        {{0, {}, slits("Horiz", "19531")},
         {0.0128, {}, slits("Horiz", "19531")}, // 1000 seconds are 19531.25 steps
         {0.0512, inputs({{"Mode", 3}}), slits("SwingVertSin", "19532")},
         {0.1024, inputs({{"Mode", 6}}), slits("SwingVertRand", "19533")},
         {0.1536, inputs({{"Mode", -1}}), slits("Horiz", "19534")}}}),
    kByTitle);

INSTANTIATE_TEST_SUITE_P(
    Offsets, Pixels,
    testing::Values(
        // Row 1/4 lies half a pixel beside the middle of a pixel: 19.5 of 26 from below.
        PixelCase{"SmearedRow", "VEHorizontal", rowInputs(0, 0.25),
                  [](const Bitmap& s, int x, int) { return s.pixel(x, 19); }},
        PixelCase{"SmearedColumnMixed", "VEHorizontal", with(rowInputs(1, 1), "Mixer", 0.25),
                  [](const Bitmap& s, int x, int y) {
                      return mixed(s.pixel(x, y), s.pixel(kWidth - 1, y), 0.25);
                  }},
        // 5.5 pixels to the right and 1.3 down.
        PixelCase{"DoubleVision", "VEDoubleVision",
                  inputs({{"Mixer", 0.5}, {"SeparationX", 0.75}, {"SeparationY", 0.4}}),
                  [](const Bitmap& s, int x, int y) {
                      return mixed(s.pixel(x, y), mirroredAt(s, x + 0.5 - 5.5, y + 0.5 + 1.3),
                                   0.25);
                  }},
        // A square wave on rows: a tenth of the width to the left above the middle, where the sine
        // is below 0; rows next to its jumps, at 0, 13 and 26, are on their way.
        PixelCase{"SlitsOfASquareWave", "VESlitscan", inputs({{"Mode", 2}, {"Amount", 0.1}}),
                  [](const Bitmap& s, int x, int y) {
                      const double height = (y + 0.5) / kHeight;
                      const double wave = std::clamp(
                          std::sin(2 * std::numbers::pi * height) * kHeight / 3, -1.0, 1.0);
                      const double rounded = wave * (1.5 - 0.5 * wave * wave);
                      return mirroredAt(s, x + 0.5 + 0.05 * kWidth * rounded, y + 0.5);
                  }},
        // Without a speed, as the clock runs on.
        PixelCase{"Waves", "VE_Waves", with(wavesInputs(1, 50, 100), "Speed", 0),
                  [](const Bitmap& s, int x, int y) {
                      const double reach = 0.09 / (1 + 0.092 * 20) * kHeight;
                      const double swing = std::sin(20 * (y + 0.5 - kHeight / 2.0) / kHeight);
                      return mirroredAt(s, x + 0.5 + reach * swing, y + 0.5);
                  }}),
    kByTitle);

TEST(Spins, TurnCounterClockwiseAboutTheMiddle) {
    filtered("VEDummy", frame(1, 1), {});
    Random random(13);
    const Bitmap source = randomBitmap(random, 12, 12, CIFormat::RGBA8);
    PlatformClock::drive(0);
    const CIFilterRef filter = CIFilter::filterWithName("VE_Spin_Z");
    filter->setValueForKey(Number(kMiddle + 0.018), "inputSpin");
    filter->setValueForKey(source.image({30, -7}), "inputImage");
    PlatformClock::drive(1'000'000'000); // a quarter of a turn
    const CIImage image = filter->outputImage();
    PlatformClock::release();
    for (CIContext* context : everyContext())
        EXPECT_TRUE(isClose(render(*context, image, image.extent()),
                            [&](int x, int y) { return source.pixel(y, 11 - x); }, {1.01 / 255}))
            << nameOf(*context);
}

TEST(Ripples, SpreadAndLeaveTheRestAlone) {
    // Of a ramp the picture shows how far each point has moved along it.
    filtered("VEDummy", frame(1, 1), {});
    const Bitmap ramp = pictureOf(200, 100, [](int x, int) { return Straight{x / 200.0, 0, 0}; });
    const CIFilterRef filter = CIFilter::filterWithName("VE_Ripple");
    filter->setDefaults();
    for (const auto& [key, value] : inputs({{"OriginX", 0.5}, {"OriginY", 0.5}}))
        filter->setValueForKey(value, key);
    filter->setValueForKey(ramp.image(), "inputImage");
    double front = 0;
    for (const uint64_t milliseconds : {0, 200, 400, 600}) {
        filter->setVornFrameTime(1'000'000'000 + milliseconds * 1'000'000);
        const Bitmap result = render(*cpuContexts().front(), filter->outputImage(),
                                     {0, 0, 200, 100}, CIFormat::RGBAf);
        double farthest = 0, most = 0;
        result.forEach([&](int x, int y) {
            const double moved = std::fabs(result.pixel(x, y)[0] - ramp.pixel(x, y)[0]) * 200;
            if (moved > 0.01) farthest = std::max(farthest, std::hypot(x - 100.0, y - 50.0));
            most = std::max(most, moved);
        });
        // Half of the shorter side a second.
        EXPECT_NEAR(farthest, milliseconds * 0.05, 2.5) << milliseconds;
        EXPECT_GE(most, milliseconds > 0 ? 0.3 : 0.0) << milliseconds;
        EXPECT_GE(farthest, front);
        front = farthest;
    }
}

TEST(Aberrations, KeepGreyAndGreenWhereTheyAre) {
    // A white bar on black far from the middle, seen through a spectrum: outside it becomes red,
    // inside blue, and its light stays.
    const Bitmap bar = pictureOf(120, 60, [](int x, int) {
        const double level = x >= 95 && x < 105 ? 1 : 0;
        return Straight{level, level, level};
    });
    for (const double count : {1.0, 5.0, 20.0}) {
        const Bitmap parted =
            lookOf("VEChromaticAberration",
                   inputs({{"Mixer", 1}, {"SampleCount", count}, {"Blur", 100}}), bar);
        Pixel light{}, place{};
        for (int x = 0; x < 120; ++x)
            for (size_t c = 0; c < 3; ++c) {
                light[c] += parted.pixel(x, 30)[c];
                place[c] += parted.pixel(x, 30)[c] * (x + 0.5);
            }
        for (size_t c = 0; c < 3; ++c) EXPECT_NEAR(light[c], 10, 1.5) << count;
        EXPECT_NEAR(place[1] / light[1], 100, 0.2) << count;
        EXPECT_GT(place[0] / light[0], 100.8) << count;
        EXPECT_LT(place[2] / light[2], 99.2) << count;
        EXPECT_EQ(parted.pixel(60, 30), bar.pixel(60, 30));
    }
}

// ---- UV maps ------------------------------------------------------------------------------------

Settings mapInputs(double mode, const CIImage& map, double amount = 1) {
    Settings settings =
        inputs({{"Mode", mode}, {"Param_1", amount}, {"Param_2", kMiddle}, {"Param_3", kMiddle}});
    settings.emplace_back("inputMaskImage", map);
    return settings;
}
std::string uvMap(const char* kernel, const char* arguments, const char* map = "target",
                  const char* reads = " [-1 -1 642 482]") {
    return "VE_UVMapFromLayer_" + std::string(kernel) + "(source, " + map + ", " + arguments +
           ") [-1 -1 1922 1082]" + reads;
}

INSTANTIATE_TEST_SUITE_P(
    Maps, Graphs,
    testing::Values(
        GraphCase{"Distort", "VEUVMapFromLayer", with(mapInputs(0, secondFrame()), "Param_1", 0.25),
                  uvMap("Distort_RG8", "(0.333333 0.444444), 0.25, (0 0)")},
        GraphCase{"DistortByItself", "VEUVMapFromLayer", mapInputs(-1, CIImage()),
                  uvMap("Distort_RG8", "(0 0), 1, (0 0)", "source", " [-1 -1 1922 1082]")},
        GraphCase{"Mapped", "VEUVMapFromLayer",
                  with(with(mapInputs(1, secondFrame(), 0.75), "Param_2", 0), "Param_3", 1),
                  uvMap("Replace_RG_only", "(0.333333 0.444444), 0.5, (956.235 -542.118), 0",
                        "VE_UVMapFromLayer_blackAlpha(target) [0 0 640 480]")},
        GraphCase{"MappedPastTheLastMode", "VEUVMapFromLayer", mapInputs(14, secondFrame()),
                  uvMap("Replace_RG_BA_FlipHV",
                        "(0.333333 0.444444), 0, (-1.98041e-07 -1.11398e-07), 1",
                        "VE_UVMapFromLayer_blackAlpha(target) [0 0 640 480]"),
                  frame(1920, 1080).imageBySettingProperties({{"is_yuv", true}})},
        GraphCase{"MapOfNothing", "VEUVMapFromLayer", mapInputs(1, secondFrame()), "", CIImage()},
        GraphCase{"MapTooLarge", "VEUVMapFromLayer", mapInputs(1, frame(5760, 4126)),
                  "error FX 092"}),
    kByTitle);

/// Where each pixel is, shown as a map; `change` may write something else.
Bitmap mapOf(int width, int height, CIFormat format,
             const std::function<Pixel(double u, double v)>& color) {
    Bitmap map(width, height, format);
    map.forEach([&](int x, int y) { map.set(x, y, color((x + 0.5) / width, (y + 0.5) / height)); });
    return map;
}

TEST(Maps, OfPlacesGiveTheSourceBack) {
    // A picture without detail smaller than some pixels, so that the distance of each pixel from
    // its place shows as a difference.
    const int width = 640, height = 360;
    const Bitmap source = pictureOf(width, height, [&](int x, int y) {
        return Straight{x / double(width), y / double(height), 0.5};
    });
    struct Case {
        CIFormat format;
        int divisor; ///< of the map's size
        double pixels;
    };
    for (const Case& test : {Case{CIFormat::RGBA8, 1, 1.3}, Case{CIFormat::RGBAh, 1, 0.2},
                             Case{CIFormat::RGBAh, 4, 0.7}, Case{CIFormat::RGBAf, 1, 0.2}}) {
        const Bitmap map =
            mapOf(width / test.divisor, height / test.divisor, test.format, [](double u, double v) {
                return Pixel{u, v, 1, 1};
            });
        for (const double mode : {0.0, 1.0, 5.0, 9.0})
            for (CIContext* context : everyContext()) {
                const CIImage image =
                    filtered("VEUVMapFromLayer", source.image(), mapInputs(mode, map.image()));
                const Bitmap result = render(*context, image, image.extent(), CIFormat::RGBAf);
                double most = 0;
                result.forEach([&](int x, int y) {
                    // At the borders of a coarse map nothing tells of the half pixel beyond; steps
                    // of 8 bits are not smoothed there.
                    const bool isBorder = std::min({x, y, width - 1 - x, height - 1 - y}) < 6;
                    if (isBorder && (test.divisor > 1 || test.format == CIFormat::RGBA8)) return;
                    const Pixel a = result.pixel(x, y), b = source.pixel(x, y);
                    most =
                        std::max({most, std::fabs(a[0] - b[0]) * width,
                                  std::fabs(a[1] - b[1]) * height, std::fabs(a[3] - 1) * height});
                });
                EXPECT_LT(most, test.pixels) << mode << ", " << int(test.format) << " / "
                                             << test.divisor << ", " << nameOf(*context);
            }
    }
}

TEST(Maps, FlipLightAndCover) {
    Random random(3);
    const Bitmap source = randomBitmap(random, 40, 20, CIFormat::RGBA8);
    // Light of 1/2, an opacity of 3/4, and nothing in the left quarter.
    const Bitmap map = mapOf(40, 20, CIFormat::RGBAf, [](double u, double v) {
        return u < 0.25 ? Pixel{0, 0, 0, 0.75} : Pixel{0.75 * u, 0.75 * v, 0.75 * 0.5, 0.75};
    });
    for (int mode = 1; mode <= 12; ++mode) {
        const CIImage image =
            filtered("VEUVMapFromLayer", source.image(), mapInputs(mode, map.image({5, 9})));
        const int flips = (mode - 1) % 4;
        for (CIContext* context : everyContext())
            EXPECT_TRUE(isClose(render(*context, image, {1, 0, 38, 20}),
                                [&](int x, int y) {
                                    ++x;
                                    Pixel p = x < 10 ? Pixel{}
                                                     : source.pixel(flips & 1 ? 39 - x : x,
                                                                    flips & 2 ? 19 - y : y);
                                    if (mode >= 5)
                                        for (size_t c = 0; c < 3; ++c) p[c] *= 0.5;
                                    return mode >= 9 ? times(p, 0.75) : p;
                                },
                                {4 / 255.0}))
                << mode << ", " << nameOf(*context);
    }
}

} // namespace
