// RGB contrast: a contrast for red, green, blue and all of them, each set on 0 to 255; 127 is no
// change.
#include "core/FilterSupport.h"

class VE_RGB_Contrast : public CIFilter {
public:
    VE_RGB_Contrast() {
        loadKernel<VE_RGB_Contrast>(kernel, "VE_RGB_ContrastFilterKernel",
                                    "VE_RGB_Contrast_rgbContrast");
    }

    static Attributes customAttributes() {
        constexpr ScalarRange range{.sliderMax = 255, .standard = 127};
        return {constant("input1", range), constant("input2", range), constant("input3", range),
                constant("input4", range)};
    }

    static FilterGuide guide() {
        return {
            .title = "RGB contrast",
            .sentence =
                "Raises or lowers the contrast of red, green and blue, one by one and together.",
            .tags = {"contrast", "levels", "colour balance"},
            .inputs = {{.key = "input1",
                        .label = "red",
                        .purpose = "contrast of red, no change at 127"},
                       {.key = "input2",
                        .label = "green",
                        .purpose = "contrast of green, no change at 127"},
                       {.key = "input3",
                        .label = "blue",
                        .purpose = "contrast of blue, no change at 127"},
                       {.key = "input4",
                        .label = "all",
                        .purpose = "contrast of all three, no change at 127"}},
            .beginWith = {{"input4", 200}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        return kernel.applyWithExtent(source.extent(), {source, contrast(input1), contrast(input2),
                                                        contrast(input3), contrast(input4)});
    }

    CIImage inputImage;
    Number input1, input2, input3, input4;
    VORN_FILTER(VE_RGB_Contrast, inputImage, input1, input2, input3, input4)

private:
    /// 127 gives 1; the lower half is flattened, so that 0 gives 0.3.
    static float contrast(const Number& control) {
        const float ratio = control.floatValue() / 127.0f;
        return ratio < 1 ? static_cast<float>(ratio * 0.7 + 0.3) : ratio;
    }

    inline static CIColorKernel kernel;
};
VORN_REGISTER(VE_RGB_Contrast)
