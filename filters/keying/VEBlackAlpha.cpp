// Black alpha: turns black, white or a primary into transparency, or keeps one colour only.
#include "core/FilterSupport.h"

class VEBlackAlpha : public CIFilter {
public:
    VEBlackAlpha() { loadKernels<VEBlackAlpha>(kernels, "VE_BlackAlphaFilterKernel", kFunctions); }

    static Attributes customAttributes() {
        return {scalar("inputAmount", "amount", {}), scalar("inputThreshold", "threshold", {}),
                scalar("inputMode", "mode", {.sliderMax = 9})};
    }

    static FilterGuide guide() {
        return {
            .title = "Black alpha",
            .sentence = "Makes black, white or a primary colour transparent, or everything but one "
                        "of them.",
            .tags = {"key", "transparency", "black", "white", "primary"},
            .inputs = {{.key = "inputAmount",
                        .purpose = "how transparent it becomes, or how choosy what alone stays is"},
                       {.key = "inputThreshold",
                        .purpose = "how pure a colour has to be to go, or to stay, as a whole"}},
            .modes = {"black goes", "white goes", "red goes", "green goes", "blue goes",
                      "white alone stays", "red alone stays", "green alone stays",
                      "blue alone stays"},
            .beginWith = {{"inputAmount", 1}, {"inputThreshold", 0.1}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        return kernelForMode(kernels, inputMode)
            .applyWithExtent(source.extent(), RegionOfInterest::identity(),
                             {source, inputAmount, inputThreshold});
    }

    CIImage inputImage;
    Number inputAmount, inputThreshold, inputMode;
    VORN_FILTER(VEBlackAlpha, inputImage, inputAmount, inputThreshold, inputMode)

private:
    static constexpr std::string_view kFunctions[] = {
        "VE_BlackAlpha_blackAlpha", "VE_BlackAlpha_whiteAlpha", "VE_BlackAlpha_redAlpha",
        "VE_BlackAlpha_greenAlpha", "VE_BlackAlpha_blueAlpha",  "VE_BlackAlpha_whiteOnly",
        "VE_BlackAlpha_redOnly",    "VE_BlackAlpha_greenOnly",  "VE_BlackAlpha_blueOnly"};
    inline static CIKernel kernels[std::size(kFunctions)];
};
VORN_REGISTER(VEBlackAlpha)
