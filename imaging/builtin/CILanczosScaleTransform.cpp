// Scales an image about the origin with the Lanczos kernel of three lobes, L(d) = sinc(d) sinc(d /
// 3) (C. Duchon, "Lanczos filtering in one and two dimensions", Journal of Applied Meteorology 18,
// 1979): the height by `inputScale`, the width by `inputScale` * `inputAspectRatio`. Where the
// picture shrinks the kernel is widened by as much, which takes away what the smaller picture
// cannot show. An edge that falls next to a whole pixel but for rounding in single precision lies
// on it.
#include "imaging/builtin/Builtin.h"

namespace {

constexpr double kSmallest = 1e-4, kLargest = 1e4, kSmallestOfEndless = 1.0 / 16;

/// An edge of the scaled extent.
double scaledEdge(double edge, double scale) {
    const double place = edge * scale, whole = std::round(place);
    return std::fabs(place - whole) <= 1e-6 * std::fabs(place) ? whole : place;
}

std::shared_ptr<Node> scaled(const CIImage& image, bool alongX, double scale) {
    const CGRect extent = image.extent();
    const double low = alongX ? extent.x : extent.y, high = alongX ? extent.maxX() : extent.maxY();
    const double newLow = scaledEdge(low, scale), newHigh = scaledEdge(high, scale);
    const double size = std::isinf(newHigh) ? newHigh : newHigh - newLow;
    const CGRect result = alongX ? CGRect{newLow, extent.y, size, extent.height}
                                 : CGRect{extent.x, newLow, extent.width, size};
    const double narrowing = std::min(scale, 1.0), support = 3 / narrowing;
    const int taps = static_cast<int>(std::ceil(2 * support)) + 1;
    const auto roi = [alongX, scale](int, CGRect destination) {
        const double inverse = 1 / scale, margin = 3 * std::max(inverse, 1.0) + 1;
        if (alongX)
            return CGRect{destination.x * inverse - margin, destination.y,
                          destination.width * inverse + 2 * margin, destination.height};
        return CGRect{destination.x, destination.y * inverse - margin, destination.width,
                      destination.height * inverse + 2 * margin};
    };
    return applyFrameworkKernel("CIResampleKernel", "CI_lanczos", result,
                                RegionOfInterest::computed(roi).exact(),
                                {CISampler(image, {.filter = SamplerFilter::Nearest}),
                                 alongX ? CIVector(1, 0) : CIVector(0, 1), 1 / scale, narrowing,
                                 support, taps, std::floor(low), std::ceil(high)});
}

} // namespace

class CILanczosScaleTransform : public CIFilter {
public:
    static Attributes customAttributes() {
        return {scalar("inputScale", "scale", {.sliderMax = 1.5, .standard = 1, .identity = 1}),
                scalar("inputAspectRatio", "aspect ratio",
                       {.sliderMin = 0.5, .sliderMax = 2, .standard = 1, .identity = 1})};
    }

    static FilterGuide guide() {
        return {
            .title = "Sharp scaling",
            .sentence = "Scales the picture and keeps it sharp.",
            .tags = {"scale", "resize"},
        };
    }

    CIImage outputImage() override {
        if (!inputImage) return {};
        const double y = inputScale.doubleValue(), x = y * inputAspectRatio.doubleValue();
        const double smallest = inputImage.extent().isInfinite() ? kSmallestOfEndless : kSmallest;
        for (const double scale : {x, y})
            if (!(scale >= smallest && scale <= kLargest))
                return refuse(*this, "the scale is no number from 0.0001 (0.0625 for an image "
                                     "without end) to 10000");
        if (inputImage.extent().isEmpty()) return inputImage;
        CIImage image = inputImage;
        std::shared_ptr<Node> node;
        // Reads across are the dearer ones. They come last where fewer rows are left for them, else
        // first, while there are few rows still.
        for (const bool alongX : {y >= 1, y < 1}) {
            if ((alongX ? x : y) == 1) continue;
            node = scaled(image, alongX, alongX ? x : y);
            image = CIImage(node);
        }
        return node ? outputOf(*this, std::move(node)) : inputImage;
    }

    CIImage inputImage;
    Number inputScale{1.0}, inputAspectRatio{1.0};
    VORN_FILTER(CILanczosScaleTransform, inputImage, inputScale, inputAspectRatio)
};
VORN_BUILTIN(CILanczosScaleTransform)
