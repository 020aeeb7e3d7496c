// From one picture to another.
#include "starts.h"
#include "tables.h"

namespace {

const char* const kDissolve =
    "FadeStatus \"Time\", Adjust \"Adjust\" min 1 from 1 to 4 default 1 identity 1";

INSTANTIATE_TEST_SUITE_P(
    Transitions, Advertised,
    testing::Values(
        AdvertisedCase{"VEXFDissolve", kDissolve},
        AdvertisedCase{"VEXFDissolveWithPixels", kDissolve},
        AdvertisedCase{"VEXFBrightness", "Mode \"mode\" to 2, FadeStatus \"Time\""},
        AdvertisedCase{
            "VEXFColorBlend",
            "FadeStatus \"Time\", Color \"Color\" no min no from no to default (1 1 1 1) "
            "no identity no type"},
        AdvertisedCase{
            "VEXFWipes",
            "Mode \"mode\" to 6, Divisions \"divisions\" min 1 from 1 to 20 default 1 identity 1, "
            "Blur \"blur\" min 0.0001 from 0.0001 default 0.0001 identity 0.0001, "
            "FadeStatus \"Time\", Red \"red\" default 1, Green \"green\" default 1, "
            "Blue \"blue\" default 1, RingWidth \"ringWidth\" min 1 from 1 to 2 default 1, "
            "RingEdge \"ringEdge\" to 0.5"},
        AdvertisedCase{"VEXFSlides",
                       "Mode \"mode\" to 6, "
                       "Divisions \"divisions\" min 1 from 1 to 128 default 16 identity 1, "
                       "Spread \"spread\" min 0.0001 from 0.0001 default 0.1 identity 0.1, "
                       "FadeStatus \"Time\""},
        AdvertisedCase{"VEXFCircularWipe",
                       "Mode \"mode\" to 2, Softness \"softness\" min 0.0001 from 0.0001 "
                       "default 0.0001 identity 0.0001"},
        AdvertisedCase{"VEXFRotateLeft", "Mode \"mode\" to 10, FadeStatus \"Time\""},
        AdvertisedCase{"VEXFZoom", "Mode \"mode\" to 2, FadeStatus \"Time\""},
        AdvertisedCase{"VEXFCustomWipe", "Mode \"Mode\" to 2, FadeStatus \"Time\""},
        AdvertisedCase{"VEXFFromLayer", "Mode \"Mode\" to 2, FadeStatus \"Time\""}),
    kByFilter);

Settings toSecond(Settings settings) {
    settings.emplace_back("inputTargetImage", secondFrame());
    return settings;
}

Settings withData(Settings settings, std::vector<uint8_t> bytes) {
    settings.emplace_back("inputData", std::make_shared<const std::vector<uint8_t>>(bytes));
    return settings;
}

INSTANTIATE_TEST_SUITE_P(
    Transitions, Graphs,
    testing::Values(
        GraphCase{"Dissolve", "VEXFDissolve",
                  toSecond(inputs({{"FadeStatus", 0.5}, {"Adjust", 2}})),
                  "VEXFDissolve_dissolve(source, target, 0.25) own own"},
        GraphCase{"DissolveWithPixels", "VEXFDissolveWithPixels",
                  toSecond(inputs({{"FadeStatus", 0.5}, {"Adjust", 2}})),
                  "VEXFDissolveWithPixels_pixellate(VEXFDissolveWithPixels_dissolve(source, "
                  "target, "
                  "0.25) own own, 100) [110 111 30 31]"},
        GraphCase{"DissolveWithPixelsEnd", "VEXFDissolveWithPixels",
                  toSecond(inputs({{"FadeStatus", 1}})),
                  "VEXFDissolveWithPixels_pixellate(VEXFDissolveWithPixels_dissolve(source, "
                  "target, "
                  "1) own own, 0.0200033) [100.002 101.002 49.996 50.996]"},
        GraphCase{"ColorBlendMiddle", "VEXFColorBlend",
                  toSecond({{"inputFadeStatus", Number(0.5)},
                            {"inputColor", CIColor(0.1, 0.2, 0.3, 0.4)}}),
                  "VEXFColorBlend_colorBlend(source, (0.1 0.2 0.3 0.4), 0) own"},
        GraphCase{"ColorBlendLater", "VEXFColorBlend", toSecond(inputs({{"FadeStatus", 0.75}})),
                  "VEXFColorBlend_colorBlend(target, (1 1 1 1), 0.5) own at [0 0 640 480]"},
        GraphCase{"BrightFirst", "VEXFBrightness",
                  toSecond(inputs({{"FadeStatus", 0.3}, {"Mode", -1}})),
                  "VEXFBrightness_brightFirst(source, target, 0.3) own own"},
        GraphCase{"DarkFirst", "VEXFBrightness",
                  toSecond(inputs({{"FadeStatus", 0.3}, {"Mode", 2}})),
                  "VEXFBrightness_darkFirst(source, target, 0.3) own own"},
        GraphCase{"WipeInBars", "VEXFWipes",
                  toSecond(inputs({{"FadeStatus", 0.3}, {"Mode", -1}, {"Divisions", 4}})),
                  "VEXFWipes_horizontalBars(source, target, 0.3, 4, 0.0001) own own"},
        GraphCase{"WipeInCircles", "VEXFWipes",
                  withData(toSecond(inputs({{"Mode", 3}})), {1, 2, 3, 4, 5}),
                  "VEXFWipes_circleBarsReverse(source, target, 0, 1, 0.0001) own own"},
        GraphCase{"WipeByARing", "VEXFWipes",
                  toSecond(inputs({{"Mode", 4}, {"Green", 0.5}, {"RingEdge", 0.25}})),
                  "VEXFWipes_circleBarsRing(source, target, 0, 0.25, 1, 0.5, 1, 1, 0.25) own own"},
        GraphCase{
            "WipeByARingFromData", "VEXFWipes",
            withData(toSecond(inputs({{"Mode", 6}, {"Green", 0.7}})), {255, 0, 0, 255, 255, 9}),
            "VEXFWipes_circleBarsRingReverse(source, target, 0, 0.5, 1, 0, 0, 2, 0.5) own own"},
        GraphCase{"WipeByARingFromShortData", "VEXFWipes",
                  withData(toSecond(inputs({{"Mode", 5}, {"Blue", 0}})), {255, 0, 0, 255}),
                  "VEXFWipes_circleBarsRingReverse(source, target, 0, 0, 1, 1, 0, 1, 0) own own"},
        GraphCase{"Slide", "VEXFSlides", toSecond(inputs({{"FadeStatus", 0.5}})),
                  "VEXFSlides_xLeft(source, target, 0.5, 16, 0.1) own own"},
        GraphCase{"SlideFromAllSides", "VEXFSlides", toSecond(inputs({{"Mode", 6}})),
                  "VEXFSlides_xyCenter(source, target, 0, 16, 0.1) own own"},
        GraphCase{"ClockWipe",
                  "VEXFCircularWipe",
                  {{"inputTargetImage", frame(1280, 1440)}, {"inputFadeStatus", Number(0.5)}},
                  "VEXFCircularWipe_circularWipeCW(source, CICrop(something else, (0 0 1280 "
                  "1440)), 0.5, 0.0001, 1920, 1440) own "
                  "own"},
        GraphCase{"ClockWipeBack", "VEXFCircularWipe",
                  toSecond(inputs({{"FadeStatus", 0.5}, {"Mode", 2}})),
                  "VEXFCircularWipe_circularWipeCCW(source, target, 0.5, 0.0001, 1920, 1080) own "
                  "own"},
        GraphCase{"ClockWipeWithoutATime", "VEXFCircularWipe", toSecond({}), ""},
        GraphCase{"Rotate", "VEXFRotateLeft", toSecond(inputs({{"FadeStatus", 0.5}})),
                  "VEXFRotateLeft_rotateLeft(source, target, 0.5) own own"},
        GraphCase{"Push", "VEXFRotateLeft", toSecond(inputs({{"Mode", 10}})),
                  "VEXFRotateLeft_pushUp(source, target, 0) own own"},
        GraphCase{"ZoomOut", "VEXFZoom", toSecond({}),
                  "VEXFZoom_zoomOut(source, target, 0) own own"},
        GraphCase{"ZoomIn", "VEXFZoom", toSecond(inputs({{"Mode", 2}})),
                  "VEXFZoom_zoomIn(source, target, 0) own own"},
        // The matte's corner counts for nothing, nor does the frame's.
        GraphCase{"WipeByAMatte", "VEXFCustomWipe",
                  byMatte(frame(640, 480, {20, 0}), toSecond(inputs({{"FadeStatus", 0.3}}))),
                  "VEXFCustomWipe_hardWipe(source, target, CIPerspectiveTransformWithExtent("
                  "CICrop(something else, (20 0 640 480)), (0 0 640 480), (0 270), (480 270), (480 "
                  "0), (0 0)), 0.3) "
                  "own own own",
                  frame(480, 270, {30, 40})},
        GraphCase{"WipeSoftlyByAMatteInPlace", "VEXFCustomWipe",
                  byMatte(secondFrame(), toSecond(inputs({{"FadeStatus", 0.3}, {"Mode", 2}}))),
                  "VEXFCustomWipe_softWipe(source, target, target, 0.3) own own own",
                  frame(640, 480)},
        GraphCase{"WipeWithoutAMatte", "VEXFCustomWipe",
                  toSecond(inputs({{"FadeStatus", 0.3}, {"Mode", -1}})),
                  "VEXFCustomWipe_hardWipe(source, target, source, 0.3) own own own"},
        GraphCase{"WipeByALayerDarkFirst", "VEXFFromLayer",
                  byMatte(secondFrame(), toSecond(inputs({{"FadeStatus", 0.3}}))),
                  "VEXFFromLayer_darkFirst(source, target, target, 0.3) own own own",
                  frame(640, 480)},
        GraphCase{"WipeByALayerBrightFirst", "VEXFFromLayer", toSecond(inputs({{"Mode", 2}})),
                  "VEXFFromLayer_brightFirst(source, target, source, 0) own own own"}),
    kByTitle);

// ---- Into a colour without end ------------------------------------------------------------------

Settings toGreen(Settings settings) {
    settings.emplace_back("inputTargetImage", CIImage::imageWithColor(CIColor(0, 1, 0, 1)));
    return settings;
}
Pixel greener(Pixel p, double share) {
    for (size_t c = 0; c < 4; ++c) p[c] = p[c] * (1 - share) + (c & 1 ? share : 0);
    return p;
}
/// Dark on the left, bright on the right.
const Bitmap& ramp() {
    static const Bitmap picture = pictureOf(kWidth, kHeight, [](int x, int) {
        const double v = (x + 0.5) / kWidth;
        return Straight{v, v, v};
    });
    return picture;
}
double fromMiddle(int x, int y) {
    return std::hypot(x + 0.5 - kWidth / 2.0, y + 0.5 - kHeight / 2.0);
}

INSTANTIATE_TEST_SUITE_P(
    Transitions, Pixels,
    testing::Values(
        PixelCase{"WipeOfTwoBars", "VEXFWipes",
                  toGreen(inputs({{"FadeStatus", 0.4}, {"Divisions", 2}, {"Blur", 0.5}})),
                  [](const Bitmap& s, int x, int y) {
                      const double u = (kHeight - 1 - y) % 13 + 0.5;
                      return greener(s.pixel(x, y), smooth((0.4 * 1.5 - u / 13) / 0.5));
                  }},
        PixelCase{"WipeInward", "VEXFWipes",
                  toGreen(inputs({{"FadeStatus", 0.5}, {"Mode", 3}, {"Blur", 0.25}})),
                  [](const Bitmap& s, int x, int y) {
                      const double u = 1 - fromMiddle(x, y) / std::hypot(kWidth / 2, kHeight / 2);
                      return greener(s.pixel(x, y), smooth((0.5 * 1.25 - u) / 0.25));
                  }},
        PixelCase{"WipeByARedRing", "VEXFWipes",
                  toGreen(inputs({{"FadeStatus", 0.5},
                                  {"Mode", 4},
                                  {"Green", 0},
                                  {"Blue", 0},
                                  {"RingWidth", 1.5},
                                  {"RingEdge", 0.2}})),
                  [](const Bitmap& s, int x, int y) {
                      const double radius = std::hypot(kWidth / 2, kHeight / 2);
                      const double front = 0.5 * (radius * 1.45) - fromMiddle(x, y);
                      const double outer = smooth(front / (0.2 * radius)),
                                   inner = smooth((front - 0.25 * radius) / (0.2 * radius));
                      const Pixel p = times(s.pixel(x, y), 1 - outer);
                      return Pixel{p[0] + outer - inner, p[1] + inner, p[2], p[3] + outer};
                  }},
        PixelCase{"ClockWipe", "VEXFCircularWipe",
                  toGreen(inputs({{"FadeStatus", 0.3}, {"Softness", 0.25}})),
                  [](const Bitmap& s, int x, int y) {
                      const double turn =
                          std::atan2(x + 0.5 - kWidth / 2.0, y + 0.5 - kHeight / 2.0) / (2 * M_PI);
                      const double width = std::max(0.25, 1.5 / (2 * M_PI * fromMiddle(x, y)));
                      double inside = 0;
                      for (const double start : {-1, 0, 1})
                          inside += std::max(0.0, std::min(turn + width / 2, start + 0.3) -
                                                      std::max(turn - width / 2, start));
                      return greener(s.pixel(x, y), smooth(inside / width));
                  }},
        PixelCase{"SlideOfTheUpperStrip", "VEXFSlides",
                  toGreen(inputs({{"FadeStatus", 0.25}, {"Divisions", 2}, {"Spread", 1}})),
                  [](const Bitmap& s, int x, int y) {
                      return greener(s.pixel(x, y), y >= kHeight / 2 && x >= kWidth / 2);
                  }},
        PixelCase{
            "SlideOfTheMiddleStripFirst", "VEXFSlides",
            toGreen(inputs({{"FadeStatus", 0.25}, {"Mode", 4}, {"Divisions", 4}, {"Spread", 1}})),
            [](const Bitmap& s, int x, int y) {
                // A quarter of the way with three quarters to wait for: all of the first.
                return greener(s.pixel(x, y), std::abs(2 * x + 1 - kWidth) < kWidth / 2);
            }},
        PixelCase{"PushToTheRight", "VEXFRotateLeft",
                  toGreen(inputs({{"FadeStatus", 0.25}, {"Mode", 6}})),
                  [](const Bitmap& s, int x, int y) {
                      return x < 11 ? Pixel{0, 1, 0, 1} : s.pixel(x - 11, y);
                  }},
        PixelCase{"PushByBrokenPixels", "VEXFRotateLeft",
                  toGreen(inputs({{"FadeStatus", 0.25}, {"Mode", 9}})),
                  [](const Bitmap& s, int x, int y) {
                      // 6.5 pixels up.
                      if (y < 6) return Pixel{0, 1, 0, 1};
                      const Pixel below = s.pixel(x, std::max(y - 7, 0)), own = s.pixel(x, y - 6);
                      const Pixel moved = {(below[0] + own[0]) / 2, (below[1] + own[1]) / 2,
                                           (below[2] + own[2]) / 2, (below[3] + own[3]) / 2};
                      return y == 6 ? greener(own, 0.5) : moved;
                  }},
        PixelCase{"ZoomOutToTheHalf", "VEXFZoom", toGreen(inputs({{"FadeStatus", 0.5}})),
                  [](const Bitmap& s, int x, int y) {
                      if (x < 11 || x >= 33 || y < 6 || y > 19) return Pixel{0, 1, 0, 1};
                      Pixel mean{};
                      for (const int i : {2 * x - 22, 2 * x - 21})
                          for (const int j : {2 * y - 13, 2 * y - 12}) {
                              const Pixel p = s.pixel(i, std::clamp(j, 0, kHeight - 1));
                              for (size_t c = 0; c < 4; ++c) mean[c] += p[c] / 4;
                          }
                      return greener(mean, y == 6 || y == 19 ? 0.5 : 0);
                  }},
        // A gradient of the frame's size, which moves with the frame; one of a few pixels and one
        // colour, whose borders are stretched; and nothing, which is black.
        PixelCase{"WipeSoftlyAcross", "VEXFCustomWipe",
                  toGreen(byMatte(ramp().image(), inputs({{"FadeStatus", 0.4}, {"Mode", 1}}))),
                  [](const Bitmap& s, int x, int y) {
                      return greener(s.pixel(x, y),
                                     smooth((0.4 * 1.25 - (x + 0.5) / kWidth) / 0.25));
                  }},
        PixelCase{"WipeByABrightLayerFirst", "VEXFFromLayer",
                  toGreen(byMatte(frame(3, 2), inputs({{"FadeStatus", 0.5}, {"Mode", 1}}))),
                  [](const Bitmap& s, int x, int y) {
                      const double y0 = 0.2126 * 0.2 + 0.7152 * 0.4 + 0.0722 * 0.6;
                      return greener(s.pixel(x, y), smooth((0.5 * 1.5 - (1 - y0)) / 0.5));
                  }},
        PixelCase{"WipeByATransparentLayer", "VEXFFromLayer",
                  toGreen(byMatte(CIImage::imageWithColor(CIColor(1, 1, 1, 0))
                                      .imageByCroppingToRect({0, 0, 4, 4}),
                                  inputs({{"FadeStatus", 0.25}}))),
                  [](const Bitmap& s, int x, int y) {
                      return greener(s.pixel(x, y), smooth(0.25 * 1.5 / 0.5));
                  }}),
    kByTitle);

TEST(Transitions, BringTheIncomingPictureInFromItsSide) {
    struct Case {
        const char* filter;
        int mode;
        std::function<CGPoint(int x, int y)> from; ///< of the incoming picture; x < 0: outgoing
    };
    constexpr CGPoint kOutgoing{-1, 0};
    constexpr int across = kWidth / 2, up = kHeight / 2;
    const auto point = [](double x, double y) { return CGPoint{x, y}; };
    const Case cases[] = {
        {"VEXFSlides", 0,
         [&](int x, int y) { return x < across ? kOutgoing : point(x - across, y); }},
        {"VEXFSlides", 1,
         [&](int x, int y) {
             return x < 11 ? point(x + 11, y) : x < 33 ? kOutgoing : point(x - 11, y);
         }},
        {"VEXFSlides", 2, [&](int x, int y) { return y < up ? kOutgoing : point(x, y - up); }},
        {"VEXFSlides", 3, [&](int x, int y) { return y >= up ? kOutgoing : point(x, y + up); }},
        {"VEXFRotateLeft", 6,
         [&](int x, int y) { return x < across ? point(x + across, y) : kOutgoing; }},
        {"VEXFRotateLeft", 7,
         [&](int x, int y) { return x < across ? kOutgoing : point(x - across, y); }},
        {"VEXFRotateLeft", 8, [&](int x, int y) { return y < up ? kOutgoing : point(x, y - up); }},
        {"VEXFRotateLeft", 9, [&](int x, int y) { return y < up ? point(x, y + up) : kOutgoing; }}};
    Random random(8);
    const Bitmap source(kWidth, kHeight),
        target = randomBitmap(random, kWidth, kHeight, CIFormat::RGBA8);
    for (const Case& test : cases) {
        Settings settings{{"inputTargetImage", target.image({9, -7})},
                          {"inputFadeStatus", Number(0.5)},
                          {"inputMode", Number(test.mode)}};
        if (test.filter == std::string("VEXFSlides"))
            settings.emplace_back("inputDivisions", Number(1));
        const CIImage image = filtered(test.filter, source.image({9, -7}), settings);
        for (CIContext* context : everyContext())
            EXPECT_TRUE(isClose(render(*context, image, image.extent()),
                                [&](int x, int y) {
                                    const CGPoint from = test.from(x, y);
                                    return from.x < 0 ? Pixel{}
                                                      : target.pixel(int(from.x), int(from.y));
                                },
                                {0.6 / 255}))
                << test.filter << " " << test.mode << ", " << nameOf(*context);
    }
}

TEST(Transitions, ABoxFillsTheFrameAlongItsMiddleAndACardIsSeenFromBothSides) {
    const Bitmap white = pictureOf(60, 40, [](int, int) { return Straight{1, 1, 1}; });
    for (int mode = 0; mode < 6; ++mode)
        for (const double time : {0.02, 0.3, 0.5, 0.77, 0.98}) {
            const CIImage image = filtered("VEXFRotateLeft", white.image(),
                                           {{"inputTargetImage", white.image()},
                                            {"inputMode", Number(mode)},
                                            {"inputFadeStatus", Number(time)}});
            for (CIContext* context : everyContext()) {
                const Bitmap result = render(*context, image, image.extent(), CIFormat::RGBAf);
                double least = 1, most = 0, sum = 0;
                result.forEach([&](int x, int y) {
                    const Pixel p = result.pixel(x, y);
                    const bool isMiddle = mode < 2 ? y == 20 : mode < 4 ? x == 30 : false;
                    if (isMiddle) least = std::min(least, p[3]);
                    most = std::max({most, p[0] - p[3], p[3] - 1});
                    sum += p[3] / (60 * 40);
                });
                EXPECT_NEAR(least, 1, 1e-3) << mode << " at " << time << ", " << nameOf(*context);
                EXPECT_LT(most, 1e-3) << mode << " at " << time << ", " << nameOf(*context);
                if (mode >= 4) {
                    EXPECT_NEAR(sum, std::fabs(std::cos(M_PI * time)), 0.2) << mode << time;
                }
            }
        }
}

/// The transitions with the number of their modes.
const std::pair<const char*, int> kModes[] = {
    {"VEXFDissolve", 1},     {"VEXFDissolveWithPixels", 1},
    {"VEXFColorBlend", 1},   {"VEXFBrightness", 2},
    {"VEXFWipes", 6},        {"VEXFSlides", 6},
    {"VEXFCircularWipe", 2}, {"VEXFRotateLeft", 10},
    {"VEXFZoom", 2},         {"VEXFCustomWipe", 2},
    {"VEXFFromLayer", 2}};

TEST(Transitions, BeginWithOneImageAndEndWithTheOther) {
    Random random(5);
    const Bitmap source = randomBitmap(random, 67, 45, CIFormat::RGBA8);
    const Bitmap target = randomBitmap(random, 67, 45, CIFormat::RGBA8);
    for (const auto& [name, modes] : kModes)
        for (int mode = 0; mode < modes; ++mode)
            for (const double time : {0.0, 1.0}) {
                Settings settings{{"inputTargetImage", target.image()},
                                  {"inputFadeStatus", Number(time)}};
                if (modes > 1) settings.emplace_back("inputMode", Number(mode));
                const CIImage image = filtered(name, source.image(), settings);
                for (CIContext* context : everyContext())
                    EXPECT_TRUE(isClose(render(*context, image, image.extent()),
                                        time == 0 ? source : target, {}))
                        << name << ", mode " << mode << " at " << time << ", " << nameOf(*context);
            }
}

TEST(Transitions, OfUnlikeSizesEndWithoutAHole) {
    Random random(6);
    const Bitmap source = randomBitmap(random, 40, 30, CIFormat::RGBA8);
    const Bitmap target = randomBitmap(random, 24, 20, CIFormat::RGBA8);
    for (const auto& [name, modes] : kModes) {
        if (name == std::string("VEXFColorBlend")) continue; // has the extent of either
        Settings settings{{"inputTargetImage", target.image({5, 1})},
                          {"inputFadeStatus", Number(1)}};
        if (modes > 1) settings.emplace_back("inputMode", Number(modes - 1));
        const CIImage image = filtered(name, source.image({-4, 3}), settings);
        for (CIContext* context : everyContext())
            EXPECT_TRUE(isClose(render(*context, image, image.extent()),
                                [&](int x, int y) {
                                    return target.pixel(std::clamp(x - 9, 0, 23),
                                                        std::clamp(y + 2, 0, 19));
                                },
                                {}))
                << name << ", " << nameOf(*context);
    }
}

TEST(Transitions, ThroughBrightnessHoldBlackAndWhite) {
    // Black, a shadow, middle grey, white, half transparent grey; the same on both sides.
    Bitmap source(5, 1, CIFormat::RGBAf);
    const double levels[] = {0, 0.05, 0.5, 1, 0.25};
    for (int x = 0; x < 5; ++x) {
        const double v = levels[x];
        source.set(x, 0, {v, v, v, x == 4 ? 0.5 : 1});
    }
    for (const int mode : {0, 1}) {
        const CIImage image = filtered("VEXFBrightness", source.image(),
                                       {{"inputTargetImage", source.image()},
                                        {"inputFadeStatus", Number(0.5)},
                                        {"inputMode", Number(mode)}});
        for (CIContext* context : everyContext()) {
            const Bitmap result = render(*context, image, {0, 0, 5, 1}, CIFormat::RGBAf);
            const auto at = [&](int x) { return double(result.pixel(x, 0)[0]); };
            EXPECT_NEAR(at(0), 0, 1e-4);
            EXPECT_NEAR(at(3), 1, 1e-4);
            EXPECT_LT(at(1), 0.15);
            EXPECT_NEAR(at(2), mode == 0 ? 0.95 : 0.05, 0.05);
            EXPECT_NEAR(at(4), at(2) / 2, 1e-3);
        }
    }
}

TEST(Transitions, DissolveImagesWithoutEnd) {
    const CIImage red = CIImage::imageWithColor(CIColor(1, 0, 0, 1)),
                  blue = CIImage::imageWithColor(CIColor(0, 0, 1, 1));
    const CGRect rect{-50, 9, 40, 20};
    for (const char* name : {"VEXFDissolve", "VEXFDissolveWithPixels", "VEXFColorBlend"})
        for (const auto& [source, target] :
             {std::pair{red, blue}, std::pair{red.imageByCroppingToRect(rect), blue},
              std::pair{red, blue.imageByCroppingToRect(rect)}}) {
            const CIImage image = filtered(
                name, source, {{"inputTargetImage", target}, {"inputFadeStatus", Number(0.5)}});
            const bool isDip = name == std::string("VEXFColorBlend");
            const Pixel expected = isDip ? Pixel{1, 1, 1, 1} : Pixel{0.5, 0, 0.5, 1};
            for (CIContext* context : everyContext())
                EXPECT_TRUE(isClose(render(*context, image, rect, CIFormat::RGBAf),
                                    [&](int, int) { return expected; }, {1e-3}))
                    << name << ", " << nameOf(*context);
        }
}

TEST(Transitions, WipesDissolveInAFrameWithoutEnd) {
    const CIImage red = CIImage::imageWithColor(CIColor(1, 0, 0, 1)),
                  blue = CIImage::imageWithColor(CIColor(0, 0, 1, 1));
    for (const auto& [name, mode] : {std::pair{"VEXFWipes", 0},
                                     {"VEXFWipes", 3},
                                     {"VEXFWipes", 4},
                                     {"VEXFCircularWipe", 0},
                                     {"VEXFCustomWipe", 0},
                                     {"VEXFFromLayer", 1}})
        for (const double time : {0.25, 1.0}) {
            const CIImage image = filtered(name, red,
                                           {{"inputTargetImage", blue},
                                            {"inputMode", Number(mode)},
                                            {"inputFadeStatus", Number(time)}});
            for (CIContext* context : everyContext())
                EXPECT_TRUE(isClose(render(*context, image, {-50, 9, 40, 20}, CIFormat::RGBAf),
                                    [&](int, int) {
                                        return Pixel{1 - time, 0, time, 1};
                                    },
                                    {1e-3}))
                    << name << " " << mode << ", " << nameOf(*context);
        }
}

} // namespace
