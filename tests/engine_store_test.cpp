// How values are stored: clamping and rounding to bytes, conversions to and from 16-bit floats, and
// what becomes of values that are no numbers.
#include "support.h"

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

/// Stores singles through the copy kernel: as many pixels as it takes, four values each.
Bitmap stored(CIContext& context, const std::vector<float>& values, CIFormat format) {
    const int width = static_cast<int>((values.size() + 3) / 4);
    Bitmap source(width, 1, CIFormat::RGBAf);
    std::memcpy(source.bytes(), values.data(), values.size() * sizeof(float));
    return render(context, source.image(), {0, 0, double(width), 1}, format);
}

double channelAt(const Bitmap& bitmap, size_t index) {
    return bitmap.pixel(static_cast<int>(index / 4), 0)[index % 4];
}

TEST(Stores, BytesAreClampedAndRoundedToTheNearest) {
    std::vector<float> values = {0,    -0.0f,     1,       1.0001f, -1e-9f, -1,
                                 2,    255,       1e10f,   3e38f,   -3e38f, 1e-40f,
                                 0.5f, 0.999999f, -1e-40f, 8388608};
    for (int i = 0; i < 4096; ++i) values.push_back(static_cast<float>(i - 512) / 3000.0f);
    for (CIContext* context : everyContext())
        for (const CIFormat format : {CIFormat::RGBA8, CIFormat::BGRA8, CIFormat::ARGB8}) {
            const Bitmap bytes = stored(*context, values, format);
            for (size_t i = 0; i < values.size(); ++i) {
                const double exact = std::clamp(double(values[i]), 0.0, 1.0) * 255;
                // Half a step, and what single precision adds near the middle of two.
                ASSERT_LE(std::fabs(channelAt(bytes, i) * 255 - exact), 0.5 + 2e-5)
                    << values[i] << ", " << nameOf(*context);
            }
        }
}

TEST(Stores, NoNumberIsZeroAndInfinityIsFull) {
    const float nan = std::numeric_limits<float>::quiet_NaN(), inf = static_cast<float>(kInfinity);
    for (CIContext* context : everyContext()) {
        // A partial group and whole ones.
        std::vector<float> values;
        for (int i = 0; i < 37; ++i) values.insert(values.end(), {nan, inf, -inf, -nan});
        const Bitmap bytes = stored(*context, values, CIFormat::RGBA8);
        EXPECT_TRUE(isClose(bytes,
                            [](int, int) {
                                return Pixel{0, 1, 0, 0};
                            },
                            {}))
            << nameOf(*context);
        for (const CIFormat format : {CIFormat::RGBAh, CIFormat::RGBAf}) {
            const Bitmap wide = stored(*context, values, format);
            EXPECT_TRUE(isClose(wide,
                                [&](int, int) {
                                    return Pixel{nan, inf, -inf, nan};
                                },
                                {}))
                << nameOf(*context);
        }
    }
}

TEST(Stores, EveryByteSurvivesACopyInAnyOrder) {
    Bitmap source(256, 1, CIFormat::RGBA8);
    source.forEach([&](int x, int) {
        source.set(x, 0, {x / 255.0, (255 - x) / 255.0, (x ^ 85) / 255.0, ((x * 7) & 255) / 255.0});
    });
    for (CIContext* context : everyContext())
        for (const CIFormat format : kAllFormats) {
            const Bitmap there = render(*context, source.image(), {0, 0, 256, 1}, format);
            const Bitmap back = render(*context, there.image(), {0, 0, 256, 1}, CIFormat::RGBA8);
            EXPECT_TRUE(isClose(back, source, {}))
                << formatName(format) << ", " << nameOf(*context);
        }
}

/// A quarter of 101 is 25 in a byte and four times that 100; in floats it comes back. Bytes are for
/// pictures of bytes that become bytes, and for images that are said to do with them.
TEST(Stores, KeepsTheBitsOfSourcesWhereThatIsSaid) {
    const CIVector nothing(0, 0, 0, 0);
    const CGRect bounds{0, 0, 40, 6};
    struct Case {
        CIFormat source, target;
        bool isSaid;
        double kept;
    };
    const Case cases[] = {{CIFormat::RGBA8, CIFormat::BGRA8, true, 100},
                          {CIFormat::ARGB8, CIFormat::RGBA8, true, 100},
                          {CIFormat::RGBA8, CIFormat::RGBA8, false, 101},
                          {CIFormat::RGBA8, CIFormat::RGBAh, true, 101},
                          {CIFormat::RGBAh, CIFormat::RGBA8, true, 101}};
    for (const Case& test : cases) {
        Bitmap source(40, 6, test.source);
        source.forEach([&](int x, int y) {
            source.set(x, y, {101 / 255.0, 101 / 255.0, 101 / 255.0, 1});
        });
        CIImage quarter =
            pictureKernel("scaleAndShift")
                .applyWithExtent(bounds, {source.image(), CIVector(.25, .25, .25, 1), nothing});
        if (test.isSaid) quarter = quarter.imageInBitsOfSources();
        const CIImage moved = pictureKernel("readAt").applyWithExtent(
            bounds, RegionOfInterest::grownBy(1), {quarter, CIVector(0, 0)});
        for (const CIImage& read : {quarter, moved}) {
            const CIImage whole =
                pictureKernel("scaleAndShift")
                    .applyWithExtent(bounds, {read, CIVector(4, 4, 4, 1), nothing});
            for (const auto& context : cpuContexts())
                EXPECT_TRUE(isClose(render(*context, whole, bounds, test.target),
                                    [&](int, int) {
                                        const double v = test.kept / 255;
                                        return Pixel{v, v, v, 1};
                                    },
                                    {test.target == CIFormat::RGBAh ? 3e-4 : 1e-6}))
                    << test.kept << ", " << nameOf(*context);
        }
    }
}

TEST(Halves, AllOfThemAreReadExactlyAndWrittenBack) {
    Bitmap source(16384, 1, CIFormat::RGBAh);
    std::vector<uint16_t> halves(65536);
    for (size_t i = 0; i < halves.size(); ++i) halves[i] = static_cast<uint16_t>(i);
    std::memcpy(source.bytes(), halves.data(), halves.size() * 2);
    const CGRect bounds{0, 0, 16384, 1};
    for (CIContext* context : everyContext()) {
        const Bitmap singles = render(*context, source.image(), bounds, CIFormat::RGBAf);
        const Bitmap copy = render(*context, source.image(), bounds, CIFormat::RGBAh);
        for (size_t i = 0; i < halves.size(); ++i) {
            const double exact = valueOfHalf(halves[i]);
            const double read = channelAt(singles, i), kept = channelAt(copy, i);
            if (std::isnan(exact)) {
                ASSERT_TRUE(std::isnan(read) && std::isnan(kept)) << i << ", " << nameOf(*context);
            } else {
                ASSERT_EQ(read, exact) << i << ", " << nameOf(*context);
                ASSERT_EQ(kept, exact) << i << ", " << nameOf(*context);
                ASSERT_EQ(std::signbit(read), std::signbit(exact)) << i << ", " << nameOf(*context);
            }
        }
    }
}

TEST(Halves, AreTheNearestToASingleTiesToEven) {
    std::vector<float> values = {65504,           65519.996f,   65520,        65535,
                                 65536,           1e30f,        0x1p-24f,     0x1p-25f,
                                 0x1.000002p-25f, 0x1.8p-24f,   0x1p-26f,     1e-40f,
                                 0x1.ffcp-15f,    0x1.ffep-15f, 0x1.fffp-15f, 0x1p-14f};
    Random random(9);
    for (int i = 0; i < 60000; ++i) {
        const double base = valueOfHalf(static_cast<uint16_t>(random.whole(0, 0x7bfe)));
        const double next = valueOfHalf(static_cast<uint16_t>(nearestHalf(base) + 1));
        // Between neighbours: in the middle, next to it, and anywhere.
        const double share = i % 3 == 0   ? 0.5
                             : i % 3 == 1 ? random.whole(0, 1) * 0.0001 + 0.49995
                                          : random.real(0, 1);
        values.push_back(static_cast<float>(base + (next - base) * share));
    }
    for (size_t i = 0, count = values.size(); i < count; ++i) values.push_back(-values[i]);
    for (CIContext* context : everyContext()) {
        const Bitmap halves = stored(*context, values, CIFormat::RGBAh);
        for (size_t i = 0; i < values.size(); ++i) {
            uint16_t half;
            std::memcpy(&half, halves.at(static_cast<int>(i / 4), 0) + i % 4 * 2, sizeof half);
            ASSERT_EQ(half, nearestHalf(values[i]))
                << testing::PrintToString(values[i]) << ", " << nameOf(*context);
        }
    }
}

} // namespace
