// RGB gamma: a gamma for red, green, blue and all of them, each set on 0 to 255; 80 is close to no
// change.
#include "core/FilterSupport.h"

class VE_RGB_Gamma : public CIFilter {
public:
    VE_RGB_Gamma() {
        loadKernel<VE_RGB_Gamma>(kernel, "VE_RGB_GammaFilterKernel", "VE_RGB_Gamma_rgbGamma");
    }

    static Attributes customAttributes() {
        constexpr ScalarRange range{.sliderMax = 255, .standard = 80};
        return {constant("input1", range), constant("input2", range), constant("input3", range),
                constant("input4", range)};
    }

    static FilterGuide guide() {
        return {
            .title = "RGB gamma",
            .sentence = "Brightens or darkens the middle tones of red, green and blue, one by one "
                        "and together.",
            .tags = {"gamma", "levels", "colour balance"},
            .inputs =
                {{.key = "input1", .label = "red", .purpose = "brighter above 80, darker below"},
                 {.key = "input2", .label = "green", .purpose = "brighter above 80, darker below"},
                 {.key = "input3", .label = "blue", .purpose = "brighter above 80, darker below"},
                 {.key = "input4", .label = "all", .purpose = "brighter above 80, darker below"}},
            .beginWith = {{"input1", 120}, {"input3", 50}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        return kernel.applyWithExtent(
            source.extent(), {source, gamma(input1), gamma(input2), gamma(input3), gamma(input4)});
    }

    CIImage inputImage;
    Number input1, input2, input3, input4;
    VORN_FILTER(VE_RGB_Gamma, inputImage, input1, input2, input3, input4)

private:
    /// 1 gives 0.1 and 255 gives 2.99; the line goes on below 1.
    static float gamma(const Number& control) {
        return static_cast<float>((control.floatValue() - 1.0f) * 0.01137254902 + 0.1);
    }

    inline static CIColorKernel kernel;
};
VORN_REGISTER(VE_RGB_Gamma)
