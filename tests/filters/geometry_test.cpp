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

} // namespace
