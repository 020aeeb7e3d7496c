// Pictures bent: ripples, waves, spins, smears and maps of places.
#include "tables.h"

#include <numbers>

namespace {

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
