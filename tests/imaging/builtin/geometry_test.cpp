// Crops, transforms, perspectives and scaling.
#include "builtin_support.h"

#include "vorneffects/ImageDescription.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <ostream>
#include <utility>
#include <vector>

namespace {

using namespace builtin_test;

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

} // namespace
