// Gaussian blur with the radius as standard deviation, in pixels: the convolution with
// exp(-(x x + y y) / (2 radius radius)), its weights brought to a sum of 1. The extent grows by 3.5
// radii, rounded up to whole pixels; past that lie less than 0.05 % of the weights.
//
// A radius below 3.32 is computed tap by tap, rows and columns apart. For a larger one the picture
// is first reduced by the power of two R that leaves a Gaussian of at least 1.5 reduced pixels, and
// enlarged at the end, both with quadratic B-splines. Those blur as well: their variances, which
// add up to (2 R R - 1) / 4, come off that of the Gaussian between them, so that the whole has the
// radius that is asked for. What the reduction folds over is below 0.35/255 of a full swing (the
// B-spline has zeros of order 3 where the Gaussian is not small), and the time does not grow with
// the radius.
#include "imaging/builtin/Builtin.h"

#include <algorithm>

namespace {

constexpr double kReach = 3.5, kSmallestReduced = 1.66;
constexpr double kMostRadius = 100000, kMostRadiusOfEndless = 1000;

/// One of the two axes of a picture.
struct Axis {
    bool isX;

    CIVector vector() const { return isX ? CIVector(1, 0) : CIVector(0, 1); }
    int x() const { return isX ? 1 : 0; }
    int y() const { return isX ? 0 : 1; }

    /// The rectangle with its edges along this axis moved by a function of them, and outward to
    /// whole pixels. Edges without end stay.
    template <class Move>
    CGRect moved(CGRect rect, Move move) const {
        if (rect.isEmpty()) return rect;
        const double low = isX ? rect.x : rect.y, high = isX ? rect.maxX() : rect.maxY();
        const double newLow = std::floor(move(low, -1)), newHigh = std::ceil(move(high, 1));
        double& start = isX ? rect.x : rect.y;
        double& size = isX ? rect.width : rect.height;
        start = newLow;
        size = std::isinf(newHigh) ? newHigh : newHigh - newLow;
        return rect;
    }
    CGRect grown(CGRect rect, double margin) const {
        return moved(rect, [=](double edge, int side) { return edge + side * margin; });
    }
    CGRect scaled(CGRect rect, double scale, double margin) const {
        return moved(rect, [=](double edge, int side) { return edge * scale + side * margin; });
    }
};

constexpr Axis kAxes[] = {{false}, {true}};

CIImage reduced(const CIImage& image, Axis axis, int factor) {
    return CIImage(
        applyFrameworkKernel("CIBlurKernel", factor == 4 ? "CI_quarter" : "CI_halve",
                             axis.scaled(image.extent(), 1.0 / factor, 1),
                             RegionOfInterest::computed([axis, factor](int, CGRect destination) {
                                 return axis.scaled(destination, factor, factor - 1);
                             }).exact(),
                             {image, axis.x(), axis.y()}));
}

std::shared_ptr<Node> enlarged(const CIImage& image, Axis axis, int factor, CGRect extent) {
    return applyFrameworkKernel(
        "CIBlurKernel", "CI_enlarge", extent,
        RegionOfInterest::computed([axis, factor](int, CGRect destination) {
            return axis.scaled(destination, 1.0 / factor, 1);
        }).exact(),
        {CISampler(image, {.filter = SamplerFilter::Nearest}), axis.vector(), 1.0 / factor});
}

std::shared_ptr<Node> convolved(const CIImage& image, Axis axis, double sigma) {
    const int reach = static_cast<int>(std::ceil(kReach * sigma));
    const double exponent = 0.5 / (sigma * sigma);
    // The kernel gets its weights by multiplication in single precision, so their sum is that of
    // the same products.
    const float factor = static_cast<float>(std::exp(-2 * exponent));
    float weight = static_cast<float>(std::exp(-exponent));
    float fall = static_cast<float>(std::exp(-3 * exponent));
    const float first = weight, quotient = fall;
    double sum = 1;
    for (int i = 1; i <= reach; ++i) {
        sum += 2.0 * weight;
        weight *= fall;
        fall *= factor;
    }
    return applyFrameworkKernel(
        "CIBlurKernel", "CI_gaussian", axis.grown(image.extent(), reach),
        RegionOfInterest::computed([axis, reach](int, CGRect destination) {
            return axis.grown(destination, reach);
        }).exact(),
        {image, axis.x(), axis.y(), reach, 1 / sum, first / sum, quotient, factor});
}

} // namespace

class CIGaussianBlur : public CIFilter {
public:
    static Attributes customAttributes() {
        return {scalar("inputRadius", "radius", {.sliderMax = 100, .standard = 10})};
    }

    static FilterGuide guide() {
        return {
            .title = "Gaussian blur",
            .sentence = "Blurs the picture evenly.",
            .tags = {"blur", "soft"},
        };
    }

    CIImage outputImage() override {
        if (!inputImage) return {};
        const double sigma = inputRadius.doubleValue();
        if (!isFinite(inputRadius) || sigma < 0)
            return refuse(*this, "the radius is negative or not a finite number");
        if (sigma > kMostRadius) return refuse(*this, "the radius is larger than 100000");
        const CGRect extent = inputImage.extent();
        if (extent.isInfinite() && sigma > kMostRadiusOfEndless)
            return refuse(*this, "the radius is larger than 1000 and the image has no end");
        if (sigma == 0 || extent.isEmpty()) return inputImage;

        int factor = 1;
        while (2 * factor * kSmallestReduced <= sigma) factor *= 2;
        CIImage image = inputImage;
        for (int left = factor; left > 1;) {
            const int step = left >= 4 ? 4 : 2;
            for (const Axis axis : kAxes) image = reduced(image, axis, step);
            left /= step;
        }
        const double square = double(factor) * factor;
        const double variance =
            factor == 1 ? sigma * sigma : sigma * sigma / square - (2 * square - 1) / (4 * square);
        std::shared_ptr<Node> node;
        for (const Axis axis : kAxes) {
            node = convolved(image, axis, std::sqrt(variance));
            image = CIImage(node);
        }
        if (factor > 1) {
            CGRect wanted = image.extent();
            for (const Axis axis : kAxes) {
                const CGRect grown = axis.grown(extent, std::ceil(kReach * sigma));
                (axis.isX ? wanted.x : wanted.y) = axis.isX ? grown.x : grown.y;
                (axis.isX ? wanted.width : wanted.height) = axis.isX ? grown.width : grown.height;
                node = enlarged(image, axis, factor, wanted);
                image = CIImage(node);
            }
        }
        return outputOf(*this, std::move(node));
    }

    CIImage inputImage;
    Number inputRadius{10.0}; ///< pixels, 0 to 100000 (1000 for an image without end)
    VORN_FILTER(CIGaussianBlur, inputImage, inputRadius)
};
VORN_BUILTIN(CIGaussianBlur)
