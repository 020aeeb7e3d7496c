// Pillow blocks: shades the image as if it were printed on rows of cushions.
#include "core/FilterSupport.h"

class VEPillowBlocks : public CIFilter {
public:
    VEPillowBlocks() {
        loadKernels<VEPillowBlocks>(kernels, "VE_PillowBlocksFilterKernel", kFunctions);
    }

    static Attributes customAttributes() {
        // The key of the divisions speaks of brightness.
        return {mixer(),
                scalar("inputMixerMult", "mixerMultiplier",
                       {.min = 1, .sliderMin = 1, .sliderMax = 10, .standard = 1}),
                scalar("inputBrightness", "divisions",
                       {.min = 1, .sliderMin = 1, .sliderMax = 60, .standard = 20}),
                scalar("inputSize", "size",
                       {.min = 1, .sliderMin = 1, .sliderMax = 300, .standard = 1}),
                scalar("inputMode", "mode", {.sliderMax = 255})};
    }

    static FilterGuide guide() {
        return {
            .title = "Pillow blocks",
            .sentence = "Shades the picture as if it were printed on rows of cushions.",
            .tags = {"cushions", "blocks", "quilt", "relief"},
            .inputs = {{.key = "inputMixerMult",
                        .purpose = "how deep the shading is; 10 leaves little but the tops"},
                       {.key = "inputBrightness", .purpose = "blocks across at size 1"},
                       {.key = "inputSize", .purpose = "enlarges the blocks, to ten times at 300"}},
            .modes = {"shaded", "transparent seams"}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        const CIImage blocks =
            kernelForMode(kernels, inputMode)
                .applyWithExtent(source.extent(), RegionOfInterest::identity(),
                                 {source, inputMixer, inputMixerMult, inputSize, inputBrightness});
        return inputMixer.floatValue() == 0 ? blocks.imageKnownToEqual(inputImage) : blocks;
    }

    CIImage inputImage;
    Number inputMixer, inputMixerMult, inputSize, inputBrightness, inputMode;
    VORN_FILTER(VEPillowBlocks, inputImage, inputMixer, inputMixerMult, inputSize, inputBrightness,
                inputMode)

private:
    static constexpr std::string_view kFunctions[] = {"VE_PillowBlocks_pillowblocks",
                                                      "VE_PillowBlocks_pillowblocksAlpha"};
    inline static CIKernel kernels[std::size(kFunctions)];
};
VORN_REGISTER(VEPillowBlocks)
