// Screens and old film.
#include "tables.h"

#include "vorneffects/ImageDescription.h"

#include <set>

namespace {

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
