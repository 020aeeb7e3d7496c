// Linear gradient without end: the first colour before the first point, the second past the second
// one, and between them t * t * (3 - 2 t) in premultiplied colour (Hermite interpolation as in GLSL
// 4.60, section 8.3, smoothstep). With equal points it is the second colour everywhere (as in SVG
// 2, section 14.2.2).
#include "imaging/builtin/Builtin.h"

class CISmoothLinearGradient : public CIFilter {
public:
    static Attributes customAttributes() {
        return {position("inputPoint0", "point 0", CIVector(0, 0)),
                position("inputPoint1", "point 1", CIVector(200, 200)),
                withDefault("inputColor0", "color 0", CIColor(1, 1, 1)),
                withDefault("inputColor1", "color 1", CIColor(0, 0, 0))};
    }

    static FilterGuide guide() {
        return {
            .title = "Smooth gradient",
            .sentence = "Fills everything with two colours and a smooth passage between.",
            .tags = {"gradient", "line"},
            .frameKey = "",
        };
    }

    CIImage outputImage() override {
        if (!isFinite(inputPoint0) || !isFinite(inputPoint1) || !isFinite(inputColor0) ||
            !isFinite(inputColor1))
            return refuse(*this, "an input is not finite");
        const double x = inputPoint1.X() - inputPoint0.X(), y = inputPoint1.Y() - inputPoint0.Y();
        const double square = x * x + y * y;
        const bool isPoint = !(square > 0) || !std::isfinite(1 / square);
        const CIVector slope = isPoint ? CIVector(0, 0) : CIVector(x / square, y / square);
        auto node = applyFrameworkKernel("CIGeneratorKernel", "CI_smoothLinearGradient",
                                         CGRect::infinite(), RegionOfInterest::identity(),
                                         {CIVector(inputPoint0.X(), inputPoint0.Y()), slope,
                                          isPoint ? inputColor1 : inputColor0, inputColor1});
        if (node) node->colorSpace = CGColorSpace::SRGB;
        return outputOf(*this, std::move(node));
    }

    CIVector inputPoint0{0, 0}, inputPoint1{200, 200};
    CIColor inputColor0{1, 1, 1}, inputColor1{0, 0, 0};
    VORN_FILTER(CISmoothLinearGradient, inputPoint0, inputPoint1, inputColor0, inputColor1)
};
VORN_BUILTIN(CISmoothLinearGradient)
