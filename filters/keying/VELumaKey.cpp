// Luma key: makes dark pixels transparent, or, in its second mode, bright ones.
#include "filters/keying/AmountAndSlope.h"

class VELumaKey : public CIFilter {
public:
    VELumaKey() { loadKernels<VELumaKey>(kernels, "VE_LumaKeyFilterKernel", kFunctions); }

    static Attributes customAttributes() { return levelRampAttributes(); }

    static FilterGuide guide() {
        return {.title = "Luma key",
                .sentence = "Makes dark parts of the picture transparent, or bright ones.",
                .tags = {"key", "transparency", "brightness", "level"},
                .inputs = levelRampGuides(),
                .modes = {"dark becomes transparent", "bright becomes transparent"},
                .beginWith = {{"input1Amount", 0.5}, {"input2Amount", 0.7}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        const LevelRamp ramp(input1Amount, input2Amount);
        return kernelForMode(kernels, inputMode)
            .applyWithExtent(source.extent(), RegionOfInterest::identity(),
                             {source, ramp.high, ramp.low});
    }

    CIImage inputImage;
    Number input1Amount, input2Amount, inputMode;
    VORN_FILTER(VELumaKey, inputImage, input1Amount, input2Amount, inputMode)

private:
    static constexpr std::string_view kFunctions[] = {"VE_LumaKey_lumaKey",
                                                      "VE_LumaKey_inverseLumaKey"};
    inline static CIKernel kernels[std::size(kFunctions)];
};
VORN_REGISTER(VELumaKey)
