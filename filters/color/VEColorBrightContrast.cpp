// Colour, brightness and contrast: a gain per channel, brightness and contrast, each set on 0 to
// 255; 127 is no change. A gain above 1 also adds a boost that grows with its square.
#include "core/FilterSupport.h"

class VEColorBrightContrast : public CIFilter {
public:
    VEColorBrightContrast() {
        loadKernel<VEColorBrightContrast>(kernel, "VE_ColorBrightContrastFilterKernel",
                                          "VE_ColorBrightContrast_colorBrightContrast");
    }

    static Attributes customAttributes() {
        constexpr ScalarRange range{.sliderMax = 255, .standard = 127};
        // Kept for hosts that know this key: it differs by one letter from the "inputBrightness"
        // that the filter reads, so that setting it changes nothing.
        return {scalar("inputBrighness", "brightness", range),
                scalar("inputContrast", "contrast", range), scalar("inputRed", "red", range),
                scalar("inputGreen", "green", range), scalar("inputBlue", "blue", range)};
    }

    static FilterGuide guide() {
        return {
            .title = "Colour, brightness and contrast",
            .sentence =
                "Sets the strength of red, green and blue, the brightness and the contrast.",
            .tags = {"brightness", "contrast", "colour balance", "gain"},
            .inputs = {{.key = "inputBrightness",
                        .purpose = "dark at 0, where it is until it is set; no change at 127",
                        .from = 0,
                        .to = 255,
                        .start = 127.0},
                       {.key = "inputBrighness",
                        .purpose =
                            "for hosts that know this key; inputBrightness is the one that is read",
                        .isDead = true},
                       {.key = "inputContrast", .purpose = "grey at 0, no change at 127"},
                       {.key = "inputRed", .purpose = "strength of red, no change at 127"},
                       {.key = "inputGreen", .purpose = "strength of green, no change at 127"},
                       {.key = "inputBlue", .purpose = "strength of blue, no change at 127"}},
            .beginWith = {{"inputBrightness", 127}, {"inputContrast", 150}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        const float red = ratio(inputRed), green = ratio(inputGreen), blue = ratio(inputBlue);
        const float brightness =
            static_cast<float>((inputBrightness.floatValue() - 127.0f) * kPerStep);
        return kernel.applyWithExtent(source.extent(),
                                      {source, CIVector(red, green, blue),
                                       CIVector(boost(red), boost(green), boost(blue)), brightness,
                                       ratio(inputContrast)});
    }

    CIImage inputImage;
    Number inputBrightness, inputContrast, inputRed, inputGreen, inputBlue;
    VORN_FILTER(VEColorBrightContrast, inputImage, inputBrightness, inputContrast, inputRed,
                inputGreen, inputBlue)

private:
    static constexpr double kPerStep = 0.007874015748031496; // 1 / 127

    /// 127 gives 1.
    static float ratio(const Number& control) {
        return static_cast<float>(control.floatValue() * kPerStep);
    }
    static float boost(float gain) {
        const double excess = gain - 1.0;
        return excess > 0 ? static_cast<float>(0.5 * (excess * excess)) : 0.0f;
    }

    inline static CIColorKernel kernel;
};
VORN_REGISTER(VEColorBrightContrast)
