// White balance: what has the colour of the white point `inputNeutral` gets that of
// `inputTargetNeutral`, so that a lower target temperature makes the picture warmer.
//
// A white point is a colour temperature on the Planckian locus and a tint off it. The locus is
// Krystek's approximation in CIE 1960 (u, v) ("An algorithm to calculate correlated colour
// temperature", Color Research and Application 10, 1985; errors below 9e-5 from 1000 to 15000 K).
// The tint is the distance from the locus along its normal (Duv of ANSI C78.377) times 3000,
// positive above the locus, toward green.
//
// The adaptation is the linear Bradford transform (ICC.1:2010, annex E.3) in linear light with the
// primaries of sRGB (IEC 61966-2-1).
#include "imaging/builtin/Builtin.h"

#include <algorithm>
#include <array>

namespace {

using Vector = std::array<double, 3>;
using Matrix = std::array<Vector, 3>; // by rows

Vector operator*(const Matrix& m, const Vector& v) {
    Vector r{};
    for (size_t i = 0; i < 3; ++i)
        for (size_t k = 0; k < 3; ++k) r[i] += m[i][k] * v[k];
    return r;
}

Matrix operator*(const Matrix& a, const Matrix& b) {
    Matrix r{};
    for (size_t i = 0; i < 3; ++i)
        for (size_t j = 0; j < 3; ++j)
            for (size_t k = 0; k < 3; ++k) r[i][j] += a[i][k] * b[k][j];
    return r;
}

Matrix inverse(const Matrix& m) {
    const auto cofactor = [&](size_t i, size_t j) {
        const size_t a = (i + 1) % 3, b = (i + 2) % 3, c = (j + 1) % 3, d = (j + 2) % 3;
        return m[a][c] * m[b][d] - m[a][d] * m[b][c];
    };
    const double determinant =
        m[0][0] * cofactor(0, 0) + m[0][1] * cofactor(0, 1) + m[0][2] * cofactor(0, 2);
    Matrix r;
    for (size_t i = 0; i < 3; ++i)
        for (size_t j = 0; j < 3; ++j) r[j][i] = cofactor(i, j) / determinant;
    return r;
}

constexpr Matrix kBradford{
    {{0.8951, 0.2664, -0.1614}, {-0.7502, 1.7135, 0.0367}, {0.0389, -0.0685, 1.0296}}};
constexpr Matrix kXYZFromSRGB{
    {{0.4124, 0.3576, 0.1805}, {0.2126, 0.7152, 0.0722}, {0.0193, 0.1192, 0.9505}}};

/// The point of the locus in CIE 1960 (u, v).
std::array<double, 2> planckian(double t) {
    return {(0.860117757 + 1.54118254e-4 * t + 1.28641212e-7 * t * t) /
                (1 + 8.42420235e-4 * t + 7.08145163e-7 * t * t),
            (0.317398726 + 4.22806245e-5 * t + 4.20481691e-8 * t * t) /
                (1 - 2.89741816e-5 * t + 1.61456053e-7 * t * t)};
}

/// XYZ of a white point, Y = 1.
Vector whitePoint(double temperature, double tint) {
    const double t = std::clamp(temperature, 1000.0, 40000.0);
    const double duv = std::clamp(tint, -150.0, 150.0) / 3000;
    const auto [u0, v0] = planckian(t);
    const auto [u1, v1] = planckian(t * 0.999);
    // Toward lower temperatures u grows; the normal that points to larger v is on the left.
    const double length = std::hypot(u1 - u0, v1 - v0);
    const double u = u0 - (v1 - v0) / length * duv, v = v0 + (u1 - u0) / length * duv;
    const double x = 3 * u / (2 * u - 8 * v + 4), y = 2 * v / (2 * u - 8 * v + 4);
    return {x / y, 1, (1 - x - y) / y};
}

} // namespace

class CITemperatureAndTint : public CIFilter {
public:
    static Attributes customAttributes() {
        return {withDefault("inputNeutral", "neutral", CIVector(6500, 0)),
                withDefault("inputTargetNeutral", "target neutral", CIVector(6500, 0))};
    }

    static FilterGuide guide() {
        return {
            .title = "Temperature and tint",
            .sentence = "Makes the picture warmer or colder, greener or more magenta.",
            .tags = {"white balance", "temperature"},
        };
    }

    CIImage outputImage() override {
        if (!inputImage) return {};
        if (!isFinite(inputNeutral) || !isFinite(inputTargetNeutral))
            return refuse(*this, "a white point is not finite");
        if (inputNeutral == inputTargetNeutral) return inputImage;
        const Vector from = kBradford * whitePoint(inputNeutral.X(), inputNeutral.Y());
        const Vector to = kBradford * whitePoint(inputTargetNeutral.X(), inputTargetNeutral.Y());
        Matrix scale{};
        for (size_t i = 0; i < 3; ++i) scale[i][i] = to[i] / from[i];
        const Matrix m =
            inverse(kXYZFromSRGB) * inverse(kBradford) * scale * kBradford * kXYZFromSRGB;
        // The kernel decodes sRGB itself, whatever the working space is.
        const CISampler source(inputImage, {.colorSpace = CGColorSpace::SRGB});
        const auto row = [&](size_t i) { return CIVector(m[i][0], m[i][1], m[i][2]); };
        auto node =
            applyFrameworkKernel("CIColorKernel", "CI_linearMatrix", inputImage.extent(),
                                 RegionOfInterest::identity(), {source, row(0), row(1), row(2)});
        if (node) node->colorSpace = CGColorSpace::SRGB;
        return outputOf(*this, std::move(node));
    }

    CIImage inputImage;
    /// Temperature in kelvin, limited to 1000 to 40000, and tint, limited to -150 to 150.
    CIVector inputNeutral{6500, 0}, inputTargetNeutral{6500, 0};
    VORN_FILTER(CITemperatureAndTint, inputImage, inputNeutral, inputTargetNeutral)
};
VORN_BUILTIN(CITemperatureAndTint)
