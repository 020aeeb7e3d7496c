// Saturation, contrast and brightness, in this order, of the straight colour v with its BT.709 luma
// y:
//   s = y + (v - y) * saturation,  v' = (s - 1/2) * contrast + 1/2 + brightness.
// Alpha is kept; values are not limited.
#include "imaging/builtin/Builtin.h"

class CIColorControls : public CIFilter {
public:
    static Attributes customAttributes() {
        return {
            scalar("inputSaturation", "saturation", {.sliderMax = 2, .standard = 1, .identity = 1}),
            scalar("inputBrightness", "brightness", {.min = -1, .sliderMin = -1}),
            scalar("inputContrast", "contrast",
                   {.sliderMin = 0.25, .sliderMax = 4, .standard = 1, .identity = 1})};
    }

    static FilterGuide guide() {
        return {
            .title = "Colour controls",
            .sentence = "Sets saturation, brightness and contrast.",
            .tags = {"saturation", "brightness", "contrast"},
        };
    }

    CIImage outputImage() override {
        if (!inputImage) return {};
        if (!isFinite(inputSaturation) || !isFinite(inputBrightness) || !isFinite(inputContrast))
            return refuse(*this, "a control is not a finite number");
        return outputOf(*this, applyFrameworkKernel(
                                   "CIColorKernel", "CI_colorControls", inputImage.extent(),
                                   RegionOfInterest::identity(),
                                   {inputImage, inputSaturation, inputBrightness, inputContrast}));
    }

    CIImage inputImage;
    Number inputSaturation{1.0}, inputBrightness{0.0}, inputContrast{1.0};
    VORN_FILTER(CIColorControls, inputImage, inputSaturation, inputBrightness, inputContrast)
};
VORN_BUILTIN(CIColorControls)
