// Frames that are kept: trails, edges, frozen pictures, strobes.
#include "tables.h"

#include "allocation_count.h"

#include "vorneffects/ImageDescription.h"

#include <set>
#include <thread>

namespace {

INSTANTIATE_TEST_SUITE_P(
    Temporal, Advertised,
    testing::Values(
        AdvertisedCase{
            "VEDecay",
            "Amount \"Amount\" min 0.001 from 0.001 to 0.99 default 0.001, "
            "Skip \"Skip Frame\" to 255 default 1, Scale \"Scale\" to 255 default 80, "
            "Xpos \"X Position\" to 255 default 80, Ypos \"Y Position\" to 255 default 80"},
        AdvertisedCase{"VEEdgeDetect2", "Mixer \"mixer\" default 1, Width \"LineWidth\" default 1, "
                                        "Reduce \"Reduce\" default 0.5, "
                                        "ReduceBrightness \"reduce bright\" default 0.5"},
        AdvertisedCase{"VE_TimecodeBurnin",
                       "1 no label to 255 default 80, 2 no label to 255 default 80, "
                       "3 no label to 255 default 80, 4 no label to 255 default 80, "
                       "5 no label to 255 default 80"},
        AdvertisedCase{"VEFreeze", "Freeze \"freeze\" default 1"},
        AdvertisedCase{"VEOldFilm", "Mixer \"mixer\" default 1, "
                                    "Spacing \"spacing\" min 0.1 from 0.1 to 10 default 1, "
                                    "ScratchWidth \"scratch width\" to 10 default 1, "
                                    "BackgroundNoise \"background noise\" to 0.05, "
                                    "Scale \"scale\" min 10 from 10 to 100 default 10"},
        AdvertisedCase{"VE_CRT",
                       "Speed no label to 20 default 10, StripeHeight no label default 0.5, "
                       "Size no label min 2 from 2 to 6 default 2, "
                       "Warp no label min 2 from 2 to 6.5 default 6.5, "
                       "Spacing no label min 20 from 20 to 200 default 20"},
        AdvertisedCase{"VE_Strobe_2",
                       "Mixer \"mixer\" default 1, Mode \"mode\" to 9, "
                       "Frequency \"size\" to 100 default 1, Speed \"speed\" to 20 default 1"}),
    kByFilter);

/// The trail of a decay of 1, at rest: everything but the blend and its frame.
std::string trail(const char* blend, const char* current, const char* offset = "(0 0), 1") {
    return std::string(blend) + "(VE_Decay_offset(VE_Decay_multiply(kept, 1) own, " + offset +
           ") own, " + current + ")";
}
const Settings kDecayAtRest =
    inputs({{"Amount", 1}, {"Scale", kMiddle}, {"Xpos", kMiddle}, {"Ypos", kMiddle}});

INSTANTIATE_TEST_SUITE_P(
    Feedback, Stories,
    testing::Values(
        StoryCase{
            "DecayKeepsATrail",
            "VEDecay",
            kDecayAtRest,
            {{0, {}, "source"},
             {0, {}, trail("CIMaximumCompositing", "surface [0 0 24 10] 96 sRGB")},
             {0, inputs({{"Skip", 0}}),
              trail("CIMaximumCompositing", "surface [0 0 24 10] 96 sRGB")},
             {0, inputs({{"Skip", 61}}), trail("CIDarkenBlendMode", "surface [0 0 24 10] 96 sRGB")},
             {0, inputs({{"Skip", 121}}),
              trail("CIDivideBlendMode", "surface [0 0 24 10] 96 sRGB")},
             {0, inputs({{"Skip", 181}}),
              trail("CIHardLightBlendMode", "surface [0 0 24 10] 96 sRGB")},
             {0, inputs({{"Skip", 300}}),
              trail("CIPinLightBlendMode", "surface [0 0 24 10] 96 sRGB")},
             {0, inputs({{"Skip", 301}}),
              trail("CIMaximumCompositing", "surface [0 0 24 10] 96 sRGB")},
             {0, inputs({{"Skip", -70}}),
              trail("CIMaximumCompositing", "surface [0 0 24 10] 96 sRGB")},
             {0, inputs({{"Xpos", 1}, {"Ypos", 0}, {"Scale", 1}}),
              trail("CIMaximumCompositing", "surface [0 0 24 10] 96 sRGB",
                    "(19.5342 -10.1212), 1.50196")}},
            frame(19, 10)},
        StoryCase{"DecayStartsAnew",
                  "VEDecay",
                  kDecayAtRest,
                  {{0, {}, "source"},
                   {0, {}, trail("CIMaximumCompositing", "surface [0 0 24 10] 96 sRGB")},
                   // Another size drops the trail, and the first frame of it is not tagged.
                   {0, {}, "source", 0, frame(16, 9)},
                   {0, {}, trail("CIMaximumCompositing", "surface [0 0 16 9] 64 sRGB")},
                   // So does an amount of nothing, but the size is still known then.
                   {0, inputs({{"Amount", 0}}), "source"},
                   {0, inputs({{"Amount", 1}}), "source"},
                   {0, {}, trail("CIMaximumCompositing", "surface [0 0 16 9] 64 sRGB")},
                   // Another place of the same size begins with an empty trail a frame later.
                   {0,
                    {},
                    trail("CIMaximumCompositing", "surface [0 0 16 9] 64 sRGB"),
                    0,
                    frame(16, 9, {5, 5})}},
                  frame(19, 10)},
        StoryCase{
            "EdgesOfACapturedFrame",
            "VEEdgeDetect2",
            inputs({{"Width", 0.25}}),
            {{0,
              {},
              "VE_EdgeDetect2_edgeDetect(surface [0 0 1928 7] 7712 sRGB, surface [0 0 1928 7] "
              "7712 sRGB, 1, 0.0075, 0.5, 0.5, 0) own own at [0 0 1928 7]"},
             {0, inputs({{"Smoothing", 0.5}, {"Width", 1}}),
              "VE_EdgeDetect2_edgeDetect(surface [0 0 8 8] 32 sRGB, surface [0 0 8 8] 32 sRGB, "
              "1, 0, 0.5, 0.5, 0.5) own own at [0 0 8 8]",
              0, frame(3, 8)}},
            frame(1921, 7)}),
    kByTitle);

TEST(Feedback, LeavesAFadingTrailAndNoBorderInThePadding) {
    filtered("VEDummy", frame(1, 1), {});
    const CIFilterRef decay = CIFilter::filterWithName("VEDecay");
    decay->setDefaults();
    for (const auto& [key, value] : kDecayAtRest) decay->setValueForKey(value, key);
    decay->setValueForKey(Number(std::pow(0.9, 10)), "inputAmount");
    // A white frame, then black ones.
    Bitmap white(13, 5), black(13, 5);
    white.forEach([&](int x, int y) {
        white.set(x, y, {1, 1, 1, 1});
        black.set(x, y, {0, 0, 0, 1});
    });
    const auto next = [&](const Bitmap& source) {
        decay->setValueForKey(source.image(), "inputImage");
        return render(*cpuContexts().front(), decay->outputImage(), {0, 0, 20, 5});
    };
    // The padding shows the last column once frames are captured, and no trail.
    next(white);
    // A step of 8 bits less than nine tenths, rounded up here and down there.
    int least = 255, most = 255;
    for (int i = 0; i < 60; ++i) {
        const Bitmap result = next(black);
        least = std::max(0, static_cast<int>(std::floor(least * 0.9 - 1)));
        most = std::max(0, static_cast<int>(std::floor(most * 0.9)));
        result.forEach([&](int x, int y) {
            const Pixel p = result.pixel(x, y);
            ASSERT_EQ(p[3], x < 16 ? 1 : 0) << i;
            for (int c = 0; c < 3; ++c) {
                const double level = p[static_cast<size_t>(c)] * 255;
                ASSERT_GE(level, x < 13 ? least - 1e-3 : 0) << i;
                ASSERT_LE(level, x < 13 ? most + 1e-3 : 0) << i;
            }
        });
    }
    EXPECT_LE(most, 1);
}

TEST(Feedback, KeepsTheHueOfATrail) {
    filtered("VEDummy", frame(1, 1), {});
    constexpr int kSize = 32;
    Bitmap orange(kSize, kSize), black(kSize, kSize);
    orange.forEach([&](int x, int y) {
        orange.set(x, y, {1, 0.8, 127 / 255.0, 1});
        black.set(x, y, {0, 0, 0, 1});
    });
    // The mean of each channel after so many frames of black.
    const auto after = [&](double amount, int frames) {
        const CIFilterRef decay = CIFilter::filterWithName("VEDecay");
        decay->setDefaults();
        for (const auto& [key, value] : kDecayAtRest) decay->setValueForKey(value, key);
        decay->setValueForKey(Number(amount), "inputAmount");
        Pixel mean{};
        for (int i = 0; i <= frames; ++i) {
            decay->setValueForKey((i == 0 ? orange : black).image(), "inputImage");
            const Bitmap result =
                render(*cpuContexts().front(), decay->outputImage(), {0, 0, kSize, kSize});
            mean = {};
            result.forEach([&](int x, int y) {
                for (size_t c = 0; c < 4; ++c)
                    mean[c] += result.pixel(x, y)[c] * 255 / (kSize * kSize);
            });
        }
        return mean;
    };
    for (const double amount : {0.5, 0.95, 0.99})
        for (const int frames : {10, 50, 120}) {
            const Pixel mean = after(amount, frames);
            EXPECT_NEAR(mean[1], 0.8 * mean[0], 1.5) << amount << " after " << frames;
            EXPECT_NEAR(mean[2], 127 / 255.0 * mean[0], 1.5) << amount << " after " << frames;
        }
    EXPECT_GT(after(0.99, 80)[0], after(0.95, 80)[0] + 20);
    EXPECT_EQ(after(0.99, 256)[0], 0);
}

TEST(Feedback, AllocatesNothingInASteadyChain) {
    if (!countsAllocations()) GTEST_SKIP() << "allocations are not counted under a sanitizer";
    const vorn::Session::Scope scope(cpuSession());
    filtered("VEDummy", frame(1, 1), {});
    const Bitmap source(200, 100);
    const CIImage image = source.image();
    for (const char* name : {"VEDecay", "VEEdgeDetect2"}) {
        const CIFilterRef filter = CIFilter::filterWithName(name);
        filter->setDefaults();
        for (const auto& [key, value] : kDecayAtRest) filter->setValueForKey(value, key);
        const auto run = [&](int frames) {
            for (int i = 0; i < frames; ++i) {
                filter->setValueForKey(image, "inputImage");
                EXPECT_TRUE(filter->outputImage());
            }
        };
        run(8);
        const uint64_t before = heapAllocations();
        run(8);
        // The threads' library may take some memory of its own; a frame's pixels would be more.
        EXPECT_LE(heapAllocations() - before, 8u) << name;
    }
}

TEST(Lines, AreHardlyWiderOnSoftEdges) {
    const auto widthOf = [](double softness) {
        const Bitmap edge = pictureOf(48, 16, [&](int x, int) {
            const double t = std::clamp((x - 24.0) / softness + 0.5, 0.0, 1.0);
            const double grey = t * t * (3 - 2 * t) * 0.6 + 0.2;
            return Straight{grey, grey, grey};
        });
        const Bitmap lines =
            lookOf("VEEdgeDetect2", inputs({{"Width", 0.5}, {"ReduceBrightness", 0}}), edge);
        double sum = 0;
        for (int x = 0; x < 48; ++x) sum += lines.pixel(x, 8)[0];
        return sum;
    };
    for (const double softness : {4.0, 5.0}) EXPECT_LT(widthOf(softness), 1.6 * widthOf(1));
}

TEST(Lines, AreEvenAndAsWideAsTheyAreSet) {
    const int width = 48, height = 40;
    const Bitmap step = pictureOf(width, height, [](int x, int y) {
        const double grey = std::clamp(x + 0.5 - (18 + y / 3.0) + 0.5, 0.0, 1.0) * 0.6 + 0.2;
        return Straight{grey, grey, grey};
    });
    double last = 0;
    for (const double lineWidth : {0.0, 0.25, 0.5, 0.75, 1.0}) {
        const Bitmap lines =
            lookOf("VEEdgeDetect2",
                   inputs({{"Width", lineWidth}, {"Reduce", 0.3}, {"ReduceBrightness", 0}}), step);
        double sum = 0, least = 1e9, most = 0;
        for (int y = 8; y < height - 8; ++y) {
            double row = 0;
            for (int x = 0; x < width; ++x) row += lines.pixel(x, y)[0];
            sum += row;
            least = std::min(least, row), most = std::max(most, row);
        }
        const double mean = sum / (height - 16);
        EXPECT_LT(most - least, 0.2 * mean) << lineWidth;
        EXPECT_GT(mean, last + 0.25) << lineWidth;
        last = mean;
    }
    EXPECT_LT(last, 4);
}

TEST(Lines, KeepQuietInNoise) {
    Random random(5);
    const Bitmap noise = pictureOf(60, 40, [&](int, int) {
        const double grey = 0.5 + random.real(-0.02, 0.02);
        return Straight{grey, grey, grey};
    });
    const Bitmap lines = lookOf("VEEdgeDetect2", {}, noise);
    double most = 0, sum = 0;
    lines.forEach([&](int x, int y) {
        most = std::max(most, lines.pixel(x, y)[0]);
        sum += lines.pixel(x, y)[0];
    });
    EXPECT_LT(most, 0.06);
    EXPECT_LT(sum / (60 * 40), 0.001);
}

std::string strobe(const char* kernel, const char* arguments) {
    return "VE_Strobe_2_" + std::string(kernel) + "(source, 1, " + arguments + ") [0 0 5000 4000]";
}

INSTANTIATE_TEST_SUITE_P(
    FreezeAndStrobe, Stories,
    testing::Values(StoryCase{"Freeze",
                              "VEFreeze",
                              {},
                              {{0, {}, "source"},
                               {1, {}, "surface [0 0 24 10] 96 sRGB"},
                               {2, {}, "surface [0 0 24 10] 96 sRGB", 0, frame(40, 40)},
                               {3, inputs({{"Freeze", 0.5}}), "source"},
                               {4, inputs({{"Freeze", 0.51}}), "source"},
                               {5, {}, "surface [0 0 40 40] 160 sRGB"}},
                              frame(19, 10)},
                    StoryCase{
                        "Strobe",
                        "VE_Strobe_2",
                        inputs({{"Speed", 20}, {"Frequency", 100}}),
                        {{0.5, {}, strobe("squareEqual", "100, 20, 0, 0.5")},
                         {1, inputs({{"Mode", 1}}), strobe("squareHoldOn", "100, 18.5203, -1, 1")},
                         {1, inputs({{"Mode", 2}, {"Range", 127}}),
                          strobe("squareHoldOff", "100, 18.5203, 0.5, 1")},
                         {1, inputs({{"Mode", 3}, {"Range", 255}}),
                          strobe("sineEqual", "100, 18.5203, 2, 1")},
                         {1, inputs({{"Mode", 4}}), strobe("sineHold", "100, 18.5203, 2, 1")},
                         {1, inputs({{"Mode", 5}}), strobe("sineAbsHumps", "100, 18.5203, 1, 1")},
                         {1, inputs({{"Mode", 6}, {"Range", 127}}),
                          strobe("sineAbsHumpsInvert", "100, 18.5203, 0, 1")},
                         {2, inputs({{"Mode", 7}}), strobe("snapBlackfadeWhite", "15, 10, 0, 2")},
                         {2, inputs({{"Mode", 9}}), strobe("snapWhiteFadeBlack", "15, 10, 0, 2")},
                         {2, inputs({{"Mode", -1}}), strobe("squareEqual", "100, 20, 0, 2")},
                         {3, {}, "error FX 225", 0, frame(6000, 4000)}},
                        frame(5000, 4000)}),
    kByTitle);

TEST(Freeze, ShowsTheFrameOnWhichItBegan) {
    filtered("VEDummy", frame(1, 1), {});
    Random random(23);
    const CIFilterRef filter = CIFilter::filterWithName("VEFreeze");
    filter->setDefaults();
    const Bitmap first = randomBitmap(random, 21, 9, CIFormat::RGBA8);
    for (int i = 0; i < 3; ++i) {
        const Bitmap live = i == 0 ? first : randomBitmap(random, 21, 9, CIFormat::RGBA8);
        filter->setValueForKey(live.image({3, 4}), "inputImage");
        const CIImage image = filter->outputImage();
        // The frame's copy lies at the origin. The padding repeats its last column.
        const CGRect bounds = i == 0 ? CGRect{3, 4, 21, 9} : CGRect{0, 0, 24, 9};
        EXPECT_TRUE(isClose(render(*cpuContexts().front(), image, bounds),
                            [&](int x, int y) { return first.pixel(std::min(x, 20), y); }, {}))
            << i;
    }
}

/// How bright the strobe leaves white at a time in seconds, for settings besides the defaults.
class StrobeLight {
public:
    explicit StrobeLight(const Settings& settings) : white_(1, 1, CIFormat::RGBAf) {
        filtered("VEDummy", frame(1, 1), {}); // registers the filters
        PlatformClock::drive(0);
        filter_ = CIFilter::filterWithName("VE_Strobe_2");
        filter_->setDefaults();
        for (const auto& [key, value] : settings) filter_->setValueForKey(value, key);
        white_.set(0, 0, {1, 1, 1, 1});
        filter_->setValueForKey(white_.image(), "inputImage");
    }
    ~StrobeLight() { PlatformClock::release(); }

    double at(double seconds) {
        PlatformClock::drive(static_cast<uint64_t>(std::llround(seconds * 1e9)));
        const CIImage image = filter_->outputImage();
        return render(*cpuContexts().front(), image, {0, 0, 1, 1}, CIFormat::RGBAf).pixel(0, 0)[0];
    }

private:
    Bitmap white_;
    CIFilterRef filter_;
};

TEST(Strobe, FollowsItsWaveforms) {
    const double kPi = std::acos(-1.0);
    // With the range in the middle, one cycle a second.
    struct Wave {
        int mode;
        double speed, size;
        std::function<double(double)> level;
    };
    const auto unit = [](double v) { return std::clamp(v, 0.0, 1.0); };
    const double slow = 1 / 0.35, swing = std::pow(32, 0.35);
    // Half a cycle about the beginning; at the greatest size flanks of half a cycle.
    const auto isOn = [](double x) { return std::fabs(x - std::round(x)) < 0.25 ? 1.0 : 0.0; };
    const auto soft = [&](double x) {
        const double from = x + 0.00390625;
        return unit(1 - 2 * std::fabs(from - std::round(from)));
    };
    const Wave waves[] = {
        {0, 1, 0.5, isOn},
        {0, 1, 1, isOn},
        {0, 1, 100, soft},
        {1, slow, 1, isOn},
        {2, slow, 1, isOn},
        {3, slow, 0.5, [&](double x) { return unit(0.5 + 2 * std::cos(2 * kPi * x)); }},
        {5, slow, 32, [&](double x) { return unit(0.5 + 2 * swing * (std::sin(kPi * x) - 0.5)); }},
        {6, slow, 0.5, [&](double x) { return 1 - unit(2 * std::sin(kPi * x) - 0.5); }},
        {7, 2, 0.5, [&](double x) { return unit(x * 1.075); }},
        {8, 2, 0.5, [&](double x) { return unit(1 - x * 1.075); }},
    };
    for (const Wave& wave : waves) {
        StrobeLight light(inputs({{"Mode", double(wave.mode)},
                                  {"Speed", wave.speed},
                                  {"Frequency", wave.size},
                                  {"Range", 127}}));
        const double depth = wave.mode >= 7 ? 0.5 : std::min(wave.size, 1.0);
        for (const double x : {0.0, 0.02, 0.2, 0.26, 0.4, 0.52, 0.77, 0.95})
            EXPECT_NEAR(light.at(x), 1 + (wave.level(x) - 1) * depth, 2e-5)
                << "mode " << wave.mode << " of size " << wave.size << " at " << x;
    }
}

TEST(Strobe, SquaresAreOnOrOffOnEveryFrame) {
    for (const double frameRate : {23.976, 25.0, 30.0, 50.0, 60.0})
        for (const double share : {0.1, 0.25, 0.4, 0.5, 0.8, 1.0}) {
            const double rate = std::min(share * frameRate, 20.0);
            for (const int mode : {0, 1, 2}) {
                const double speed = mode == 0 ? rate : std::pow(rate, 1 / 1.5) / 0.35;
                StrobeLight light(
                    inputs({{"Mode", double(mode)}, {"Speed", speed}, {"Range", 127}}));
                int on = 0;
                for (int i = 0; i < 120; ++i) {
                    const double level = light.at(i / frameRate);
                    ASSERT_TRUE(level < 1e-6 || level > 1 - 1e-6)
                        << mode << " at " << rate << " Hz, frame " << i << ": " << level;
                    on += level > 0.5;
                }
                // At half the frame rate and below it flickers, evenly but for a third of it.
                if (share <= 0.5) {
                    EXPECT_NEAR(on, 60, 20) << mode << " at " << rate << " Hz of " << frameRate;
                }
            }
        }
}

TEST(Strobe, HoldsForAsLongAsItsRangeSays) {
    // Unset, in the middle, and at the end of the control: how long it is on, of 1000 moments.
    for (const auto& [range, on] : {std::pair{0, 900}, {127, 500}, {255, 100}})
        for (const int mode : {1, 2}) {
            StrobeLight light(
                inputs({{"Mode", double(mode)}, {"Speed", 1 / 0.35}, {"Range", double(range)}}));
            int count = 0;
            for (int i = 0; i < 1000; ++i) count += light.at((i + 0.5) / 1000) > 0.5;
            EXPECT_NEAR(count, mode == 1 ? on : 1000 - on, 2) << mode << ", " << range;
        }
}

} // namespace
