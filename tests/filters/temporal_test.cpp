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

// ---- Timecode -----------------------------------------------------------------------------------

CIFilterRef timecode(Session& session, const Settings& settings, double nanoseconds) {
    filtered("VEDummy", frame(1, 1), {});
    const CIFilterRef filter = session.filterWithName("VE_TimecodeBurnin");
    filter->setDefaults();
    filter->setValueForKey(Number(nanoseconds), "inputTimecode");
    for (const auto& [key, value] : settings) filter->setValueForKey(value, key);
    return filter;
}
Bitmap rendered(CIFilter& filter, const Bitmap& source) {
    filter.setValueForKey(source.image(), "inputImage");
    return render(*cpuContexts().front(), filter.outputImage(),
                  {0, 0, double(source.width()), double(source.height())});
}

TEST(Timecode, IsTheTextOfItsTimeInABox) {
    constexpr int kW = 801, kH = 203;
    struct Case {
        double time;
        const char* text;
        double size, x, y;
    };
    for (const Case& test : {Case{0, "00:00:00:00", 0, 0, 0},
                             {3723500000000, "01:02:03:15", 255, 255, 255},
                             {999999995, "00:00:00:30", 80, 100, 30},
                             {400000e9, "111:06:40:00", 80, 80, 80},
                             {-1e9, "351909:41:28:21", 0, 0, 255}}) {
        SCOPED_TRACE(test.text);
        const auto session = Session::make();
        const CIFilterRef filter =
            timecode(*session, inputs({{"1", 255}, {"2", test.size}, {"3", test.x}, {"4", test.y}}),
                     test.time);
        // A transparent source shows the buffer.
        const Bitmap shown = rendered(*filter, Bitmap(kW, kH));

        const double k = test.size / 255 * 4 + 1;
        const CGRect box{test.x / 255 * (kW - std::floor(k * 150)),
                         test.y / 255 * (kH - std::floor(k * 26)), std::floor(k * 150),
                         std::floor(k * 26)};
        Bitmap expected(kW, kH, CIFormat::RGBA8);
        const CGContextRef context = BitmapContext::create(
            expected.bytes(), kW, kH, expected.bytesPerRow(), kCIFormatRGBA8, CGColorSpace::SRGB);
        context->setFillColor(0.25, 0.25, 0.25, 0.75);
        context->fillRect(box);
        context->setFillColor(1, 1, 1, 1);
        context->drawText({box.x + k * 9, box.y + k * 5}, test.text, "Menlo", k * 20);
        context->flush();
        // Places that are computed in single precision shift an edge by a step or two.
        EXPECT_TRUE(isClose(shown, expected, {3.01 / 255}));
    }
}

TEST(Timecode, DigitsKeepStill) {
    uint8_t pixel[4];
    const CGContextRef ruler =
        BitmapContext::create(pixel, 1, 1, 4, kCIFormatRGBA8, CGColorSpace::SRGB);
    for (const char* font : {"Menlo", "Helvetica"})
        for (const double size : {20.0, 45.0980392, 100.0})
            for (int digit = 1; digit < 10; ++digit)
                EXPECT_EQ(
                    ruler->textWidth(std::string(5, static_cast<char>('0' + digit)), font, size),
                    ruler->textWidth("00000", font, size))
                    << font << " " << digit;
}

TEST(Timecode, LeavesNothingBehindInTheBufferOfTheFirstSize) {
    const auto session = Session::make(), fresh = Session::make();
    const Bitmap first(400, 300), second(500, 200);
    const Settings lower = inputs({{"1", 255}, {"2", 255}, {"3", 10}, {"4", 20}}),
                   upper = inputs({{"1", 255}, {"2", 0}, {"3", 200}, {"4", 90}});
    rendered(*timecode(*fresh, upper, 0), first);
    const Bitmap expected = rendered(*timecode(*fresh, upper, 7e9), second);
    rendered(*timecode(*session, lower, 0), first);
    EXPECT_TRUE(rendered(*timecode(*session, upper, 7e9), second) == expected);
    // Without any text the source is what it was.
    Random random(5);
    const Bitmap source = randomBitmap(random, 90, 60, CIFormat::RGBA8);
    EXPECT_TRUE(isClose(rendered(*timecode(*session, inputs({{"1", 0}}), 0), source), source, {0}));
}

TEST(Timecode, IsNeverReadWhileItIsDrawn) {
    const auto session = Session::make();
    const Bitmap source(300, 60);
    const Settings settings = inputs({{"1", 255}, {"2", 60}, {"3", 0}, {"4", 0}});
    const CIFilterRef filters[] = {timecode(*session, settings, 0),
                                   timecode(*session, settings, 80'000e9)};
    const Bitmap whole[] = {rendered(*filters[0], source), rendered(*filters[1], source)};
    ASSERT_FALSE(whole[0] == whole[1]);
    // Each may show what the other has drawn last, and never a part of it.
    std::vector<std::thread> threads;
    for (const CIFilterRef& filter : filters)
        threads.emplace_back([&, filter] {
            CIContext context({.device = DeviceKind::CPU, .threads = 1});
            for (int i = 0; i < 60; ++i) {
                Bitmap shown(300, 60);
                ASSERT_TRUE(context.render(filter->outputImage(), shown.bytes(),
                                           shown.bytesPerRow(), {0, 0, 300, 60}, CIFormat::RGBA8));
                ASSERT_TRUE(shown == whole[0] || shown == whole[1]) << i;
            }
        });
    for (std::thread& thread : threads) thread.join();
}

TEST(Timecode, ShowsThatThereIsNoBuffer) {
    const auto session = Session::make();
    const CIFilterRef filter = timecode(*session, inputs({{"1", 255}, {"2", 0}}), 0);
    filter->setValueForKey(frame(140000, 90), "inputImage");
    const Bitmap shown = render(*cpuContexts().front(), filter->outputImage(), {0, 0, 300, 90});
    EXPECT_LT(differenceOf(shown.pixel(60, 60), {0.6, 0.2, 0.8, 1}), 2 / 255.0);
    EXPECT_LT(differenceOf(shown.pixel(40, 60), {0.2, 0.4, 0.6, 1}), 2 / 255.0);
    EXPECT_LT(differenceOf(shown.pixel(60, 80), {0.2, 0.4, 0.6, 1}), 2 / 255.0);
}

// ---- Screen and film ----------------------------------------------------------------------------

std::string oldFilm(const char* scale, const char* arguments) {
    return "VE_OldFilm_oldFilm(source, "
           "CICrop(CILanczosScaleTransform(CIColorMonochrome(CIRandomGenerator(), "
           "(0.75 0.75 0.75 1), 1), " +
           std::string(scale) + ", 1), (0 0 1920 1080)), " + arguments + ") own own";
}

INSTANTIATE_TEST_SUITE_P(
    OldFilm, Stories,
    testing::Values(StoryCase{
        "MovesByNanoseconds",
        "VEOldFilm",
        {},
        // The first frame counts from zero: 1e12 ns, less as many turns as 32 bits hold.
        {{0, {}, oldFilm("10", "1, 9.86507e+11, 1, 1e-05, 0")},
         {0, {}, oldFilm("10", "1, 0, 1, 1e-05, 0")},
         {7e-9, inputs({{"Scale", 100}}), oldFilm("100", "1, 0.716815, 1, 1e-05, 0")},
         {1007e-9,
          inputs(
              {{"Mixer", 0.25}, {"Spacing", 3}, {"ScratchWidth", 10}, {"BackgroundNoise", 0.05}}),
          oldFilm("100", "0.25, 0.973536, 3, 0.0001, 0")}}}),
    kByTitle);

/// What a screen is made of: its lines and its glass, and where its noise is read from.
struct Passes {
    std::string lines, glass, noisePlace;
};
Passes passesOf(const CIImage& image, const CIImage& source) {
    Passes passes{{}, graphOf(image, source), {}};
    passes.lines = graphOf(describeImage(image, kProbe)->image->object, source);
    const size_t from = passes.lines.find(")+(") + 2, to = passes.lines.find(')', from) + 1;
    passes.noisePlace = passes.lines.substr(from, to - from);
    passes.lines.replace(from, to - from, "place");
    return passes;
}
std::string lines(const char* triads, const char* numbers) {
    return "VE_CRT_crtLines(VE_CRT_crtRGB(source, " + std::string(triads) +
           ") [99 100 52 53], CICrop(CILanczosScaleTransform(CIAffineTransform("
           "CIRandomGenerator(), (1 0 0 1)+place), 1, 5), (0 0 640 480)), " +
           numbers + ", 0.05)";
}

/// A filter in a session of its own, whose random numbers are those of the seed.
class Alone {
public:
    Alone(const char* name, uint64_t seed, const Settings& settings)
        : session_(Session::make({.device = DeviceKind::CPU, .randomSeed = seed})) {
        filtered("VEDummy", frame(1, 1), {}); // registers the filters
        filter_ = session_->filterWithName(name);
        filter_->setDefaults();
        set(settings);
    }
    void set(const Settings& settings) const {
        for (const auto& [key, value] : settings) filter_->setValueForKey(value, key);
    }
    CIImage at(double seconds, const CIImage& source) const {
        session_->driveClock(static_cast<uint64_t>(std::llround(seconds * 1e9)));
        filter_->setValueForKey(source, "inputImage");
        return filter_->outputImage();
    }
    Bitmap pictureAt(double seconds, const Bitmap& source) const {
        const CIImage image = source.image();
        return render(*cpuContexts().front(), at(seconds, image), image.extent(), CIFormat::RGBAf);
    }

private:
    std::shared_ptr<Session> session_;
    CIFilterRef filter_;
};

Bitmap plane(int width, int height, const Straight& color) {
    return pictureOf(width, height, [&](int, int) { return color; });
}

TEST(Screens, RollTheirLinesAndMoveTheirNoise) {
    const CIImage source = frame(640, 480);
    const auto passesAt = [&](const Alone& screen, double seconds) {
        return passesOf(screen.at(seconds, source), source);
    };
    const Alone screen("VE_CRT", 5, inputs({{"Speed", 15}}));
    std::set<std::string> places;
    const auto expect = [&](double seconds, const std::string& expected) {
        const Passes passes = passesAt(screen, seconds);
        EXPECT_EQ(passes.lines, expected);
        EXPECT_TRUE(places.insert(passes.noisePlace).second) << passes.noisePlace;
        return passes.glass;
    };
    EXPECT_EQ(expect(1000, lines("2, 7", "160000, 20, 0.5")),
              "VE_CRT_crtWarp((640 480), 6.5) [99 100 52 53]");
    expect(1001, lines("2, 7", "160160, 20, 0.5"));
    screen.set(inputs({{"Speed", 10}, {"Size", 6}, {"Spacing", 200}}));
    expect(1003, lines("6, 21", "160160, 200, 0.5"));
    screen.set(inputs({{"Speed", 0}, {"StripeHeight", 0.25}, {"Warp", 2}}));
    EXPECT_EQ(expect(1003.5, lines("6, 21", "160000, 200, 0.25")),
              "VE_CRT_crtWarp((640 480), 2) [99 100 52 53]");
    screen.set(inputs({{"Speed", NAN}}));
    expect(1004, lines("6, 21", "160000, 200, 0.25"));
    const Alone same("VE_CRT", 5, {}), other("VE_CRT", 6, {});
    EXPECT_TRUE(places.contains(passesAt(same, 0).noisePlace));
    EXPECT_FALSE(places.contains(passesAt(other, 0).noisePlace));
    EXPECT_TRUE(same.at(1, CIImage()).extent().isEmpty());
}

TEST(Screens, KeepTheMeanOfEveryColor) {
    for (const double size : {2.0, 4.0})
        for (const double stripe : {0.0, 0.5, 1.0}) {
            const Settings settings = inputs({{"Size", size}, {"StripeHeight", stripe}});
            for (const Straight& color :
                 {Straight{0, 0, 0}, {0.2, 0.2, 0.2}, {0.6, 0.3, 0.15}, {0.8, 0.8, 0.8}}) {
                const Bitmap shown = lookOf("VE_CRT", settings, plane(240, 240, color));
                // Whole triads and whole lines about the middle.
                constexpr int from = 36, to = 204;
                Straight mean{};
                double least = 1, most = 0;
                for (int y = from; y < to; ++y)
                    for (int x = from; x < to; ++x)
                        for (size_t c = 0; c < 3; ++c)
                            mean[c] += shown.pixel(x, y)[c] / ((to - from) * (to - from)),
                                least = std::min(least, shown.pixel(x, y)[c]),
                                most = std::max(most, shown.pixel(x, y)[c]);
                for (size_t c = 0; c < 3; ++c)
                    EXPECT_NEAR(mean[c], color[c], 0.07 * color[c])
                        << size << ", " << stripe << ", " << color[c];
                EXPECT_GE(most - least, 0.3 * color[2]) << "no dots";
            }
        }
}

TEST(Screens, RollDownByOneLineInEightyUnits) {
    // Light and dark of the rows in the middle, where glass moves nothing.
    const Settings settings = inputs({{"Speed", 15}, {"Spacing", 100}, {"Warp", 6.5}});
    const Alone screen("VE_CRT", 3, settings);
    const auto darkestRow = [&](double seconds) {
        const Bitmap picture = screen.pictureAt(seconds, plane(96, 240, {0.4, 0.4, 0.4}));
        double least = 1e9;
        int darkest = 0;
        for (int y = 100; y < 140; ++y) { // one line of 40 pixels; 6 pixels are a triad
            double sum = 0;
            for (int x = 18; x < 78; ++x)
                for (int row = -3; row <= 3; ++row) sum += luma(picture.pixel(x, y + row));
            if (sum < least) least = sum, darkest = y;
        }
        return darkest;
    };
    const int start = darkestRow(0);
    for (const double share : {0.25, 0.5, 0.75, 1.0}) {
        const double moved = std::remainder(darkestRow(share / 2) - start + 40 * share, 40);
        EXPECT_NEAR(moved, 0, 2) << share;
    }
}

TEST(Screens, HaveRoundGlass) {
    const int width = 160, height = 90;
    double last = 1;
    for (const double warp : {6.5, 5.0, 3.5, 2.0}) {
        const Bitmap shown =
            lookOf("VE_CRT", inputs({{"Warp", warp}}), plane(width, height, {1, 1, 1}));
        double visible = 0;
        shown.forEach([&](int x, int y) {
            const double alpha = shown.pixel(x, y)[3];
            visible += alpha / (width * height);
            EXPECT_NEAR(alpha, shown.pixel(width - 1 - x, height - 1 - y)[3], 1e-5);
        });
        for (const int x : {0, width - 1})
            for (const int y : {0, height - 1}) EXPECT_EQ(shown.pixel(x, y)[3], 0);
        EXPECT_GT(shown.pixel(2, height / 2)[3], 0.99);
        EXPECT_GT(shown.pixel(width / 2, 2)[3], 0.99);
        EXPECT_LT(visible, last - 0.02) << warp; // as much each time
        last = visible;
    }
}

/// The first frame of old film, which counts from zero.
Bitmap filmAfter(int nanoseconds, const Settings& settings, const Bitmap& source) {
    return Alone("VEOldFilm", 0, settings).pictureAt(nanoseconds * 1e-9, source);
}

TEST(OldFilm, LivesInEveryFrameAndKeepsItsLight) {
    const Bitmap grey = plane(256, 144, {0.5, 0.5, 0.5});
    EXPECT_TRUE(isClose(filmAfter(7, inputs({{"Mixer", 0}}), grey),
                        [&](int x, int y) { return grey.pixel(x, y); }, {0}));
    std::set<double> lights;
    double sum = 0;
    for (int i = 0; i < 16; ++i) {
        const Bitmap shown = filmAfter(40'000'000 + 61 * i, {}, grey);
        double light = 0;
        shown.forEach([&](int x, int y) { light += luma(shown.pixel(x, y)) / (256 * 144); });
        EXPECT_NEAR(light, 0.5, 0.08) << "a flash";
        lights.insert(light);
        sum += light / 16;
    }
    EXPECT_EQ(lights.size(), 16u);
    EXPECT_GT(*lights.rbegin() - *lights.begin(), 0.02);
    EXPECT_NEAR(sum, 0.5, 0.03);
}

TEST(OldFilm, ScratchesAsWideAndAsOftenAsItIsSet) {
    const Bitmap grey = plane(320, 180, {0.5, 0.5, 0.5});
    // How much scratches change in a few frames.
    const auto scratched = [&](double width, double spacing) {
        double sum = 0;
        for (int i = 0; i < 4; ++i) {
            const Settings settings = inputs({{"Spacing", spacing}});
            const int time = 40'000'000 + 61 * i;
            const Bitmap with = filmAfter(time, ::with(settings, "ScratchWidth", width), grey),
                         without = filmAfter(time, ::with(settings, "ScratchWidth", 0), grey);
            with.forEach([&](int x, int y) {
                sum += std::fabs(with.pixel(x, y)[1] - without.pixel(x, y)[1]);
            });
        }
        return sum;
    };
    double last = 0;
    for (const double width : {0.1, 1.0, 3.0, 10.0}) {
        const double sum = scratched(width, 1);
        EXPECT_GT(sum, 1.5 * last + 1) << width;
        last = sum;
    }
    EXPECT_GT(scratched(1, 0.1), 1.5 * scratched(1, 1));
    EXPECT_GT(scratched(1, 1), 1.5 * scratched(1, 10));
}

} // namespace
