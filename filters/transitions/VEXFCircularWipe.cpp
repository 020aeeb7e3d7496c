// Circular wipe: the hand of a clock sweeps the incoming picture in.
#include "filters/shared/Transition.h"

class VEXFCircularWipe : public CIFilter {
public:
    VEXFCircularWipe() {
        loadKernels<VEXFCircularWipe>(kernels, "VEXFCircularWipeFilterKernel", kFunctions);
    }

    // The time is not advertised; hosts set it by its key.
    static Attributes customAttributes() {
        return {
            scalar("inputMode", "mode", {.sliderMax = 2}),
            scalar("inputSoftness", "softness",
                   {.min = 0.0001, .sliderMin = 0.0001, .standard = 0.0001, .identity = 0.0001})};
    }

    static FilterGuide guide() {
        FilterGuide guide{
            .title = "Clock wipe",
            .sentence = "Sweeps from one picture to another like the hand of a clock, from 12 "
                        "o'clock on.",
            .tags = {"wipe", "clock", "radial", "sweep"},
            .inputs = transitionGuides(
                {{.key = "inputSoftness", .purpose = "how soft the edges are; 1 is a dissolve"}}),
            .modes = {"clockwise", "anticlockwise"},
            .beginWith = {{"inputFadeStatus", 0.35}, {"inputSoftness", 0.02}}};
        for (InputGuide& input : guide.inputs)
            if (input.key == "inputFadeStatus") {
                input.label = "Time";
                input.from = 0;
                input.to = 1;
                input.start = 0.0;
            }
        return guide;
    }

    CIImage outputImage() override {
        const CISampler source(inputImage), target(inputTargetImage);
        const CGRect from = inputImage.extent(), to = inputTargetImage.extent();
        return kernelForMode(kernels, inputMode)
            .applyWithExtent(source.extent(), transitionReads(inputTargetImage, source.extent()),
                             {source, target, inputFadeStatus, inputSoftness,
                              static_cast<float>(std::max(from.width, to.width)),
                              static_cast<float>(std::max(from.height, to.height))});
    }

    CIImage inputImage, inputTargetImage;
    Number inputMode, inputSoftness, inputFadeStatus;
    VORN_FILTER(VEXFCircularWipe, inputImage, inputTargetImage, inputMode, inputSoftness,
                inputFadeStatus)

private:
    static constexpr std::string_view kFunctions[] = {"VEXFCircularWipe_circularWipeCW",
                                                      "VEXFCircularWipe_circularWipeCCW"};
    inline static CIKernel kernels[std::size(kFunctions)];
};
VORN_REGISTER(VEXFCircularWipe)
