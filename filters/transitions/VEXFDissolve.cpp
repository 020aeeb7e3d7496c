// Dissolve: carries the picture from one image to another; the adjustment holds the outgoing image
// longer.
#include "filters/shared/Transition.h"

#include <cmath>

class VEXFDissolve : public CIFilter {
public:
    VEXFDissolve() {
        loadKernel<VEXFDissolve>(kernel, "VEXFDissolveFilterKernel", "VEXFDissolve_dissolve");
    }

    static Attributes customAttributes() {
        return {scalar("inputFadeStatus", "Time", {}),
                scalar("inputAdjust", "Adjust",
                       {.min = 1, .sliderMin = 1, .sliderMax = 4, .standard = 1, .identity = 1})};
    }

    static FilterGuide guide() {
        return {.title = "Dissolve",
                .sentence = "Dissolves from one picture to another.",
                .tags = {"dissolve", "crossfade", "mix"},
                .inputs = transitionGuides(
                    {{.key = "inputAdjust",
                      .purpose = "how long the outgoing picture stays; 1 is even"}}),
                .beginWith = {{"inputFadeStatus", 0.5}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage), target(inputTargetImage);
        const float share = std::pow(inputFadeStatus.floatValue(), inputAdjust.floatValue());
        return kernel.applyWithExtent(source.extent(),
                                      transitionReads(inputTargetImage, source.extent()),
                                      {source, target, share});
    }

    CIImage inputImage, inputTargetImage;
    Number inputFadeStatus, inputAdjust;
    VORN_FILTER(VEXFDissolve, inputImage, inputTargetImage, inputFadeStatus, inputAdjust)

private:
    inline static CIKernel kernel;
};
VORN_REGISTER(VEXFDissolve)
