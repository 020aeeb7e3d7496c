// Brightness: a dissolve that passes through a brightened picture or, in its second mode, through a
// darkened one.
#include "filters/shared/Transition.h"

class VEXFBrightness : public CIFilter {
public:
    VEXFBrightness() {
        loadKernels<VEXFBrightness>(kernels, "VEXFBrightnessFilterKernel", kFunctions);
    }

    static Attributes customAttributes() {
        return {scalar("inputMode", "mode", {.sliderMax = 2}),
                scalar("inputFadeStatus", "Time", {})};
    }

    static FilterGuide guide() {
        return {.title = "Dissolve through light or dark",
                .sentence = "Dissolves from one picture to another, brighter or darker on the way.",
                .tags = {"dissolve", "fade", "flash"},
                .inputs = transitionGuides(),
                .modes = {"through bright pictures", "through dark pictures"},
                .beginWith = {{"inputFadeStatus", 0.3}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage), target(inputTargetImage);
        return kernelForMode(kernels, inputMode)
            .applyWithExtent(source.extent(), transitionReads(inputTargetImage, source.extent()),
                             {source, target, inputFadeStatus});
    }

    CIImage inputImage, inputTargetImage;
    Number inputMode, inputFadeStatus;
    VORN_FILTER(VEXFBrightness, inputImage, inputTargetImage, inputMode, inputFadeStatus)

private:
    static constexpr std::string_view kFunctions[] = {"VEXFBrightness_brightFirst",
                                                      "VEXFBrightness_darkFirst"};
    inline static CIKernel kernels[std::size(kFunctions)];
};
VORN_REGISTER(VEXFBrightness)
