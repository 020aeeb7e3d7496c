// Custom wipe: from one picture to another in the order that a matte gives, dark parts first.
#include "filters/transitions/MatteWipe.h"
#include "platform/Messages.h"

class VEXFCustomWipe : public CIFilter {
public:
    VEXFCustomWipe() {
        loadKernels<VEXFCustomWipe>(kernels, "VEXFCustomWipeFilterKernel", kFunctions);
    }

    static Attributes customAttributes() {
        return {scalar("inputMode", "Mode", {.sliderMax = 2}),
                scalar("inputFadeStatus", "Time", {})};
    }

    static FilterGuide guide() {
        return {.title = "Wipe by a matte",
                .sentence = "Wipes from one picture to another in the order of a third one's "
                            "brightness, its dark parts first.",
                .tags = {"wipe", "matte", "luma", "gradient", "pattern"},
                .inputs = transitionGuides(
                    {{.key = "inputMaskImage",
                      .label = "matte",
                      .purpose = "stretched over the frame; the outgoing picture itself where "
                                 "there is none"}}),
                .modes = {"hard edge", "soft edge"},
                .beginWith = {{"inputFadeStatus", 0.5}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage), target(movable(inputTargetImage, source.extent()));
        CISampler matte(stretched.of(inputMaskImage, inputImage),
                        {.colorSpace = CGColorSpace::SRGB});
        if (!matte) {
            report(Severity::Warning, "### VEXFCustomWipe - no wipe image!");
            matte = source;
        }
        return kernelForMode(kernels, inputMode)
            .applyWithExtent(source.extent(), matteWipeReads(source.extent()),
                             {source, target, matte, inputFadeStatus});
    }

    CIImage inputImage, inputTargetImage, inputMaskImage;
    Number inputMode, inputFadeStatus;
    VORN_FILTER(VEXFCustomWipe, inputImage, inputTargetImage, inputMaskImage, inputMode,
                inputFadeStatus)

private:
    static constexpr std::string_view kFunctions[] = {"VEXFCustomWipe_hardWipe",
                                                      "VEXFCustomWipe_softWipe"};
    inline static CIKernel kernels[std::size(kFunctions)];
    StretchedMatte stretched;
};
VORN_REGISTER(VEXFCustomWipe)
