// The kernel language on every instruction-set level: the built-in functions against double
// precision, and a kernel with every feature against the same arithmetic in plain C++.
#include "support.h"

#include <functional>

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
using Function = std::function<Pixel(double x, double y)>;

struct BuiltinCase {
    const char* kernel;
    double low, high; ///< the range of x and y
    Function function;
    /// The largest error, as a share of results above 1, absolute below.
    double tolerance;
    /// Results too large for a single, and where the functions are not defined, are not compared.
    double largest = 3e38;
};

double toSingle(double v) {
    return static_cast<float>(v);
}
int32_t truncated(double v) {
    return static_cast<int32_t>(v);
}

const BuiltinCase kBuiltins[] = {
    {"powers", 1e-3, 60,
     [](double x, double) {
         return Pixel{std::exp(x), std::exp2(x), std::log(x), std::log2(x)};
     },
     // The argument of exp2 is rounded before: 60 has steps of 4e-6.
     5e-6},
    {"powers", -80, -1e-3,
     [](double x, double) {
         return Pixel{std::exp(x), std::exp2(x), NAN, NAN};
     },
     1e-6},
    {"powers", 1e-30, 1e-10,
     [](double x, double) {
         return Pixel{std::exp(x), std::exp2(x), std::log(x), std::log2(x)};
     },
     1e-6},
    {"roots", 0, 4,
     [](double x, double y) {
         return Pixel{std::pow(x, y), std::sqrt(x), 1 / std::sqrt(x), std::fabs(x)};
     },
     3e-6},
    {"roots", 0.5, 30,
     [](double x, double y) {
         return Pixel{std::pow(x, y), std::sqrt(x), 1 / std::sqrt(x), std::fabs(x)};
     },
     // A base's logarithm times thirty, in single precision.
     3e-5},
    {"circular", -50, 50,
     [](double x, double) {
         // The tangent's poles magnify the rounding of the result, which is relative to it.
         return Pixel{std::sin(x), std::cos(x), std::tan(x), std::atan(x)};
     },
     1e-6},
    {"inverseCircular", -1, 1,
     [](double x, double y) {
         return Pixel{std::asin(x), std::acos(x), std::atan2(x, y), x * (M_PI / 180)};
     },
     1e-6},
    {"roundings", -1000, 1000,
     [](double x, double) {
         return Pixel{std::floor(x), std::ceil(x), std::nearbyint(x), std::trunc(x)};
     },
     0},
    {"parts", 0.25, 90,
     [](double x, double y) {
         const double quotient = std::floor(toSingle(x / y));
         return Pixel{x - std::floor(x), 1, x - y * quotient, x * (180 / M_PI)};
     },
     1e-5},
    {"parts", -90, -0.25,
     [](double x, double) {
         return Pixel{x - std::floor(x), -1, NAN, x * (180 / M_PI)};
     },
     1e-5},
    {"limits", -5, 5,
     [](double x, double y) {
         return Pixel{std::min(x, y), std::max(x, y), std::clamp(x, -1.0, 2.0), x < y ? 0.0 : 1.0};
     },
     0},
    {"blends", -4, 4,
     [](double x, double y) {
         const double t = std::clamp((x + 1) / 4, 0.0, 1.0);
         return Pixel{x * 0.75 + y * 0.25, t * t * (3 - 2 * t), x < y ? x : 2,
                      std::hypot(x - y, y - x)};
     },
     1e-6},
    {"products", -4, 4,
     [](double x, double y) {
         const double z = 0.5, w = -0.25;
         return Pixel{x * y + y * z + z * x, std::sqrt(x * x + y * y + z * z),
                      std::sqrt(x * x + y * y + z * z + w * w), y * x - z * z};
     },
     2e-6},
    {"directions", -4, 4,
     [](double x, double y) {
         const double length = std::sqrt(x * x + y * y + 1);
         return Pixel{x / length, y / length, 1 / length, x - 1.2 * (0.6 * x + 0.8 * y)};
     },
     2e-6},
    {"integers", -3000, 3000,
     [](double x, double) {
         const int32_t i = truncated(x);
         const uint32_t u = uint32_t(i) * 747796405u + 2891336453u;
         return Pixel{double(i), double(i >> 1), double(u >> 9), double((u ^ (u >> 13)) & 0xffff)};
     },
     0},
};

TEST(BuiltinFunctions, AreThoseOfDoublePrecision) {
    for (const BuiltinCase& test : kBuiltins) {
        Random random(99);
        Bitmap arguments(997, 1, CIFormat::RGBAf);
        arguments.forEach([&](int x, int) {
            const auto any = [&] {
                // Also the ends, whole numbers and halves.
                if (x % 10 == 0)
                    return std::clamp(std::round(random.real(test.low, test.high) * 2) / 2,
                                      test.low, test.high);
                return x == 1 ? test.low : x == 2 ? test.high : random.real(test.low, test.high);
            };
            arguments.set(x, 0, {any(), any(), 0.5, -0.25});
        });
        const CGRect bounds{0, 0, 997, 1};
        const CIImage image = testKernel("BuiltinFunctions", test.kernel)
                                  .applyWithExtent(bounds, {arguments.image()});
        for (CIContext* context : everyContext()) {
            const Bitmap result = render(*context, image, bounds, CIFormat::RGBAf);
            const auto expected = [&](int x, int) {
                const Pixel a = arguments.pixel(x, 0), got = result.pixel(x, 0);
                Pixel p = test.function(a[0], a[1]);
                for (size_t c = 0; c < 4; ++c)
                    if (std::isnan(p[c]) || std::fabs(p[c]) > test.largest) p[c] = got[c];
                return p;
            };
            EXPECT_TRUE(isClose(result, expected, {test.tolerance}))
                << test.kernel << " on " << test.low << " to " << test.high << ", "
                << nameOf(*context);
        }
    }
}

/// What filters lean on at the ends of the functions' ranges.
TEST(BuiltinFunctions, AreTameAtTheEndsOfTheirRanges) {
    struct Case {
        const char* kernel;
        double x, y;
        size_t channel;
        double low, high; ///< what the result must lie within
    };
    const Case cases[] = {
        {"powers", 1000, 0, 1, 3e38, kInfinity}, // exp2 does not wrap around
        {"powers", -1000, 0, 1, 0, 1e-37},
        {"powers", 0, 0, 3, -kInfinity, -126}, // log2
        {"powers", -5, 0, 3, -kInfinity, -126},
        {"powers", 0, 0, 0, 1, 1},
        {"roots", 0, 0.5, 0, 0, 0},
        {"roots", 0, 3, 0, 0, 0},
        {"roots", 1, 1000, 0, 1, 1},
        {"roots", 5, 0, 0, 1, 1},
        {"roots", 1e-30, 0.1, 0, 0.000999, 0.001001},
        {"parts", -1e-10, 1, 0, 0, 1}, // fract
        {"parts", 0, 1, 1, 0, 0},      // sign of zero
        {"roundings", 2.5, 0, 2, 2, 2},
        {"roundings", 3.5, 0, 2, 4, 4},
        {"roundings", -0.5, 0, 2, 0, 0},
        {"roundings", 16777217, 0, 0, 16777216, 16777216},
        {"roundings", 3e9, 0, 3, 3e9, 3e9},
        {"inverseCircular", 0, 0, 2, -10, 10},
        {"inverseCircular", 0, -1, 2, 3.14159, 3.1416},
    };
    for (const Case& test : cases) {
        Bitmap argument(1, 1, CIFormat::RGBAf);
        argument.set(0, 0, {test.x, test.y, 0, 1});
        const CIImage image = testKernel("BuiltinFunctions", test.kernel)
                                  .applyWithExtent({0, 0, 1, 1}, {argument.image()});
        for (CIContext* context : everyContext()) {
            const double got =
                render(*context, image, {0, 0, 1, 1}, CIFormat::RGBAf).pixel(0, 0)[test.channel];
            EXPECT_TRUE(got >= test.low && got <= test.high)
                << test.kernel << " of " << test.x << ", " << test.y << " is " << got << ", "
                << nameOf(*context);
        }
    }
}

TEST(KernelLanguage, EveryFeatureMeansTheSameOnEveryLevel) {
    Random random(31);
    const Bitmap first = randomBitmap(random, 61, 7, CIFormat::RGBAf);
    const Bitmap second = randomBitmap(random, 61, 7, CIFormat::RGBAf);
    const CGRect bounds{0, 0, 61, 7};
    const double amount = 0.75, tint[] = {0.5, 0.25, 1};
    const Pixel color{0.1, 0.2, 0.3, 0.4};
    const uint32_t seed = 3000000000u;
    const CIImage image =
        testKernel("Language", "general")
            .applyWithExtent(bounds, RegionOfInterest::grownBy(3),
                             {first.image(), second.image(), amount, CIVector(2, -1),
                              CIVector(tint[0], tint[1], tint[2]),
                              CIVector(color[0], color[1], color[2], color[3]), 4, seed});
    const auto expected = [&](int x, int y) {
        const Pixel here = first.pixel(x, y);
        const int tx = x + 2, ty = y - 1;
        const Pixel there = tx < 61 && ty >= 0 ? second.pixel(tx, ty) : Pixel{};
        const double alpha = here[3], sum = (0 + 1 + 2 + 3) * 0.5 * 0.5;
        const bool bright =
            (0.2126 * here[0] + 0.7152 * here[1] + 0.0722 * here[2] > 0.5 && !(alpha <= 0.1)) ||
            here[2] >= 2;
        const Pixel chosen = bright ? Pixel{here[1], here[0], here[2], 0} : here;
        const int column = x & 7;
        uint32_t bits = uint32_t(column) * 2654435761u + seed;
        bits ^= bits << 13;
        bits ^= bits >> 17;
        bits ^= bits << 5;
        bits &= 0xffffu;
        const double steps = bits / 65535.0 + (column | 1) * 0.001 + 0.25 * here[0] +
                             0.5 * here[1] + 0.25 * here[2] + sum + 61 * 1e-3 + 7 * .001 + 2;
        // (0, 1) and (-1, 0) are the columns of a quarter turn.
        const double turned[] = {-2 * here[1], here[0], 1, 0};
        Pixel result;
        for (size_t c = 0; c < 3; ++c) {
            static constexpr size_t bgr[] = {2, 1, 0};
            result[c] =
                chosen[c] + tint[c] * amount * 0.5 + there[bgr[c]] * 0.25 + color[c] * turned[c];
        }
        result[3] = std::clamp(alpha + there[3] * 0.25 + steps * 0.01, 0.0, 1.0);
        return result;
    };
    for (CIContext* context : everyContext())
        EXPECT_TRUE(isClose(render(*context, image, bounds, CIFormat::RGBAf), expected, {2e-6}))
            << nameOf(*context);
}

/// Neighbours that share points of the lattice, that do not, that count backwards, and that lie in
/// several rows of it.
TEST(KernelLanguage, LatticesAreFunctionsOfTheirPoints) {
    struct Case {
        double across, up, slant; ///< cells a pixel, all of them exact
    };
    const auto markAt = [](int x, int y, uint32_t seed) {
        uint32_t bits = uint32_t(x) * 2654435761u + uint32_t(y) * 747796405u + seed;
        bits ^= bits << 13;
        bits ^= bits >> 17;
        bits ^= bits << 5;
        return (bits & 0xffffu) / 65535.0;
    };
    const CGRect bounds{-70, -9, 400, 17};
    for (const Case& test : {Case{1, 1, 0}, Case{1 / 64.0, 0.125, 0}, Case{-0.25, 0.5, 0},
                             Case{0.5, -0.25, 1 / 16.0}, Case{-1 / 32.0, 0, 1}, Case{3, 1, 0}}) {
        const CIImage image =
            testKernel("Language", "lattices")
                .applyWithExtent(bounds, {CIVector(test.across, test.up), test.slant});
        const auto expected = [&](int column, int row) {
            const double px = column - 70 + 0.5, py = row - 9 + 0.5;
            const int x = static_cast<int>(std::floor(px * test.across));
            const int y = static_cast<int>(std::floor(py * test.up + px * test.slant));
            return Pixel{markAt(x, y, 7), (x & 63) * test.across + test.up,
                         double((x & 15) + (y & 15)),
                         markAt(x, y, 9) + markAt(x - 1, y + 1, 9) + markAt(x - 2, y + 2, 9)};
        };
        for (CIContext* context : everyContext())
            EXPECT_TRUE(isClose(render(*context, image, bounds, CIFormat::RGBAf), expected, {2e-6}))
                << test.across << " " << test.slant << ", " << nameOf(*context);
    }
}

} // namespace
