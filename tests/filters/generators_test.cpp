// Pictures out of nothing: noise, clouds and gradients.
#include "tables.h"

namespace {

INSTANTIATE_TEST_SUITE_P(
    Generators, Advertised,
    testing::Values(
        AdvertisedCase{"VE_NoiseGenerator",
                       "Mode \"mode\" to 5, Scale \"scale\" default 0.5, "
                       "Speed \"speed\" min 0.0001 from 0.0001 to 4 default 1, "
                       "4 \"density/scroll x\" default 0.5, 5 \"scroll y\" default 0.5"},
        AdvertisedCase{"VE_CloudGenerator",
                       "Scale \"scale\" to 255, Speed \"speed\", Cover \"cover\" to 255, "
                       "Alpha \"alpha\" to 255, Brightness \"brightness\" to 255"},
        AdvertisedCase{"VE_RadialGradient",
                       "_X \"X\", _Y \"Y\", Radius_1 \"radius 1\" min 1 from 1 to 800 default 400, "
                       "Radius_2 \"radius 2\" min 1 from 1 to 800 default 400, Red \"red\", "
                       "Green \"green\" min 0.01, Blue \"blue\""},
        AdvertisedCase{"VEGradient", "_X1 \"X1\", _Y1 \"Y1\", _X2 \"X2\", _Y2 \"Y2\", Red \"red\", "
                                     "Green \"green\" min 0.01, Blue \"blue\""},
        AdvertisedCase{"VE_ScrollingGradient",
                       "Mode \"mode\" to 10, Speed \"speed\" default 0.5, "
                       "Scale \"scale\" min 1 from 1 to 100 default 1, "
                       "Width \"width\" min 0.1 from 0.1 to 100 default 10, "
                       "Edge \"edge\" min 0.5 from 0.5 to 8 default 2"}),
    kByFilter);

const Settings kColor = inputs({{"Red", 1}, {"Green", 0.5}, {"Blue", 0.25}});

INSTANTIATE_TEST_SUITE_P(
    Generators, Graphs,
    testing::Values(
        GraphCase{"RadialGradient", "VE_RadialGradient",
                  inputs({{"_X", 0.3}, {"_Y", 0.9}, {"Radius_1", 20}, {"Red", 1}}),
                  "CIRadialGradient((960 540), 20, 400, (1 0 0 1), (0 0 0 0))"},
        GraphCase{"RadialGradientElsewhere", "VE_RadialGradient", kColor,
                  "CIRadialGradient((500.5 15.5), 400, 400, (1 0.5 0.25 1), (0 0 0 0))",
                  frame(1001, 31, {100, 100})},
        GraphCase{"RadialGradientWithoutAFrame", "VE_RadialGradient", kColor,
                  "CIRadialGradient((0 0), 400, 400, (1 0.5 0.25 1), (0 0 0 0))", CIImage()},
        GraphCase{"Gradient", "VEGradient",
                  with(with(with(kColor, "_X2", 1), "_X1", 0.25), "_Y2", 1),
                  "CISmoothLinearGradient((480 0), (1920 0), (1 0.5 0.25 1), (0 0 0 0))"},
        GraphCase{"GradientElsewhere", "VEGradient", with(kColor, "_X1", 0.1),
                  "CISmoothLinearGradient((2 0), (0 0), (1 0.5 0.25 1), (0 0 0 0))",
                  frame(20, 30, {100, 100})},
        GraphCase{"GradientWithoutAFrame", "VEGradient", with(kColor, "_X1", 1),
                  "CISmoothLinearGradient((0 0), (0 0), (1 0.5 0.25 1), (0 0 0 0))", CIImage()}),
    kByTitle);

std::string noise(const char* kernel, const char* arguments) {
    return "VE_NoiseGenerator_" + std::string(kernel) + "NoiseKernel(" + arguments + ")";
}
std::string clouds(const char* arguments) {
    return "VE_CloudGenerator_cloudGen_1(source, " + std::string(arguments) + ") [4 5 3840 2160]";
}

std::string scrolling(const char* kernel, const char* arguments) {
    return "VE_ScrollingGradient_" + std::string(kernel) + "(source, " + arguments + ") own";
}

INSTANTIATE_TEST_SUITE_P(
    Generators, Stories,
    testing::Values(
        StoryCase{
            "NoiseRestartsWithTheMode",
            "VE_NoiseGenerator",
            inputs({{"Speed", 2}, {"4", kMiddle + 0.1}, {"5", kMiddle - 0.2}}),
            {{1, {}, noise("perlin", "4, 2.6, 0, -5, 20")},
             {2, {}, noise("perlin", "8, 2.6, 0, -10, 40")},
             {3, inputs({{"Mode", 1}}), noise("flow", "4, 2550, 0, -0.05, 0.2")},
             {4, inputs({{"Mode", 2}, {"Scale", 1}}), noise("caustic", "4, 5500, 0, -0.05, 0.2")},
             {5, inputs({{"Mode", -1}}), noise("perlin", "4, 5.1, 0, -5, 20")}}},
        StoryCase{"NoiseCells",
                  "VE_NoiseGenerator",
                  inputs({{"Mode", 5}, {"Speed", 2}}),
                  {{1, {}, noise("voronoi", "40, 251, 1.53388, 0, 0")},
                   {1, inputs({{"4", 1}}), noise("voronoi", "40, 251, 0.65, 0, 0")},
                   {1, inputs({{"4", 0}}), noise("voronoi", "40, 251, 20.65, 0, 0")}}},
        StoryCase{"NoiseStandsStillForASpeedThatIsNoNumber",
                  "VE_NoiseGenerator",
                  inputs({{"4", kMiddle}, {"5", kMiddle}}),
                  {{1, {}, noise("perlin", "1, 2.6, 0, 0, 0")},
                   {2, inputs({{"Speed", NAN}}), noise("perlin", "1, 2.6, 0, 0, 0")},
                   {3, inputs({{"Speed", 1}}), noise("perlin", "2, 2.6, 0, 0, 0")}}},
        StoryCase{
            "Clouds",
            "VE_CloudGenerator",
            inputs({{"Speed", 1}}),
            {{1.5, {}, clouds("1.5, 0.25, 0.000392157, -5, 0, -0.5")},
             {2, inputs({{"Scale", 255}, {"Cover", 255}, {"Alpha", 255}, {"Brightness", 255}}),
              clouds("2, 10, 0.00230392, 7, 20, 0.5")},
             {3, {}, "error FX 094", 0, frame(3841, 2160)},
             {4, inputs({{"Speed", 0}}), clouds("4, 10, 0, 7, 20, 0.5"), 0,
              frame(3840, 2160, {4, 5})}},
            frame(3840, 2160, {4, 5})},
        StoryCase{
            "ScrollingGradient",
            "VE_ScrollingGradient",
            inputs({{"Speed", 0}, {"Scale", 3}}),
            {{1, {}, scrolling("scrollingGradientHorizontal_1", "74.4129, 90.1, 2, 0")},
             {1, inputs({{"Mode", 1}, {"Width", 100}, {"Edge", 8}}),
              scrolling("scrollingGradientHorizontal_2", "74.4129, 0.1, 8, 0")},
             {2, inputs({{"Mode", 2}, {"Width", 0.1}}),
              scrolling("scrollingGradientVertical_1", "148.826, 100, 8, 0")},
             {2, inputs({{"Mode", 3}, {"Speed", kMiddle}}),
              scrolling("scrollingGradientVertical_2", "148.826, 100, 8, 0")},
             {9, inputs({{"Mode", 4}}), scrolling("scrollingRainbow_1", "148.826, 5, 0, 0")},
             {10, inputs({{"Mode", 5}, {"Speed", 1}, {"Width", 50.1}}),
              scrolling("scrollingRainbow_2", "132.448, 2.5, 0, 0")},
             {10, inputs({{"Mode", 6}}),
              scrolling("concentricCircles_1", "132.448, 1.002, 1.6, 12")},
             {10, inputs({{"Mode", 7}}),
              scrolling("concentricCircles_2", "132.448, 1.002, 1.6, 12")},
             {11, inputs({{"Mode", 8}}), scrolling("concentricCircles_3", "56.8587, 1, 1.6, 12")},
             {11, inputs({{"Mode", 9}}), scrolling("concentricCircles_4", "56.8587, 4.509, 8, 12")},
             {12, inputs({{"Mode", 10}}), scrolling("coloredCircles", "82.0552, 0, 0, 5010")},
             {13, inputs({{"Mode", 11}}),
              scrolling("concentricSquares", "83.0631, 0.2505, 0.00625, 0.11")},
             {14, inputs({{"Mode", 300}}),
              scrolling("coloredConcentricSquircles", "95.6613, 0, 0, 0.501")},
             {14, inputs({{"Mode", -1}}),
              scrolling("scrollingGradientHorizontal_1", "95.6613, 50, 8, 0")}}}),
    kByTitle);

TEST(Patterns, MoveToTheRightUpOrOutwardAboveTheMiddleOfTheSpeed) {
    filtered("VEDummy", frame(1, 1), {});
    constexpr int kSide = 121, kMid = kSide / 2;
    const Bitmap source(kSide, kSide);
    for (int mode = 0; mode < 13; ++mode) {
        PlatformClock::drive(0);
        const CIFilterRef filter = CIFilter::filterWithName("VE_ScrollingGradient");
        filter->setDefaults();
        for (const auto& [key, value] :
             inputs({{"Mode", mode}, {"Width", 40}, {"Scale", 70}, {"Speed", 1}}))
            filter->setValueForKey(value, key);
        filter->setValueForKey(source.image({7, -3}), "inputImage");
        const auto pictureAfter = [&](uint64_t milliseconds) {
            PlatformClock::drive(milliseconds * 1'000'000);
            return render(referenceContext(), filter->outputImage(), {7, -3, kSide, kSide},
                          CIFormat::RGBAf);
        };
        const Bitmap before = pictureAfter(1000), after = pictureAfter(1060);
        // Along the way of the pattern what is seen now was there before, a little further back.
        const bool isUp = mode == 2 || mode == 3 || mode == 5;
        const auto difference = [&](int back) {
            double sum = 0;
            for (int i = 25; i < 50; ++i) {
                const int now = kMid + i, then = now - back;
                sum += isUp ? differenceOf(after.pixel(kMid, now), before.pixel(kMid, then))
                            : differenceOf(after.pixel(now, kMid), before.pixel(then, kMid));
            }
            return sum;
        };
        double forward = HUGE_VAL, backward = HUGE_VAL;
        for (int i = 1; i <= 4; ++i) {
            forward = std::min(forward, difference(i));
            backward = std::min(backward, difference(-i));
        }
        EXPECT_LT(2 * forward, backward) << mode;
    }
    PlatformClock::release();
}

TEST(Patterns, AreEvenWhereTheScreenIsTooCoarse) {
    // Finer than a pixel: the mean, and no false pattern.
    for (int mode = 0; mode < 13; ++mode) {
        if (mode >= 6 && mode != 10 && mode != 12) continue;
        const Bitmap look =
            lookOf("VE_ScrollingGradient", inputs({{"Mode", mode}, {"Width", 0.1}, {"Edge", 8}}),
                   Bitmap(90, 50, CIFormat::RGBAf));
        const double mean = mode == 1 || mode == 3 ? 1 / 9.0 : 0.5;
        look.forEach([&](int x, int y) {
            ASSERT_LT(differenceOf(look.pixel(x, y), {mean, mean, mean, 1}), 0.02)
                << mode << ": " << x << ", " << y;
        });
    }
    // Rings of any share of light have it on the whole.
    for (const int mode : {6, 8, 9, 11}) {
        double sum = 0;
        const Bitmap look =
            lookOf("VE_ScrollingGradient", inputs({{"Mode", mode}, {"Width", 25}, {"Edge", 8}}),
                   Bitmap(400, 400, CIFormat::RGBAf));
        look.forEach([&](int x, int y) { sum += look.pixel(x, y)[0]; });
        EXPECT_NEAR(sum / (400 * 400), 0.5, 0.03) << mode;
    }
}

TEST(LongRunningNoise, StillMovesAFrameAtATime) {
    filtered("VEDummy", frame(1, 1), {});
    Random random(3);
    const Bitmap source(160, 90);
    for (int mode = 0; mode < 4; ++mode) {
        PlatformClock::drive(0);
        const CIFilterRef filter = CIFilter::filterWithName("VE_NoiseGenerator");
        filter->setDefaults();
        filter->setValueForKey(source.image(), "inputImage");
        filter->setValueForKey(Number(mode), "inputMode");
        filter->outputImage();
        const auto pictureAt = [&](uint64_t milliseconds) {
            PlatformClock::drive(milliseconds * 1'000'000);
            return render(referenceContext(), filter->outputImage(), {0, 0, 160, 90},
                          CIFormat::RGBAf);
        };
        // From one frame to the next a week of motion on.
        constexpr uint64_t kWeek = 7 * 24 * 3600 * 1000ull;
        double least = HUGE_VAL, most = 0;
        Bitmap before = pictureAt(kWeek);
        for (uint64_t i = 1; i <= 8; ++i) {
            const Bitmap now = pictureAt(kWeek + 40 * i);
            double sum = 0;
            now.forEach(
                [&](int x, int y) { sum += differenceOf(now.pixel(x, y), before.pixel(x, y)); });
            least = std::min(least, sum), most = std::max(most, sum);
            before = now;
        }
        EXPECT_GT(least, 0) << mode;
        EXPECT_LT(most, 3 * least) << mode;
    }
    PlatformClock::release();
}

} // namespace
