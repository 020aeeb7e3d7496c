// Temperature and tint: the framework's white balance, set on five controls and mixed with the
// source.
#include "core/FilterSupport.h"

class VE_TempAndTint : public CIFilter {
public:
    VE_TempAndTint() {
        loadKernel<VE_TempAndTint>(kernel, "VE_TempAndTintFilterKernel", "VE_TempAndTint_mixer");
    }

    static Attributes customAttributes() {
        constexpr ScalarRange range{.sliderMax = 255, .standard = 80};
        return {constant("input1", range), constant("input2", range), constant("input3", range),
                constant("input4", range), constant("input5", range)};
    }

    static FilterGuide guide() {
        return {
            .title = "White balance",
            .sentence = "Balances white: what has one temperature and tint gets another.",
            .tags = {"white balance", "temperature", "tint", "warm", "cold"},
            .inputs = {{.key = "input1",
                        .label = "mix",
                        .purpose = "how much of the balanced picture is seen"},
                       {.key = "input2",
                        .label = "temperature from",
                        .purpose = "of the light in the picture, 2516 K to 10516 K; 6500 K at 127"},
                       {.key = "input3",
                        .label = "tint from",
                        .purpose = "of the light in the picture, magenta below 127, green above"},
                       {.key = "input4",
                        .label = "temperature to",
                        .purpose = "that it gets, warmer below that of the light, colder above"},
                       {.key = "input5",
                        .label = "tint to",
                        .purpose =
                            "that it gets, more magenta below that of the light, greener above"}},
            .beginWith = {{"input1", 255},
                          {"input2", 127},
                          {"input3", 127},
                          {"input4", 60},
                          {"input5", 127}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        CIFilter& balanced = chained(balance, "CITemperatureAndTint");
        balanced.setValueForKey(inputImage, "inputImage");
        balanced.setValueForKey(CIVector(temperature(input2), tint(input3)), "inputNeutral");
        balanced.setValueForKey(CIVector(temperature(input4), tint(input5)), "inputTargetNeutral");
        const CISampler corrected(balanced.outputImage());
        const auto mix = static_cast<float>(input1.floatValue() * 0.003921568627);
        return kernel.applyWithExtent(source.extent(), {source, corrected, mix});
    }

    CIImage inputImage;
    Number input1, input2, input3, input4, input5;
    VORN_FILTER(VE_TempAndTint, inputImage, input1, input2, input3, input4, input5)

private:
    /// In kelvin.
    static float temperature(const Number& control) {
        return static_cast<float>(control.floatValue() * 31.3725490196 + 2516);
    }
    /// 127 is next to none.
    static float tint(const Number& control) {
        return static_cast<float>((control.floatValue() * 0.003921568627 - 0.4980392157) * 200);
    }

    CIFilterRef balance;
    inline static CIColorKernel kernel;
};
VORN_REGISTER(VE_TempAndTint)
