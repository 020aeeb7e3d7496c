// Wipe from a layer: from one picture to another in the order of a layer's light and dark.
#include "filters/transitions/MatteWipe.h"
#include "platform/Messages.h"

class VEXFFromLayer : public CIFilter {
public:
    VEXFFromLayer() {
        loadKernels<VEXFFromLayer>(kernels, "VEXFFromLayerFilterKernel", kFunctions);
    }

    static Attributes customAttributes() {
        return {scalar("inputMode", "Mode", {.sliderMax = 2}),
                scalar("inputFadeStatus", "Time", {})};
    }

    static FilterGuide guide() {
        return {.title = "Wipe by a layer",
                .sentence = "Lets one picture grow out of another, through the dark or the bright "
                            "parts of a third one first.",
                .tags = {"wipe", "layer", "luma", "dissolve", "matte"},
                .inputs = transitionGuides(
                    {{.key = "inputMaskImage",
                      .label = "layer",
                      .purpose = "stretched over the frame; the outgoing picture itself where "
                                 "there is none"}}),
                .modes = {"dark first", "bright first"},
                .beginWith = {{"inputFadeStatus", 0.5}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage), target(movable(inputTargetImage, source.extent()));
        CISampler matte(stretched.of(inputMaskImage, inputImage));
        if (!matte) {
            report(Severity::Warning, "### VEXFFromLayer - no wipe image!");
            matte = source;
        }
        return kernelForMode(kernels, inputMode)
            .applyWithExtent(source.extent(), matteWipeReads(source.extent()),
                             {source, target, matte, inputFadeStatus});
    }

    CIImage inputImage, inputTargetImage, inputMaskImage;
    Number inputMode, inputFadeStatus;
    VORN_FILTER(VEXFFromLayer, inputImage, inputTargetImage, inputMaskImage, inputMode,
                inputFadeStatus)

private:
    static constexpr std::string_view kFunctions[] = {"VEXFFromLayer_darkFirst",
                                                      "VEXFFromLayer_brightFirst"};
    inline static CIKernel kernels[std::size(kFunctions)];
    StretchedMatte stretched;
};
VORN_REGISTER(VEXFFromLayer)
