// Hue: turns the colour in the plane of the two colour differences; the luma stays. The matrix is
// derived in CIColorKernel.kernel.
#include "imaging/builtin/Builtin.h"

class CIHueAdjust : public CIFilter {
public:
    static Attributes customAttributes() {
        constexpr double pi = 3.14159265358979323846;
        return {scalar("inputAngle", "angle",
                       {.min = -pi, .sliderMin = -pi, .sliderMax = pi, .standard = 0})};
    }

    static FilterGuide guide() {
        return {
            .title = "Hue",
            .sentence = "Turns the hues around the colour circle.",
            .tags = {"hue", "colour"},
        };
    }

    CIImage outputImage() override {
        if (!inputImage) return {};
        if (!isFinite(inputAngle)) return refuse(*this, "the angle is not a finite number");
        const double angle = inputAngle.doubleValue();
        return outputOf(*this,
                        applyFrameworkKernel("CIColorKernel", "CI_hue", inputImage.extent(),
                                             RegionOfInterest::identity(),
                                             {inputImage, std::cos(angle), std::sin(angle)}));
    }

    CIImage inputImage;
    /// Radians; a positive angle takes red to yellow.
    Number inputAngle;
    VORN_FILTER(CIHueAdjust, inputImage, inputAngle)
};
VORN_BUILTIN(CIHueAdjust)
