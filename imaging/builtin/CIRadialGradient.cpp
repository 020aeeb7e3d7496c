// Radial gradient without end: the first colour up to the first radius, the second from the second
// radius on, and between them a straight line in premultiplied colour (as in CSS Images Level 3,
// section 3.4), never shorter than a pixel: with equal radii it is a clean edge.
#include "imaging/builtin/Builtin.h"

class CIRadialGradient : public CIFilter {
public:
    static Attributes customAttributes() {
        return {position("inputCenter", "center", CIVector(150, 150)),
                scalar("inputRadius0", "radius 0", {.sliderMax = 800, .standard = 5}),
                scalar("inputRadius1", "radius 1", {.sliderMax = 800, .standard = 100}),
                withDefault("inputColor0", "color 0", CIColor(1, 1, 1)),
                withDefault("inputColor1", "color 1", CIColor(0, 0, 0))};
    }

    static FilterGuide guide() {
        return {
            .title = "Radial gradient",
            .sentence = "Fills everything with two colours that meet in a ring.",
            .tags = {"gradient", "circle"},
            .frameKey = "",
        };
    }

    CIImage outputImage() override {
        if (!isFinite(inputCenter) || !isFinite(inputRadius0) || !isFinite(inputRadius1) ||
            !isFinite(inputColor0) || !isFinite(inputColor1))
            return refuse(*this, "an input is not finite");
        double from = inputRadius0.doubleValue(), to = inputRadius1.doubleValue();
        if (std::fabs(to - from) < 1) {
            const double middle = from + (to - from) / 2, half = to < from ? -0.5 : 0.5;
            from = middle - half, to = middle + half;
        }
        const double slope = from == to ? 1 : 1 / (to - from); // where a pixel is nothing
        auto node = applyFrameworkKernel(
            "CIGeneratorKernel", "CI_radialGradient", CGRect::infinite(),
            RegionOfInterest::identity(),
            {CIVector(inputCenter.X(), inputCenter.Y()), from, slope, inputColor0, inputColor1});
        if (node) node->colorSpace = CGColorSpace::SRGB;
        return outputOf(*this, std::move(node));
    }

    CIVector inputCenter{150, 150};
    Number inputRadius0{5.0}, inputRadius1{100.0}; ///< pixels
    CIColor inputColor0{1, 1, 1}, inputColor1{0, 0, 0};
    VORN_FILTER(CIRadialGradient, inputCenter, inputRadius0, inputRadius1, inputColor0, inputColor1)
};
VORN_BUILTIN(CIRadialGradient)
