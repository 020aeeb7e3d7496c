// Quick blur: blurs along both axes or along one, as far as a share of the frame's width.
#include "core/FilterSupport.h"

class VEQuickBlur2 : public CIFilter {
public:
    VEQuickBlur2() { loadKernels<VEQuickBlur2>(kernels, "VE_QuickBlur2FilterKernel", kFunctions); }

    static Attributes customAttributes() {
        return {scalar("inputMode", "mode", {.sliderMax = 3, .standard = 1}), mixer(),
                scalar("inputBlur", "blur", {.sliderMax = 0.4})};
    }

    static FilterGuide guide() {
        return {.title = "Quick blur",
                .sentence = "Blurs the picture, across, upwards or both ways.",
                .tags = {"blur", "soft", "defocus", "motion blur"},
                .inputs = {{.key = "inputBlur",
                            .purpose = "how far the blur reaches, in tenths of the width"}},
                .modes = {"both ways", "across", "up and down"},
                .beginWith = {{"inputMode", 0}, {"inputBlur", 0.1}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        const double unit = inputImage ? inputImage.extent().width * 0.1 : 0;
        blockFar = static_cast<float>(inputBlur.doubleValue() * unit);
        blockNear = blockFar * 0.5f;
        const int mode = std::max(clampedMode(inputMode, 2), 0);
        const int block = blockFor(blockFar, mode == 0);
        const CIImage blurred =
            kernels[mode]
                .applyWithExtent(source.extent(), RegionOfInterest::identity(),
                                 {source, inputMixer, blockNear, blockFar})
                .imageWithReduction(mode == 2 ? 1 : block, mode == 1 ? 1 : block);
        return blockFar <= 0 || inputMixer.floatValue() == 0 ? blurred.imageKnownToEqual(inputImage)
                                                             : blurred;
    }

    CIImage inputImage;
    Number inputMode, inputMixer, inputBlur;
    VORN_FILTER(VEQuickBlur2, inputImage, inputMode, inputMixer, inputBlur)

private:
    /// The pixels of a block along an axis for a reach. Three blocks are read each way and, where
    /// the blur runs both ways and blocks are large, two, which keeps the number of reads down.
    static int blockFor(float reach, bool isBothWays) {
        constexpr float kMost = 64, kMostAddedUp = 15; // as in the kernels
        if (!(reach > 0) || (!isBothWays && reach <= kMostAddedUp)) return 1;
        const float wide = std::ceil((reach + 1) / 2.5f);
        const bool isLarge = isBothWays && wide >= 8 && wide <= kMost;
        return static_cast<int>(std::min(isLarge ? wide : std::ceil((reach + 1) / 3.5f), kMost));
    }

    static constexpr std::string_view kFunctions[] = {"VE_QuickBlur2_xyBlur", "VE_QuickBlur2_xBlur",
                                                      "VE_QuickBlur2_yBlur"};
    inline static CIKernel kernels[std::size(kFunctions)];
    float blockFar = 0, blockNear = 0;
};
VORN_REGISTER(VEQuickBlur2)
