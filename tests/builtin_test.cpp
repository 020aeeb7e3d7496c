// The framework's own filters, each beside a plain computation in double precision from the formula
// that it names, on every device and instruction-set level.
#include "support.h"

#include "vorneffects/ImageDescription.h"

#include <functional>
#include <numbers>
#include <ostream>

namespace {

using Pixels = std::function<Pixel(int x, int y)>;

CIImage made(const std::string& name, const Settings& settings) {
    const CIFilterRef filter = CIFilter::filterWithName(name);
    if (!filter) {
        ADD_FAILURE() << "there is no filter " << name;
        return {};
    }
    filter->setDefaults();
    for (const auto& [key, value] : settings)
        EXPECT_TRUE(filter->setValueForKey(value, key)) << key;
    return filter->outputImage();
}

/// Renders on every device and compares with a function of the coordinates of the working space.
void expectEverywhere(const CIImage& image, CGRect rect, const Pixels& expected, double tolerance,
                      CIFormat format = CIFormat::RGBAf) {
    ASSERT_TRUE(image);
    for (CIContext* context : everyContext())
        EXPECT_TRUE(isClose(render(*context, image, rect, format),
                            [&](int x, int y) {
                                return expected(x + static_cast<int>(rect.x),
                                                y + static_cast<int>(rect.y));
                            },
                            {tolerance}))
            << nameOf(*context);
}

/// A picture at an origin, read by coordinates of the working space.
struct Placed {
    Bitmap bitmap;
    int x, y;

    CIImage image() const& { return bitmap.image({double(x), double(y)}); }
    CIImage image() && = delete; // the pixels would be gone
    bool has(int px, int py) const {
        return px >= x && py >= y && px < x + bitmap.width() && py < y + bitmap.height();
    }
    Pixel at(int px, int py) const { return has(px, py) ? bitmap.pixel(px - x, py - y) : Pixel{}; }
    Pixel bilinear(double px, double py) const {
        const double u = px - 0.5, v = py - 0.5;
        const int column = static_cast<int>(std::floor(u)), row = static_cast<int>(std::floor(v));
        Pixel sum{};
        for (int i = 0; i < 2; ++i)
            for (int k = 0; k < 2; ++k) {
                const double weight =
                    (1 - std::fabs(u - column - i)) * (1 - std::fabs(v - row - k));
                const Pixel p = at(column + i, row + k);
                for (size_t c = 0; c < 4; ++c) sum[c] += weight * p[c];
            }
        return sum;
    }
};

Placed noise(uint32_t seed, int width, int height, int x = 0, int y = 0,
             CIFormat format = CIFormat::RGBA8) {
    Random random(seed);
    return {randomBitmap(random, width, height, format), x, y};
}

CGRect extentOf(const CIImage& image) {
    return image ? image.extent() : CGRect{-1, -1, -1, -1};
}

bool isInfinite(const CIImage& image) {
    return extentOf(image) == CGRect::infinite();
}

// ---- The registry -------------------------------------------------------------------------------

TEST(Builtin, StandsInTheRegistryUnderCategoriesOfItsOwn) {
    const std::map<std::string, std::vector<std::string>> byCategory = {
        {"Built-in Blur", {"CIGaussianBlur"}},
        {"Built-in Color",
         {"CIColorControls", "CIColorMonochrome", "CIHueAdjust", "CITemperatureAndTint"}},
        {"Built-in Compositing",
         {"CIDarkenBlendMode", "CIDivideBlendMode", "CIHardLightBlendMode", "CIMaximumCompositing",
          "CIPinLightBlendMode", "CISourceOverCompositing"}},
        {"Built-in Generator", {"CIRadialGradient", "CIRandomGenerator", "CISmoothLinearGradient"}},
        {"Built-in Geometry",
         {"CIAffineTransform", "CICrop", "CILanczosScaleTransform",
          "CIPerspectiveTransformWithExtent"}}};
    for (const auto& [category, names] : byCategory) {
        EXPECT_EQ(CIFilter::filterNames(category), names);
        for (const std::string& name : names) {
            const CIFilterRef filter = CIFilter::filterWithName(name);
            ASSERT_TRUE(filter) << name;
            EXPECT_EQ(filter->filterClass().classInfo.name, name);
        }
    }
}

TEST(Builtin, SetsTheAdvertisedDefaultsWhenMade) {
    for (const std::string& name : CIFilter::filterNames()) {
        if (!name.starts_with("CI")) continue;
        const CIFilterRef fresh = CIFilter::filterWithName(name),
                          set = CIFilter::filterWithName(name);
        set->setDefaults();
        for (const InputInfo& input : fresh->filterClass().inputs()) {
            const bool isAdvertised = std::ranges::any_of(
                fresh->filterClass().customAttributes(),
                [&](const InputAttributes& attributes) { return attributes.key == input.key; });
            if (!isAdvertised) continue;
            const InputValue a = fresh->valueForKey(input.key), b = set->valueForKey(input.key);
            EXPECT_EQ(a.index(), b.index()) << name << " " << input.key;
            if (const auto* number = std::get_if<Number>(&b)) {
                EXPECT_EQ(std::get<Number>(a).doubleValue(), number->doubleValue())
                    << name << " " << input.key;
            }
        }
    }
}

TEST(Builtin, IsDescribedByItsNameAndInputs) {
    const Placed source = noise(1, 8, 8);
    const auto description =
        describeImage(made("CIGaussianBlur", {{"inputImage", source.image()}}), {0, 0, 1, 1});
    ASSERT_TRUE(description);
    EXPECT_EQ(description->kind, ImageDescription::Kind::Builtin);
    EXPECT_EQ(description->name, "CIGaussianBlur");
    ASSERT_EQ(description->inputs.size(), 2u);
    EXPECT_EQ(description->inputs[0].first, "inputImage");
    EXPECT_EQ(std::get<Number>(description->inputs[1].second).doubleValue(), 10);
}

// ---- Compositing --------------------------------------------------------------------------------

struct BlendCase {
    const char* name;
    std::function<double(double back, double source)> straight;
};
std::ostream& operator<<(std::ostream& stream, const BlendCase& c) {
    return stream << c.name;
}

const BlendCase kBlends[] = {
    {"CISourceOverCompositing", [](double, double s) { return s; }},
    {"CIDarkenBlendMode", [](double b, double s) { return std::min(b, s); }},
    {"CIHardLightBlendMode",
     [](double b, double s) { return s <= 0.5 ? 2 * s * b : 1 - 2 * (1 - s) * (1 - b); }},
    {"CIPinLightBlendMode",
     [](double b, double s) { return s < 0.5 ? std::min(b, 2 * s) : std::max(b, 2 * s - 1); }},
    {"CIDivideBlendMode",
     [](double b, double s) { return b == 0   ? 0
                                     : s == 0 ? 1
                                              : std::min(1.0, b / s); }},
};

class Blends : public testing::TestWithParam<BlendCase> {};

TEST_P(Blends, LikeTheStraightFormula) {
    for (uint32_t seed = 1; seed <= 12; ++seed) {
        const Placed source = noise(seed, 40, 9, -3, 2), back = noise(seed + 100, 31, 11);
        const CIImage image = made(GetParam().name, {{"inputImage", source.image()},
                                                     {"inputBackgroundImage", back.image()}});
        EXPECT_EQ(extentOf(image), (CGRect{-3, 0, 40, 11}));
        const auto expected = [&](int x, int y) {
            const Pixel s = source.at(x, y), b = back.at(x, y);
            Pixel out{0, 0, 0, s[3] + b[3] - s[3] * b[3]};
            for (size_t c = 0; c < 3; ++c) {
                const double cs = s[3] > 0 ? s[c] / s[3] : 0, cb = b[3] > 0 ? b[c] / b[3] : 0;
                out[c] = s[c] * (1 - b[3]) + b[c] * (1 - s[3]) +
                         s[3] * b[3] * GetParam().straight(cb, cs);
            }
            return out;
        };
        expectEverywhere(image, {-5, -1, 44, 14}, expected, 2e-5);
        expectEverywhere(image, {-5, -1, 44, 14}, expected, 1 / 255.0, CIFormat::BGRA8);
    }
}

INSTANTIATE_TEST_SUITE_P(, Blends, testing::ValuesIn(kBlends),
                         [](const auto& test) { return test.param.name; });

TEST(Maximum, IsThatOfEveryPremultipliedComponent) {
    const Placed source = noise(5, 20, 9, -3, 2), back = noise(6, 31, 11);
    expectEverywhere(
        made("CIMaximumCompositing",
             {{"inputImage", source.image()}, {"inputBackgroundImage", back.image()}}),
        {-5, -1, 44, 14},
        [&](int x, int y) {
            Pixel out = source.at(x, y);
            for (size_t c = 0; c < 4; ++c) out[c] = std::max(out[c], back.at(x, y)[c]);
            return out;
        },
        1e-6);
}

TEST(Compositing, GivesTheOtherImageWhereOneIsMissing) {
    const Placed pixels = noise(1, 4, 4);
    const CIImage image = pixels.image();
    for (const std::string& name : CIFilter::filterNames("Built-in Compositing")) {
        EXPECT_EQ(made(name, {{"inputImage", image}}), image) << name;
        EXPECT_EQ(made(name, {{"inputBackgroundImage", image}}), image) << name;
        EXPECT_FALSE(made(name, {})) << name;
    }
}

// ---- Colour -------------------------------------------------------------------------------------

Pixel straightened(const Pixel& p) {
    return p[3] > 0 ? Pixel{p[0] / p[3], p[1] / p[3], p[2] / p[3], p[3]} : Pixel{};
}
Pixel premultiplied(const Pixel& p) {
    return {p[0] * p[3], p[1] * p[3], p[2] * p[3], p[3]};
}
double lumaOf(const Pixel& p) {
    return 0.2126 * p[0] + 0.7152 * p[1] + 0.0722 * p[2];
}

/// Expects a filter to do to every straight colour what a function does.
void expectColor(const std::string& name, Settings settings,
                 const std::function<Pixel(const Pixel&)>& straight, double tolerance) {
    const Placed source = noise(17, 60, 20, 5, -4);
    settings.emplace_back("inputImage", source.image());
    const CIImage image = made(name, settings);
    EXPECT_EQ(extentOf(image), (CGRect{5, -4, 60, 20}));
    expectEverywhere(
        image, {4, -5, 63, 23},
        [&](int x, int y) { return premultiplied(straight(straightened(source.at(x, y)))); },
        tolerance);
}

TEST(HueAdjust, TurnsTheColourDifferencesAndKeepsTheLuma) {
    for (const double angle : {-2.5, -0.4, 0.0, 0.9, 3.1, 40.0})
        expectColor(
            "CIHueAdjust", {{"inputAngle", Number(angle)}},
            [&](const Pixel& p) {
                const double y = lumaOf(p);
                const double cb = (p[2] - y) / 1.8556, cr = (p[0] - y) / 1.5748;
                const double b = cb * std::cos(angle) - cr * std::sin(angle);
                const double r = cb * std::sin(angle) + cr * std::cos(angle);
                const double red = y + 1.5748 * r, blue = y + 1.8556 * b;
                return Pixel{red, (y - 0.2126 * red - 0.0722 * blue) / 0.7152, blue, p[3]};
            },
            1e-5);
}

TEST(HueAdjust, TakesRedTowardYellow) {
    Bitmap red(1, 1);
    red.set(0, 0, {1, 0, 0, 1});
    const Pixel p =
        render(referenceContext(),
               made("CIHueAdjust", {{"inputImage", red.image()}, {"inputAngle", Number(0.3)}}),
               {0, 0, 1, 1}, CIFormat::RGBAf)
            .pixel(0, 0);
    EXPECT_GT(p[1], p[2]);
}

TEST(ColorControls, SaturateThenContrastThenBrighten) {
    const double cases[][3] = {{1, 0, 1},    {0, 0, 1},   {1.7, 0, 1},
                               {1, 0.25, 1}, {1, 0, 2.5}, {0.4, -0.3, 0.7}};
    for (const double(&values)[3] : cases)
        expectColor(
            "CIColorControls",
            {{"inputSaturation", Number(values[0])},
             {"inputBrightness", Number(values[1])},
             {"inputContrast", Number(values[2])}},
            [&](Pixel p) {
                const double y = lumaOf(p);
                for (size_t c = 0; c < 3; ++c)
                    p[c] = (y + (p[c] - y) * values[0] - 0.5) * values[2] + 0.5 + values[1];
                return p;
            },
            1e-5);
}

TEST(ColorMonochrome, IsTheLumaInShadesOfAColour) {
    for (const double intensity : {0.0, 0.3, 1.0})
        expectColor(
            "CIColorMonochrome",
            {{"inputColor", CIColor(0.9, 0.2, 0.5, 0.3)}, {"inputIntensity", Number(intensity)}},
            [&](Pixel p) {
                const double shades[] = {0.9, 0.2, 0.5}, y = lumaOf(p);
                for (size_t c = 0; c < 3; ++c) p[c] += (y * shades[c] - p[c]) * intensity;
                return p;
            },
            1e-5);
}

/// sRGB of a black body, largest component 1, from the cubic approximation of the locus in CIE 1931
/// (x, y) by Kim and others (US patent 7024034, 2002), with Y = 1 brought into range.
Pixel blackBody(double t) {
    const double x =
        t <= 4000 ? -0.2661239e9 / (t * t * t) - 0.2343589e6 / (t * t) + 0.8776956e3 / t + 0.179910
                  : -3.0258469e9 / (t * t * t) + 2.1070379e6 / (t * t) + 0.2226347e3 / t + 0.240390;
    const double y =
        t <= 2222   ? -1.1063814 * x * x * x - 1.34811020 * x * x + 2.18555832 * x - 0.20219683
        : t <= 4000 ? -0.9549476 * x * x * x - 1.37418593 * x * x + 2.09137015 * x - 0.16748867
                    : 3.0817580 * x * x * x - 5.87338670 * x * x + 3.75112997 * x - 0.37001483;
    const double X = x / y, Z = (1 - x - y) / y;
    const double linear[] = {3.2406 * X - 1.5372 - 0.4986 * Z, -0.9689 * X + 1.8758 + 0.0415 * Z,
                             0.0557 * X - 0.2040 + 1.0570 * Z};
    const double most = std::max({linear[0], linear[1], linear[2]});
    Pixel p{0, 0, 0, 1};
    for (size_t c = 0; c < 3; ++c) {
        const double v = std::max(0.0, linear[c] / most * 0.5);
        p[c] = v <= 0.0031308 ? 12.92 * v : 1.055 * std::pow(v, 1 / 2.4) - 0.055;
    }
    return p;
}

TEST(TemperatureAndTint, TakesTheColourOfOneWhitePointToThatOfTheOther) {
    const double cases[][2] = {
        {6500, 3000}, {3000, 6500}, {2516, 10500}, {10500, 2516}, {5000, 5500}};
    for (const auto& [from, to] : cases) {
        Bitmap bitmap(3, 1, CIFormat::RGBAf);
        bitmap.set(1, 0, blackBody(from));
        const CIImage image =
            made("CITemperatureAndTint", {{"inputImage", bitmap.image()},
                                          {"inputNeutral", CIVector(from, 0)},
                                          {"inputTargetNeutral", CIVector(to, 0)}});
        const Pixel wanted = blackBody(to);
        for (CIContext* context : everyContext()) {
            const Pixel p = render(*context, image, {0, 0, 3, 1}, CIFormat::RGBAf).pixel(1, 0);
            // The luminance of the two differs; so compare the ratios in linear light.
            const auto linear = [](double v) { return std::pow((v + 0.055) / 1.055, 2.4); };
            for (size_t c = 0; c < 3; ++c)
                EXPECT_NEAR(linear(p[c]) / linear(p[1]), linear(wanted[c]) / linear(wanted[1]),
                            0.02)
                    << from << " K to " << to << " K, " << nameOf(*context);
        }
    }
}

TEST(TemperatureAndTint, WarmsTowardALowTargetAndGreensTowardAPositiveTint) {
    Bitmap grey(1, 1);
    grey.set(0, 0, {0.5, 0.5, 0.5, 1});
    const auto adapted = [&](CIVector target) {
        return render(referenceContext(),
                      made("CITemperatureAndTint",
                           {{"inputImage", grey.image()}, {"inputTargetNeutral", target}}),
                      {0, 0, 1, 1}, CIFormat::RGBAf)
            .pixel(0, 0);
    };
    const Pixel warm = adapted({4000, 0}), green = adapted({6500, 50}),
                magenta = adapted({6500, -50});
    EXPECT_GT(warm[0], warm[2] + 0.1);
    EXPECT_GT(green[1], std::max(green[0], green[2]) + 0.02);
    EXPECT_LT(magenta[1], std::min(magenta[0], magenta[2]) - 0.02);
    const CIImage image = grey.image();
    EXPECT_EQ(made("CITemperatureAndTint", {{"inputImage", image}}), image)
        << "without a change there is no pass";
}

TEST(TemperatureAndTint, ThereAndBackIsTheSamePicture) {
    const Placed source = noise(8, 30, 30);
    const CIVector a(3500, 20), b(8000, -40);
    const CIImage there =
        made("CITemperatureAndTint",
             {{"inputImage", source.image()}, {"inputNeutral", a}, {"inputTargetNeutral", b}});
    // A colour that leaves the gamut does not come back: compare where nothing was cut off.
    const Bitmap between = render(referenceContext(), there, {0, 0, 30, 30}, CIFormat::RGBAf);
    const Bitmap again =
        render(referenceContext(),
               made("CITemperatureAndTint",
                    {{"inputImage", there}, {"inputNeutral", b}, {"inputTargetNeutral", a}}),
               {0, 0, 30, 30}, CIFormat::RGBAf);
    int compared = 0;
    source.bitmap.forEach([&](int x, int y) {
        const Pixel p = between.pixel(x, y);
        if (p[0] <= 0 || p[1] <= 0 || p[2] <= 0) return;
        EXPECT_LT(differenceOf(again.pixel(x, y), source.at(x, y)), 1e-3);
        ++compared;
    });
    EXPECT_GT(compared, 50);
}

// ---- Generators ---------------------------------------------------------------------------------

Pixel mixOf(const CIColor& a, const CIColor& b, double t) {
    const auto part = [t](double x, double y) { return x * (1 - t) + y * t; };
    return {part(a.red() * a.alpha(), b.red() * b.alpha()),
            part(a.green() * a.alpha(), b.green() * b.alpha()),
            part(a.blue() * a.alpha(), b.blue() * b.alpha()), part(a.alpha(), b.alpha())};
}

const CIColor kOrange(1, 0.5, 0.1, 0.8), kClear(0.2, 0.3, 0.9, 0.1);

TEST(RadialGradient, IsALineBetweenTwoRadiiInPremultipliedColour) {
    const double radii[][2] = {{5, 100}, {100, 5}, {0, 30}, {40.25, 40.25}, {-3, 10}};
    for (const auto& [from, to] : radii) {
        const CIImage image = made("CIRadialGradient", {{"inputCenter", CIVector(20, -10)},
                                                        {"inputRadius0", Number(from)},
                                                        {"inputRadius1", Number(to)},
                                                        {"inputColor0", kOrange},
                                                        {"inputColor1", kClear}});
        EXPECT_TRUE(isInfinite(image));
        expectEverywhere(
            image, {-100, -90, 150, 40},
            [&, from = from, to = to](int x, int y) {
                const double d = std::hypot(x + 0.5 - 20, y + 0.5 + 10);
                const double t =
                    std::clamp(from == to ? d - from + 0.5 : (d - from) / (to - from), 0.0, 1.0);
                return mixOf(kOrange, kClear, t);
            },
            1e-5);
    }
}

TEST(SmoothLinearGradient, FollowsTheHermiteCurveBetweenTwoPoints) {
    const CIVector points[][2] = {{{0, 0}, {200, 200}}, {{50, 3}, {-20, 3}}, {{7, 7}, {7, 7}}};
    for (const auto& [a, b] : points) {
        const CIImage image = made("CISmoothLinearGradient", {{"inputPoint0", a},
                                                              {"inputPoint1", b},
                                                              {"inputColor0", kOrange},
                                                              {"inputColor1", kClear}});
        EXPECT_TRUE(isInfinite(image));
        expectEverywhere(
            image, {-30, -20, 150, 60},
            [&, a = a, b = b](int x, int y) {
                const double dx = b.X() - a.X(), dy = b.Y() - a.Y();
                const double square = dx * dx + dy * dy;
                double t = 1;
                if (square > 0)
                    t = std::clamp(((x + 0.5 - a.X()) * dx + (y + 0.5 - a.Y()) * dy) / square, 0.0,
                                   1.0);
                return mixOf(kOrange, kClear, t * t * (3 - 2 * t));
            },
            2e-5);
    }
}

TEST(RandomGenerator, IsThePublishedHashOfTheCoordinates) {
    const CIImage image = made("CIRandomGenerator", {});
    EXPECT_TRUE(isInfinite(image));
    for (const CGRect rect : {CGRect{-40, -9, 70, 20}, CGRect{4000, -100000, 33, 3}})
        expectEverywhere(
            image, rect,
            [](int px, int py) {
                uint32_t v[4] = {uint32_t(px), uint32_t(py), 0, 0};
                for (uint32_t& n : v) n = n * 1664525u + 1013904223u;
                const auto stir = [&] {
                    v[0] += v[1] * v[3], v[1] += v[2] * v[0];
                    v[2] += v[0] * v[1], v[3] += v[1] * v[2];
                };
                stir();
                for (uint32_t& n : v) n ^= n >> 16;
                stir();
                Pixel p;
                for (size_t c = 0; c < 4; ++c) p[c] = (v[c] >> 8) / 16777216.0;
                return p;
            },
            0);
}

TEST(RandomGenerator, IsEvenAndUncorrelatedBetweenChannelsAndNeighbours) {
    constexpr int size = 256;
    const Bitmap picture = render(referenceContext(), made("CIRandomGenerator", {}),
                                  {-128, -128, size + 1, size + 1}, CIFormat::RGBAf);
    // Of n independent pairs a correlation has a standard deviation of 1 / sqrt(n): 5 of them here.
    constexpr double limit = 5.0 / size;
    const auto correlation = [&](size_t c, size_t d, int dx, int dy) {
        double sum = 0;
        for (int y = 0; y < size; ++y)
            for (int x = 0; x < size; ++x)
                sum += (picture.pixel(x, y)[c] - 0.5) * (picture.pixel(x + dx, y + dy)[d] - 0.5);
        return sum * 12 / (size * size);
    };
    for (size_t c = 0; c < 4; ++c) {
        std::array<int, 16> counts{};
        picture.forEach(
            [&](int x, int y) { ++counts[static_cast<size_t>(picture.pixel(x, y)[c] * 16)]; });
        for (const int count : counts)
            EXPECT_NEAR(count, 257 * 257 / 16.0, 5 * std::sqrt(257 * 257 / 16.0));
        for (size_t d = c + 1; d < 4; ++d) EXPECT_LT(std::fabs(correlation(c, d, 0, 0)), limit);
        EXPECT_LT(std::fabs(correlation(c, c, 1, 0)), limit);
        EXPECT_LT(std::fabs(correlation(c, c, 0, 1)), limit);
    }
}

// ---- Geometry -----------------------------------------------------------------------------------

TEST(Crop, KeepsWhatIsInsideOfFiniteInfiniteAndDisplacedExtents) {
    const Placed source = noise(3, 30, 20, -10, 5);
    const auto cropped = [&](const CIImage& image, CIVector rect) {
        return made("CICrop", {{"inputImage", image}, {"inputRectangle", rect}});
    };
    EXPECT_EQ(extentOf(cropped(source.image(), {0, 0, 300, 300})), (CGRect{0, 5, 20, 20}));
    EXPECT_TRUE(extentOf(cropped(source.image(), {100, 0, 300, 300})).isEmpty());
    EXPECT_TRUE(extentOf(cropped(source.image(), {0, 5, -3, 300})).isEmpty());
    const CIImage endless = made("CIRandomGenerator", {});
    EXPECT_EQ(extentOf(cropped(endless, {-3, 4, 7, 8})), (CGRect{-3, 4, 7, 8}));
    expectEverywhere(
        cropped(cropped(source.image(), {-8, 6, 12, 300}), {-20, 0, 24, 20}), {-12, 3, 40, 30},
        [&](int x, int y) {
            return x >= -8 && x < 4 && y >= 6 && y < 20 ? source.at(x, y) : Pixel{};
        },
        1e-6);
}

TEST(AffineTransform, ChainsAreOneResampling) {
    const Placed source = noise(4, 30, 20);
    const auto moved = [](const CIImage& image, CGAffineTransform transform) {
        return made("CIAffineTransform", {{"inputImage", image}, {"inputTransform", transform}});
    };
    const double c = std::cos(0.5), s = std::sin(0.5);
    const CGAffineTransform turn{c, s, -s, c, 3, -4}, back{c, -s, s, c, 0, 0},
        shift{1, 0, 0, 1, 2, 2};
    const CIImage image = source.image();
    EXPECT_EQ(moved(image, {}), image) << "the identity is the image itself";
    const CIImage chain = moved(moved(moved(image, turn), back), shift);
    const auto description = describeImage(chain, {0, 0, 1, 1});
    EXPECT_EQ(description->name, "CIAffineTransform");
    EXPECT_EQ(std::get<std::shared_ptr<ImageDescription>>(description->inputs[0].second)->kind,
              ImageDescription::Kind::Bitmap);
    // Turned and turned back, what is left is a shift by whole and broken pixels.
    const double dx = 3 * c - 4 * s + 2, dy = -3 * s - 4 * c + 2;
    expectEverywhere(
        chain, {0, -10, 40, 40},
        [&](int x, int y) { return source.bilinear(x + 0.5 - dx, y + 0.5 - dy); }, 1e-4);
    EXPECT_TRUE(isInfinite(moved(made("CIRandomGenerator", {}), turn)));
}

/// Solves m x = r by elimination with pivots.
std::array<double, 8> solved(std::array<std::array<double, 9>, 8> m) {
    for (size_t i = 0; i < 8; ++i) {
        size_t pivot = i;
        for (size_t k = i; k < 8; ++k)
            if (std::fabs(m[k][i]) > std::fabs(m[pivot][i])) pivot = k;
        std::swap(m[i], m[pivot]);
        for (size_t k = 0; k < 8; ++k) {
            if (k == i) continue;
            const double factor = m[k][i] / m[i][i];
            for (size_t j = i; j < 9; ++j) m[k][j] -= factor * m[i][j];
        }
    }
    std::array<double, 8> x;
    for (size_t i = 0; i < 8; ++i) x[i] = m[i][8] / m[i][i];
    return x;
}

struct Quadrilateral {
    const char* name;
    CIVector topLeft, topRight, bottomRight, bottomLeft;
};
std::ostream& operator<<(std::ostream& stream, const Quadrilateral& q) {
    return stream << q.name;
}

const Quadrilateral kQuadrilaterals[] = {
    {"Trapezium", {10, 58}, {50, 50}, {62, 2}, {-4, -9}},
    {"Stretched", {0, 80}, {90, 80}, {90, 0}, {0, 0}},
    {"Parallelogram", {20.5, 40}, {70.5, 50}, {60.5, 10}, {10.5, 0}},
    {"Mirrored", {60, 50}, {4, 66}, {-3, 3}, {55, -6}},
    {"FarAway", {3010, -1950}, {3072, -1940}, {3060, -2004}, {2990, -2010}},
};

class Perspectives : public testing::TestWithParam<Quadrilateral> {};

TEST_P(Perspectives, MapTheCornersAndAllBetween) {
    const Quadrilateral& q = GetParam();
    const Placed source = noise(9, 48, 36, 3, -2, CIFormat::RGBAf);
    const CIImage image =
        made("CIPerspectiveTransformWithExtent", {{"inputImage", source.image()},
                                                  {"inputExtent", CIVector(3, -2, 48, 36)},
                                                  {"inputTopLeft", q.topLeft},
                                                  {"inputTopRight", q.topRight},
                                                  {"inputBottomRight", q.bottomRight},
                                                  {"inputBottomLeft", q.bottomLeft}});
    // The map from the quadrilateral back to the rectangle, from the eight equations of its
    // corners.
    const std::pair<CIVector, CIVector> corners[] = {{q.topLeft, {3, 34}},
                                                     {q.topRight, {51, 34}},
                                                     {q.bottomRight, {51, -2}},
                                                     {q.bottomLeft, {3, -2}}};
    const CIVector center = q.topLeft; // near the coordinates, for the sake of precision
    std::array<std::array<double, 9>, 8> equations{};
    for (size_t i = 0; i < 4; ++i) {
        const double x = corners[i].first.X() - center.X(), y = corners[i].first.Y() - center.Y();
        const double u = corners[i].second.X(), v = corners[i].second.Y();
        equations[2 * i] = {x, y, 1, 0, 0, 0, -u * x, -u * y, u};
        equations[2 * i + 1] = {0, 0, 0, x, y, 1, -v * x, -v * y, v};
    }
    const std::array<double, 8> m = solved(equations);
    CGRect box{q.topLeft.X(), q.topLeft.Y(), 0, 0};
    for (const auto& [corner, unused] : corners) {
        const CGRect old = box;
        box.x = std::min(old.x, corner.X()), box.y = std::min(old.y, corner.Y());
        box.width = std::max(old.maxX(), corner.X()) - box.x;
        box.height = std::max(old.maxY(), corner.Y()) - box.y;
    }
    ASSERT_TRUE(image);
    const CGRect extent = image.extent();
    EXPECT_NEAR(extent.x, box.x, 1e-9);
    EXPECT_NEAR(extent.maxX(), box.maxX(), 1e-9);
    EXPECT_NEAR(extent.y, box.y, 1e-9);
    EXPECT_NEAR(extent.maxY(), box.maxY(), 1e-9);
    const CGRect whole = box.integral();
    // Noise with a full swing from pixel to pixel: 2^-9 of a pixel is lost to single precision.
    expectEverywhere(
        image, whole,
        [&](int px, int py) {
            const double x = px + 0.5 - center.X(), y = py + 0.5 - center.Y();
            const double w = m[6] * x + m[7] * y + 1;
            if (w <= 0) return Pixel{};
            return source.bilinear((m[0] * x + m[1] * y + m[2]) / w,
                                   (m[3] * x + m[4] * y + m[5]) / w);
        },
        4e-3);
}

INSTANTIATE_TEST_SUITE_P(, Perspectives, testing::ValuesIn(kQuadrilaterals),
                         [](const auto& test) { return test.param.name; });

double lanczos(double d) {
    if (std::fabs(d) >= 3) return 0;
    if (std::fabs(d) < 1e-9) return 1;
    const double a = std::numbers::pi * d;
    return 3 * std::sin(a) * std::sin(a / 3) / (a * a);
}

/// The weights of the pixels low to high - 1 for a place, along one axis.
std::vector<double> lanczosWeights(double place, double scale, int low, int high) {
    std::vector<double> weights;
    double sum = 0;
    for (int i = low; i < high; ++i) {
        weights.push_back(lanczos((i + 0.5 - place) * std::min(scale, 1.0)));
        sum += weights.back();
    }
    for (double& weight : weights) weight /= sum;
    return weights;
}

TEST(LanczosScale, IsTheWidenedKernelWithAnExactSize) {
    const double cases[][2] = {{0.5, 1}, {0.3, 1}, {2, 1}, {1, 5}, {1.37, 0.6}, {0.1, 1}, {7, 0.9}};
    for (const auto& [scale, aspect] : cases) {
        const Placed source = noise(11, 60, 40, -20, 10, CIFormat::RGBAf);
        const CIImage image =
            made("CILanczosScaleTransform", {{"inputImage", source.image()},
                                             {"inputScale", Number(scale)},
                                             {"inputAspectRatio", Number(aspect)}});
        const double kx = scale * aspect, ky = scale;
        const CGRect extent = extentOf(image);
        EXPECT_NEAR(extent.x, -20 * kx, 1e-4);
        EXPECT_NEAR(extent.width, 60 * kx, 1e-4);
        EXPECT_NEAR(extent.y, 10 * ky, 1e-4);
        EXPECT_NEAR(extent.height, 40 * ky, 1e-4);
        const CGRect whole = extent.integral();
        // A few pixels in the middle and at every edge.
        for (const double left : {whole.x, whole.x + std::floor(whole.width / 2), whole.maxX() - 2})
            for (const double low :
                 {whole.y, whole.y + std::floor(whole.height / 2), whole.maxY() - 2})
                expectEverywhere(
                    image, CGRect{left, low, 2, 2}.intersection(whole),
                    [&, kx = kx, ky = ky](int px, int py) {
                        const auto across = lanczosWeights((px + 0.5) / kx, kx, -20, 40);
                        const auto along = lanczosWeights((py + 0.5) / ky, ky, 10, 50);
                        Pixel sum{};
                        for (int y = 0; y < 40; ++y)
                            for (int x = 0; x < 60; ++x)
                                for (size_t c = 0; c < 4; ++c)
                                    sum[c] += across[size_t(x)] * along[size_t(y)] *
                                              source.bitmap.pixel(x, y)[c];
                        return sum;
                    },
                    3e-4);
    }
}

TEST(LanczosScale, KeepsAnEvenOpaquePictureEvenUpToItsEdge) {
    Bitmap bitmap(50, 30);
    bitmap.forEach([&](int x, int y) { bitmap.set(x, y, {0.2, 0.6, 1, 1}); });
    for (const double scale : {0.2, 0.5, 3.0}) {
        const CIImage image = made("CILanczosScaleTransform",
                                   {{"inputImage", bitmap.image()}, {"inputScale", Number(scale)}});
        expectEverywhere(
            image, image.extent(), [&](int, int) { return bitmap.pixel(0, 0); }, 0,
            CIFormat::RGBA8);
    }
}

TEST(LanczosScale, LiesOnWholePixelsDespiteSinglePrecision) {
    const CIImage image = made("CICrop", {{"inputImage", made("CIRandomGenerator", {})},
                                          {"inputRectangle", CIVector(0, 0, 8190, 4320)}});
    const float k = 8190.0f / 4095.0f * 1.0000001f;
    const CIImage small =
        made("CILanczosScaleTransform", {{"inputImage", image}, {"inputScale", Number(1.0f / k)}});
    EXPECT_EQ(extentOf(small), (CGRect{0, 0, 4095, 2160}));
    EXPECT_EQ(extentOf(made("CILanczosScaleTransform",
                            {{"inputImage", small}, {"inputScale", Number(k)}})),
              (CGRect{0, 0, 8190, 4320}));
}

// ---- Blur ---------------------------------------------------------------------------------------

struct BlurCase {
    double radius;
    /// Largest difference: 1/1000 where every tap is computed, else what reduction may fold over.
    double tolerance;
};
std::ostream& operator<<(std::ostream& stream, const BlurCase& c) {
    return stream << c.radius;
}

class Blurs : public testing::TestWithParam<BlurCase> {};

TEST_P(Blurs, LikeAPlainConvolution) {
    const double radius = GetParam().radius;
    const int margin = static_cast<int>(std::ceil(3.5 * radius)),
              reach = static_cast<int>(5 * radius) + 2;
    // A picture of everything that is hard: noise, an edge on black, and single pixels.
    Placed source{Bitmap(90, 60), -17, 8};
    Random random(21);
    source.bitmap.forEach([&](int x, int y) {
        const double v = x < 30   ? random.whole(0, 1)
                         : x < 60 ? (x < 43)
                                  : (x % 13 == 3 && y % 11 == 5);
        source.bitmap.set(x, y, {v, 1 - v, 0.5, 1});
    });
    const CIImage image =
        made("CIGaussianBlur", {{"inputImage", source.image()}, {"inputRadius", Number(radius)}});
    EXPECT_EQ(extentOf(image), source.image().extent().grownBy(margin));

    std::vector<double> weights;
    double sum = 0;
    for (int i = -reach; i <= reach; ++i) {
        weights.push_back(std::exp(-0.5 * i * i / (radius * radius)));
        sum += weights.back();
    }
    const auto expected = [&](int px, int py) {
        Pixel out{};
        for (int y = source.y; y < source.y + 60; ++y)
            for (int x = source.x; x < source.x + 90; ++x) {
                if (std::abs(x - px) > reach || std::abs(y - py) > reach) continue;
                const double weight =
                    weights[size_t(x - px + reach)] * weights[size_t(y - py + reach)] / sum / sum;
                for (size_t c = 0; c < 4; ++c) out[c] += weight * source.at(x, y)[c];
            }
        return out;
    };
    const double left = source.x - std::min(margin, 12), low = source.y + 20;
    expectEverywhere(image, {left, low, 40, 3}, expected, GetParam().tolerance);
    expectEverywhere(image, {source.x + 35.0, low, 60, 3}, expected, GetParam().tolerance);
    expectEverywhere(image, {source.x + 50.0, source.y - 4.0, 3, 20}, expected,
                     GetParam().tolerance);
}

INSTANTIATE_TEST_SUITE_P(, Blurs,
                         testing::Values(BlurCase{0.4, 1e-3}, BlurCase{1, 1e-3}, BlurCase{3, 1e-3},
                                         BlurCase{3.32, 3e-3}, BlurCase{5, 3e-3},
                                         BlurCase{6.7, 3e-3}, BlurCase{10, 3e-3},
                                         BlurCase{25, 3e-3}, BlurCase{60, 3e-3}));

TEST(GaussianBlur, OfRadiusZeroIsTheImageItself) {
    const Placed pixels = noise(1, 5, 5);
    const CIImage image = pixels.image();
    EXPECT_EQ(made("CIGaussianBlur", {{"inputImage", image}, {"inputRadius", Number(0)}}), image);
}

TEST(GaussianBlur, KeepsAnEvenColourWithoutEndEven) {
    const CIImage color = CIImage::imageWithColor(CIColor(0.25, 0.5, 0.75, 0.5));
    for (const double radius : {1.0, 12.0, 200.0}) {
        const CIImage image =
            made("CIGaussianBlur", {{"inputImage", color}, {"inputRadius", Number(radius)}});
        EXPECT_TRUE(isInfinite(image));
        expectEverywhere(
            image, {-7, 900, 40, 9},
            [](int, int) {
                return Pixel{0.125, 0.25, 0.375, 0.5};
            },
            1e-5);
    }
}

TEST(GaussianBlur, IsTheSameInParts) {
    const Placed source = noise(31, 300, 200, -31, 7);
    for (const double radius : {2.0, 9.0, 40.0}) {
        const CIImage image = made(
            "CIGaussianBlur", {{"inputImage", source.image()}, {"inputRadius", Number(radius)}});
        for (const auto& context : cpuContexts()) {
            const Bitmap whole = render(*context, image, {-40, 0, 320, 220});
            const Bitmap part = render(*context, image, {13, 51, 57, 33});
            EXPECT_TRUE(
                isClose(part, [&](int x, int y) { return whole.pixel(x + 53, y + 51); }, {}))
                << nameOf(*context);
        }
    }
}

// ---- Whole reads of the kernel language ---------------------------------------------------------

TEST(WholeReads, AreThePixelsAtEvenDistances) {
    for (const CIFormat format : kAllFormats) {
        const Placed source = noise(41, 37, 29, -5, 3, format);
        const int cases[][4] = {
            {1, 1, 0, 0}, {1, 1, -3, 4}, {1, 2, 5, 0}, {2, 1, -1, -1}, {4, 4, 2, 3}};
        for (const auto& [sx, sy, x, y] : cases)
            expectEverywhere(
                testKernel("WholeReads", "strided")
                    .applyWithExtent({-20, -20, 60, 60}, RegionOfInterest::whole(source.image()),
                                     {source.image(), sx, sy, x, y}),
                {-20, -20, 60, 60},
                [&, sx = sx, sy = sy, x = x, y = y](int px, int py) {
                    return source.at(px * sx + x, py * sy + y);
                },
                1e-6);
        expectEverywhere(
            testKernel("WholeReads", "sumInRow")
                .applyWithExtent({-20, -20, 60, 60}, RegionOfInterest::grownBy(5),
                                 {source.image(), 5}),
            {-20, -20, 60, 60},
            [&](int px, int py) {
                Pixel sum{};
                for (int i = 0; i < 5; ++i)
                    for (size_t c = 0; c < 4; ++c) sum[c] += source.at(px + i, py - i)[c] / 5;
                return sum;
            },
            1e-5);
    }
}

TEST(WholeReads, AddUpBlocks) {
    const int cases[][4] = {
        {1, 1, 0, 0}, {2, 1, -3, 4}, {3, 5, -40, -9}, {20, 17, 1, 2}, {64, 64, -70, -60}};
    for (const CIFormat format : kAllFormats) {
        const Placed source = noise(48, 71, 39, -5, 3, format);
        for (const auto& [across, up, x, y] : cases)
            for (const CIFormat target : {CIFormat::RGBAf, format})
                expectEverywhere(
                    testKernel("WholeReads", "summed")
                        .applyWithExtent({-20, -20, 60, 60},
                                         RegionOfInterest::whole(source.image()),
                                         {source.image(), across, up, x, y,
                                          static_cast<float>(1.0 / (across * up))}),
                    {-20, -20, 60, 60},
                    [&, across = across, up = up, x = x, y = y](int px, int py) {
                        Pixel sum{};
                        for (int i = 0; i < across * up; ++i) {
                            const Pixel p =
                                source.at(px * across + x + i % across, py * up + y + i / across);
                            for (size_t c = 0; c < 4; ++c) sum[c] += p[c] / (across * up);
                        }
                        return sum;
                    },
                    target == CIFormat::RGBAf ? 1e-4 : 0.51 / 255, target);
    }
}

// Means of blocks from the lower left corner on; those at the other ends have fewer pixels.
TEST(WholeReads, AddUpLinesByWeights) {
    struct Line {
        int x, y, reach;
    };
    for (const CIFormat format : kAllFormats) {
        const Placed source = noise(48, 71, 19, -5, 3, format);
        for (const auto& [x, y, reach] : {Line{1, 0, 3}, Line{0, 1, 16}, Line{1, 0, 16},
                                          Line{0, 1, 0}, Line{-1, 2, 2}, Line{1, 0, 17}}) {
            const double weights[] = {0.25, 0.125, 0.75, 0.5};
            expectEverywhere(
                testKernel("WholeReads", "bell")
                    .applyWithExtent({-30, -20, 120, 60}, RegionOfInterest::grownBy(2 * reach),
                                     {source.image(), x, y, reach,
                                      CIVector(weights[0], weights[1], weights[2], weights[3])}),
                {-30, -20, 120, 60},
                [&, x = x, y = y, reach = reach](int px, int py) {
                    Pixel sum{};
                    double weight = weights[0], next = weights[1], fall = weights[2];
                    for (int i = 0; i <= reach; ++i) {
                        const Pixel a = source.at(px + i * x, py + i * y),
                                    b = source.at(px - i * x, py - i * y);
                        for (size_t c = 0; c < 4; ++c)
                            sum[c] += weight * (i == 0 ? a[c] : a[c] + b[c]);
                        weight = next;
                        next *= fall;
                        fall *= weights[3];
                    }
                    return sum;
                },
                2e-5);
        }
    }
}

TEST(WholeReads, ReduceImages) {
    for (const CIFormat format : {CIFormat::RGBA8, CIFormat::RGBAf})
        for (const auto& [across, up] : {std::pair{1, 1}, {4, 3}, {1, 7}, {500, 2}}) {
            const Placed source = noise(49, 37, 29, -5, 3, format);
            const CISampler sampler(source.image(), {.filter = SamplerFilter::Nearest});
            expectEverywhere(
                testKernel("WholeReads", "blocks")
                    .applyWithExtent(sampler.extent(), RegionOfInterest::identity(), {sampler})
                    .imageWithReduction(across, up),
                sampler.extent(),
                [&, across = std::min(across, 37), up = up](int x, int y) {
                    const int left = (x + 5) / across * across - 5, low = (y - 3) / up * up + 3;
                    const int columns = std::min(across, 32 - left), rows = std::min(up, 32 - low);
                    Pixel mean{};
                    for (int i = 0; i < columns * rows; ++i) {
                        const Pixel p = source.at(left + i % columns, low + i / columns);
                        for (size_t c = 0; c < 4; ++c) mean[c] += p[c] / (columns * rows);
                    }
                    return mean;
                },
                1e-4);
        }
}

TEST(WholeReads, AtTheOwnPlaceAndBesideAreTransparentOutside) {
    const Placed source = noise(43, 37, 29, -5, 3);
    expectEverywhere(
        testKernel("WholeReads", "hereAndBeside")
            .applyWithExtent({-200, -20, 400, 60}, RegionOfInterest::grownBy(5),
                             {source.image(), CIVector(3, -2)}),
        {-200, -20, 400, 60},
        [&](int px, int py) {
            Pixel sum = source.at(px, py);
            for (size_t c = 0; c < 4; ++c)
                sum[c] = 0.75 * sum[c] + 0.25 * source.at(px + 3, py - 2)[c];
            return sum;
        },
        1e-6);
}

TEST(WholeReads, MirrorAboutAnyAxis) {
    // Axes on pixels, between pixels and, last, between both; halves shown twice, with groups of
    // pixels on either side of the axis and across it.
    const CGPoint sums[] = {{63, 10}, {20, 33}, {-7, 0}, {40.5, 9.25}};
    const auto folded = [](double here, double sum, int mirroring) {
        const double there = sum - here;
        return mirroring == 0   ? here
               : mirroring == 1 ? there
               : mirroring == 2 ? std::min(here, there)
                                : std::max(here, there);
    };
    for (const CIFormat format : {CIFormat::RGBA8, CIFormat::ARGB8, CIFormat::RGBAh}) {
        const Placed source = noise(44, 71, 19, -5, 3, format);
        for (const CGPoint& sum : sums)
            for (int modes = 0; modes < 32; ++modes) {
                const int across = modes % 4, up = modes / 4 % 4;
                // The same bytes at the other end, or single precision.
                const bool isBlended = sum.x != std::floor(sum.x);
                const CIFormat target = modes < 16 || isBlended ? CIFormat::RGBAf : format;
                expectEverywhere(
                    testKernel("WholeReads", "mirrored")
                        .applyWithExtent({-30, -20, 120, 60},
                                         RegionOfInterest::whole(source.image()),
                                         {source.image(), CIVector(sum.x, sum.y), across, up}),
                    {-30, -20, 120, 60},
                    [&](int x, int y) {
                        return source.bilinear(folded(x + 0.5, sum.x, across),
                                               folded(y + 0.5, sum.y, up));
                    },
                    isBlended ? 1e-4 : 1e-6, target);
            }
    }
}

TEST(WholeReads, MoveByAnyOffset) {
    for (const CIFormat format : kAllFormats) {
        const Placed source = noise(47, 71, 19, -5, 3, format);
        for (const CGPoint& by : {CGPoint{0, 0}, CGPoint{7.25, -3.5}, CGPoint{-40.875, 2},
                                  CGPoint{900, 0}, CGPoint{-1e30, 1e30}})
            for (const SamplerFilter filter : {SamplerFilter::Linear, SamplerFilter::Nearest}) {
                const CISampler sampler(source.image(), {.filter = filter});
                expectEverywhere(
                    testKernel("WholeReads", "moved")
                        .applyWithExtent({-30, -20, 120, 60}, RegionOfInterest::whole(sampler),
                                         {sampler, CIVector(by.x, by.y)}),
                    {-30, -20, 120, 60},
                    [&](int x, int y) {
                        if (std::fabs(by.x) > 1e9) return Pixel{};
                        const double u = x + 0.5 + by.x, v = y + 0.5 + by.y;
                        return filter == SamplerFilter::Linear
                                   ? source.bilinear(u, v)
                                   : source.at(static_cast<int>(std::floor(u)),
                                               static_cast<int>(std::floor(v)));
                    },
                    1e-4);
            }
    }
}

// Bytes that a kernel hands on, in every order of the channels and with ends of rows that fill no
// group.
TEST(WholeReads, HandOnWhatIsLeftAsItIs) {
    for (const CIFormat format : kAllFormats)
        for (const CIFormat target : kAllFormats)
            for (const char* name : {"disc", "discOverMoved"}) {
                const Placed source = noise(46, 93, 41, -5, 3, format);
                const bool moves = name == std::string("discOverMoved");
                expectEverywhere(
                    testKernel("WholeReads", name)
                        .applyWithExtent({-30, -20, 161, 80}, RegionOfInterest::grownBy(5),
                                         {source.image(), CIVector(48, 30), 33.3f}),
                    {-30, -20, 161, 80},
                    [&](int x, int y) {
                        const double distance = std::hypot(x + 0.5 - 48, y + 0.5 - 30);
                        const Pixel here = source.at(x, y);
                        return distance < 33.3   ? here
                               : distance > 42.3 ? Pixel{}
                               : moves           ? source.at(x + 3, y - 2)
                                                 : Pixel{here[2], here[1], here[0], here[3]};
                    },
                    isEightBit(target) && !isEightBit(format) ? 0.51 / 255
                    : target == CIFormat::RGBAh               ? 1e-3
                                                              : 1e-6,
                    target);
            }
}

TEST(SharedReads, AreThoseOfEachPixel) {
    for (const CIFormat format : kAllFormats) {
        const Placed source = noise(45, 71, 19, -5, 3, format);
        for (const double size : {2.5, 7.0, 33.3})
            expectEverywhere(
                testKernel("WholeReads", "mosaic")
                    .applyWithExtent({-30, -20, 120, 60}, RegionOfInterest::whole(source.image()),
                                     {source.image(), static_cast<float>(size)}),
                {-30, -20, 120, 60},
                [&](int x, int y) {
                    const double u = (std::floor((x + 0.5) / size) + 0.5) * size;
                    const double v = (std::floor((y + 0.5) / size) + 0.5) * size;
                    const Pixel a = source.bilinear(u, v), b = source.bilinear(u + 1.25, v),
                                c = source.bilinear(u, v - 2.5);
                    Pixel sum{};
                    for (size_t i = 0; i < 4; ++i) sum[i] = 0.25 * (a[i] + b[i] + c[i]);
                    return sum;
                },
                2e-4);
        for (const CGPoint& point : {CGPoint{20.3, 9.8}, CGPoint{-5.2, 3.1}, CGPoint{900, 0}})
            expectEverywhere(
                testKernel("WholeReads", "onePoint")
                    .applyWithExtent({0, 0, 20, 3}, RegionOfInterest::whole(source.image()),
                                     {source.image(), CIVector(point.x, point.y)}),
                {0, 0, 20, 3}, [&](int, int) { return source.bilinear(point.x, point.y); }, 2e-4);
    }
}

// ---- What cannot be -----------------------------------------------------------------------------

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN(), kInf = HUGE_VAL;

struct Refusal {
    const char* filter;
    Settings settings;
};

const Refusal kRefusals[] = {
    {"CICrop", {{"inputRectangle", CIVector(0, kNaN, 3, 3)}}},
    {"CICrop", {{"inputRectangle", CIVector(0, 0, kNaN, 3)}}},
    {"CIAffineTransform", {{"inputTransform", CGAffineTransform{0, 0, 0, 0, 1, 1}}}},
    {"CIAffineTransform", {{"inputTransform", CGAffineTransform{kNaN, 0, 0, 1, 1, 1}}}},
    {"CIAffineTransform", {{"inputTransform", CGAffineTransform{1, 0, 0, 1, kInf, 1}}}},
    {"CIHueAdjust", {{"inputAngle", Number(kNaN)}}},
    {"CIColorControls", {{"inputContrast", Number(kInf)}}},
    {"CIColorMonochrome", {{"inputColor", CIColor(kNaN, 0, 0)}}},
    {"CITemperatureAndTint", {{"inputNeutral", CIVector(kInf, 0)}}},
    {"CITemperatureAndTint", {{"inputTargetNeutral", CIVector(5000, kNaN)}}},
    {"CIRadialGradient", {{"inputRadius1", Number(kNaN)}}},
    {"CIRadialGradient", {{"inputCenter", CIVector(kInf, 0)}}},
    {"CISmoothLinearGradient", {{"inputPoint0", CIVector(kNaN, 0)}}},
    {"CIGaussianBlur", {{"inputRadius", Number(kNaN)}}},
    {"CIGaussianBlur", {{"inputRadius", Number(kInf)}}},
    {"CIGaussianBlur", {{"inputRadius", Number(-1)}}},
    {"CIGaussianBlur", {{"inputRadius", Number(1000000)}}},
    {"CIGaussianBlur",
     {{"inputImage", CIImage::imageWithColor(CIColor(1, 1, 1))}, {"inputRadius", Number(5000)}}},
    {"CILanczosScaleTransform", {{"inputScale", Number(0)}}},
    {"CILanczosScaleTransform", {{"inputScale", Number(-2)}}},
    {"CILanczosScaleTransform", {{"inputScale", Number(kNaN)}}},
    {"CILanczosScaleTransform", {{"inputScale", Number(1e9)}}},
    {"CILanczosScaleTransform", {{"inputAspectRatio", Number(0)}}},
    {"CIPerspectiveTransformWithExtent", {{"inputTopLeft", CIVector(kNaN, 0)}}},
    {"CIPerspectiveTransformWithExtent", {{"inputTopLeft", CIVector(300, 0)}}},
    {"CIPerspectiveTransformWithExtent", {{"inputTopRight", CIVector(20, 10)}}},
    {"CIPerspectiveTransformWithExtent", {{"inputExtent", CIVector(0, 0, 0, 10)}}},
    {"CIPerspectiveTransformWithExtent",
     {{"inputTopLeft", CIVector(0, 0)},
      {"inputTopRight", CIVector(0, 0)},
      {"inputBottomRight", CIVector(0, 0)},
      {"inputBottomLeft", CIVector(0, 0)}}},
};

TEST(Builtin, RefusesWhatMakesNoSenseWithOneLine) {
    const Placed pixels = noise(1, 5, 5);
    const CIImage image = pixels.image();
    for (const Refusal& refusal : kRefusals) {
        Settings settings = refusal.settings;
        if (CIFilter::filterWithName(refusal.filter)->setValueForKey(image, "inputImage"))
            settings.insert(settings.begin(), {"inputImage", image});
        testing::internal::CaptureStdout();
        const CIImage output = made(refusal.filter, settings);
        const std::string printed = testing::internal::GetCapturedStdout();
        EXPECT_FALSE(output) << refusal.filter << printed;
        EXPECT_TRUE(printed.starts_with("### " + std::string(refusal.filter) + ": ")) << printed;
        EXPECT_EQ(std::ranges::count(printed, '\n'), 1) << printed;
    }
}

TEST(Builtin, LivesThroughEmptyImagesAndExtremes) {
    const Placed pixels = noise(1, 5, 5);
    const CIImage source = pixels.image();
    const CIImage empty = source.imageByCroppingToRect({100, 100, 1, 1});
    for (const std::string& name : CIFilter::filterNames()) {
        if (!name.starts_with("CI")) continue;
        const CIFilterRef filter = CIFilter::filterWithName(name);
        const bool takesImage = filter->setValueForKey(empty, "inputImage");
        const CIImage output = filter->outputImage();
        if (!takesImage) continue;
        EXPECT_TRUE(!output || output.extent().isEmpty()) << name;
        filter->setValueForKey(InputValue{}, "inputImage");
        EXPECT_FALSE(filter->outputImage()) << name;
    }
    const std::pair<const char*, Settings> extremes[] = {
        {"CIGaussianBlur", {{"inputRadius", Number(99999)}}},
        {"CIGaussianBlur", {{"inputRadius", Number(1e-30)}}},
        {"CILanczosScaleTransform", {{"inputScale", Number(1e-4)}}},
        {"CILanczosScaleTransform", {{"inputScale", Number(1e4)}}},
        {"CIAffineTransform", {{"inputTransform", CGAffineTransform{1e12, 0, 0, 1e12, 0, 0}}}},
        {"CIAffineTransform", {{"inputTransform", CGAffineTransform{1e-12, 0, 0, 1e-12, 0, 0}}}},
    };
    for (const auto& [name, settings] : extremes) {
        Settings all = settings;
        all.emplace_back("inputImage", source);
        for (CIContext* context : everyContext())
            render(*context, made(name, all), {-8, -8, 32, 16});
    }
}

} // namespace
