// Black alpha with two controls: makes dark pixels transparent, or, in its second mode, black.
#include "filters/keying/AmountAndSlope.h"

class VEBlackAlpha2ctl : public CIFilter {
public:
    VEBlackAlpha2ctl() {
        loadKernels<VEBlackAlpha2ctl>(kernels, "VE_BlackAlpha2ctlFilterKernel", kFunctions);
    }

    static Attributes customAttributes() { return levelRampAttributes(); }

    static FilterGuide guide() {
        return {.title = "Black alpha with a slope",
                .sentence = "Makes dark parts of the picture transparent or black, along a slope.",
                .tags = {"key", "transparency", "black", "level"},
                .inputs = levelRampGuides(),
                .modes = {"dark becomes transparent", "dark becomes black"},
                .beginWith = {{"input1Amount", 0.5}, {"input2Amount", 0.7}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        const LevelRamp ramp(input1Amount, input2Amount);
        // The kernels compare with the sum of the three channels, which goes up to 3. Modes that
        // are none stay as they are.
        const float channels = inputMode.modeValue() < 0 ? 1.0f : 3.0f;
        return kernelForMode(kernels, inputMode)
            .applyWithExtent(source.extent(), RegionOfInterest::identity(),
                             {source, channels * ramp.high, channels * ramp.low});
    }

    CIImage inputImage;
    Number input1Amount, input2Amount, inputMode;
    VORN_FILTER(VEBlackAlpha2ctl, inputImage, input1Amount, input2Amount, inputMode)

private:
    static constexpr std::string_view kFunctions[] = {"VE_BlackAlpha2ctl_blackAlpha",
                                                      "VE_BlackAlpha2ctl_blackLevel"};
    inline static CIKernel kernels[std::size(kFunctions)];
};
VORN_REGISTER(VEBlackAlpha2ctl)
