// Blurs, edges and blobs.
#include "tables.h"

namespace {

Bitmap blurred(int mode, double reach, const Bitmap& source) {
    return lookOf("VEQuickBlur2",
                  inputs({{"Mode", double(mode)}, {"Blur", reach * 10 / source.width()}}), source);
}

TEST(QuickBlur, SpreadsAPointEvenlyToItsReach) {
    constexpr int kSize = 240;
    for (const double reach : {2.0, 7.5, 16.0, 17.0, 40.0}) {
        SCOPED_TRACE(reach);
        // The mean over several places of the point, for blocks have places of their own.
        double sum = 0, across = 0, up = 0, beyond = 0;
        const Bitmap source = pictureOf(kSize, kSize, [](int x, int y) {
            const double v = x == 117 && y == 122 ? 1000 : 0;
            return Straight{v, v, v};
        });
        const Bitmap result = blurred(0, reach, source);
        result.forEach([&](int x, int y) {
            const double v = result.pixel(x, y)[0] / 1000;
            EXPECT_GE(v, 0);
            sum += v, across += v * (x - 117) * (x - 117), up += v * (y - 122) * (y - 122);
            // Blocks lie up to half of their size aside.
            if (std::hypot(x - 117, y - 122) > 1.8 * reach + 3) beyond += v;
        });
        EXPECT_NEAR(sum, 1, 0.12);
        EXPECT_EQ(beyond, 0);
        // The standard deviation of the weights.
        const double deviation = 0.36 * (reach + 1);
        EXPECT_NEAR(std::sqrt(across / sum), deviation, 0.2 * deviation);
        EXPECT_NEAR(std::sqrt(up / sum), deviation, 0.2 * deviation);
    }
}

TEST(QuickBlur, HasNoStreaksAndKeepsBordersOpaque) {
    // A step, blurred, rises evenly: no step between neighbours is much larger than the steepest of
    // a smooth rise, and none goes down. Stripes along the blur stay as they are.
    constexpr int kSize = 300;
    for (const int mode : {0, 1, 2})
        for (const double reach : {3.0, 9.0, 17.0, 18.0, 36.0, 60.0}) {
            SCOPED_TRACE(testing::Message() << mode << " " << reach);
            const Bitmap source = pictureOf(kSize, kSize, [&](int x, int y) {
                const double step = (mode == 2 ? y : x) >= 141 ? 1 : 0;
                const double stripe = (mode == 2 ? x : y) % 2;
                return Straight{step, mode == 0 ? step : stripe, 1};
            });
            const Bitmap result = blurred(mode, reach, source);
            double before = 0, last = 0;
            for (int i = 0; i < kSize; ++i) {
                const Pixel p = mode == 2 ? result.pixel(100, i) : result.pixel(i, 100);
                EXPECT_NEAR(p[2], 1, 1e-5);
                EXPECT_NEAR(p[3], 1, 1e-5);
                EXPECT_NEAR(p[1], mode == 0 ? p[0] : 0, 1e-5);
                const double rise = p[0] - before;
                EXPECT_GE(rise, -1e-6) << i;
                EXPECT_LE(rise, 1.45 / (reach + 1)) << i;
                // No corner.
                EXPECT_LE(std::fabs(rise - last), 5.5 / ((reach + 1) * (reach + 1))) << i;
                before = p[0], last = rise;
            }
            EXPECT_NEAR(before, 1, 1e-5);
        }
}

TEST(QuickBlur, LeavesTheHueOfWhatIsOpaque) {
    // Transparent green beside red: none of it gets in.
    Bitmap source(64, 64, CIFormat::RGBAf);
    source.forEach([&](int x, int y) {
        source.set(x, y, x < 32 ? Pixel{0.5, 0.1, 0, 1} : Pixel{0, 0, 0, 0});
    });
    const Bitmap result = blurred(0, 10, source);
    result.forEach([&](int x, int y) {
        const Pixel p = result.pixel(x, y);
        ASSERT_NEAR(p[0], 0.5 * p[3], 1e-5);
        ASSERT_NEAR(p[1], 0.1 * p[3], 1e-5);
    });
}

TEST(GlowingEdges, AreEvenLinesInThePicturesHue) {
    // An edge that leans, between two blues.
    const Bitmap source = pictureOf(96, 96, [](int x, int y) {
        const double share = std::clamp(x - 40 - y / 5.0 + 0.5, 0.0, 1.0) * 0.6;
        return Straight{0.1 * share, 0.2 + 0.3 * share, 0.3 + share};
    });
    double last = 0;
    for (const double width : {0.0, 0.25, 0.5, 0.75, 1.0}) {
        const Bitmap result = lookOf("VEEdgeDetect", inputs({{"Width", width}}), source);
        double least = 1e9, most = 0;
        for (int y = 4; y < 92; ++y) {
            double wide = 0;
            for (int x = 0; x < 96; ++x) {
                const Pixel p = result.pixel(x, y);
                const Pixel own = source.pixel(x, y);
                if (p[2] > 0.2) expectHue(p, {own[0], own[1], own[2]}, std::to_string(x));
                wide += p[2];
            }
            least = std::min(least, wide), most = std::max(most, wide);
        }
        EXPECT_LT(most, least * 1.4) << width;
        EXPECT_GT(least, last + 0.25) << width;
        last = least;
    }
    // What is flat, and the frame's border, stay black.
    EXPECT_EQ(lookOf("VEEdgeDetect", inputs({{"Reduce", 0}}), Straight{0.7, 0.2, 0.1})[0], 0);
}

/// A white disc in the middle of a black frame.
Bitmap disc(int size, double radius) {
    return pictureOf(size, size, [=](int x, int y) {
        const double r = std::hypot(x + 0.5 - size / 2.0, y + 0.5 - size / 2.0);
        const double v = std::clamp(radius - r + 0.5, 0.0, 1.0);
        return Straight{v, v, v};
    });
}

TEST(Metaballs, AreSmoothAndOfTheChosenColour) {
    constexpr int kSize = 120;
    for (const double blur : {2.0, 8.0, 16.0}) {
        SCOPED_TRACE(blur);
        const Bitmap result =
            lookOf("VE_MetaBalls", inputs({{"Blur", blur}, {"Red", 255}, {"Green", 102}}),
                   disc(kSize, 30));
        // The blurred disc's level set is a circle: its area and how far its edge reaches agree.
        double area = 0, soft = 0;
        result.forEach([&](int x, int y) {
            const Pixel p = result.pixel(x, y);
            area += p[3], soft += p[3] * (1 - p[3]);
            ASSERT_LE(p[0], p[3] + 1e-6);
            ASSERT_GE(p[0], 0.6 * p[3]);
            ASSERT_NEAR(p[1], 0.4 * p[0], 1e-5);
            ASSERT_EQ(p[2], 0);
        });
        const double radius = std::sqrt(area / 3.14159265);
        EXPECT_NEAR(radius, 30, 6);
        // An edge of a pixel and a half: neither stairs nor a haze.
        EXPECT_GT(soft, 2 * 3.14159265 * radius * 0.12);
        EXPECT_LT(soft, 2 * 3.14159265 * radius * 0.5);
        EXPECT_NEAR(result.pixel(kSize / 2, kSize / 2)[0], 1, 0.02);
    }
    // Black stays empty, however low the threshold.
    EXPECT_EQ(lookOf("VE_MetaBalls", inputs({{"Threshold", 0}}), Straight{0, 0, 0})[3], 0);
}

} // namespace
