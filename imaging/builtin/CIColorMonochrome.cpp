// Monochrome: the BT.709 luma of the picture in shades of one colour, mixed with the picture by the
// intensity: v' = v + (luma * colour - v) * intensity. Alpha is kept; the colour's own is not used.
#include "imaging/builtin/Builtin.h"

#include <algorithm>

class CIColorMonochrome : public CIFilter {
public:
    static Attributes customAttributes() {
        return {withDefault("inputColor", "color", CIColor(0.6, 0.45, 0.3)),
                scalar("inputIntensity", "intensity", {.standard = 1})};
    }

    static FilterGuide guide() {
        return {
            .title = "Monochrome",
            .sentence = "Shows the picture in shades of one colour.",
            .tags = {"tint", "black and white"},
        };
    }

    CIImage outputImage() override {
        if (!inputImage) return {};
        if (!isFinite(inputColor) || !isFinite(inputIntensity))
            return refuse(*this, "the colour or the intensity is not finite");
        const double intensity = std::clamp(inputIntensity.doubleValue(), 0.0, 1.0);
        return outputOf(
            *this,
            applyFrameworkKernel(
                "CIColorKernel", "CI_monochrome", inputImage.extent(), RegionOfInterest::identity(),
                {inputImage, CIVector(inputColor.red(), inputColor.green(), inputColor.blue()),
                 intensity}));
    }

    CIImage inputImage;
    CIColor inputColor{0.6, 0.45, 0.3};
    Number inputIntensity{1.0}; ///< 0 to 1
    VORN_FILTER(CIColorMonochrome, inputImage, inputColor, inputIntensity)
};
VORN_BUILTIN(CIColorMonochrome)
