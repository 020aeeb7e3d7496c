// Radial gradient: a colour that fades out around the middle of the frame, without end.
#include "core/FilterSupport.h"

class VE_RadialGradient : public CIFilter {
public:
    static Attributes customAttributes() {
        constexpr ScalarRange radius{.min = 1, .sliderMin = 1, .sliderMax = 800, .standard = 400};
        return {scalar("input_X", "X", {}),
                scalar("input_Y", "Y", {}),
                scalar("inputRadius_1", "radius 1", radius),
                scalar("inputRadius_2", "radius 2", radius),
                scalar("inputRed", "red", {}),
                scalar("inputGreen", "green", {.min = 0.01}),
                scalar("inputBlue", "blue", {})};
    }

    static FilterGuide guide() {
        return {
            .title = "Radial gradient",
            .sentence = "A disc of a colour that fades to nothing around the middle.",
            .tags = {"gradient", "circle", "spot", "background"},
            .inputs = {{.key = "inputImage", .purpose = "gives the size; its pixels are not read"},
                       {.key = "input_X", .isDead = true},
                       {.key = "input_Y", .isDead = true},
                       {.key = "inputRadius_1",
                        .purpose = "up to where the colour is full; beyond the other one it "
                                   "is what lies outside",
                        .unit = "pixels"},
                       {.key = "inputRadius_2",
                        .purpose = "from where on nothing is left",
                        .unit = "pixels"}},
            .beginWith = {{"inputRadius_1", 60},
                          {"inputRadius_2", 500},
                          {"inputRed", 1},
                          {"inputGreen", 0.55},
                          {"inputBlue", 0.2}}};
    }

    CIImage outputImage() override {
        // The middle of a frame at the origin, wherever this one lies.
        const CGRect extent = inputImage.extent();
        CIFilter& radial = chained(gradient, "CIRadialGradient");
        radial.setValueForKey(CIVector(static_cast<float>(extent.width * 0.5),
                                       static_cast<float>(extent.height * 0.5)),
                              "inputCenter");
        radial.setValueForKey(inputRadius_1, "inputRadius0");
        radial.setValueForKey(inputRadius_2, "inputRadius1");
        radial.setValueForKey(
            CIColor(inputRed.doubleValue(), inputGreen.doubleValue(), inputBlue.doubleValue(), 1.0),
            "inputColor0");
        radial.setValueForKey(CIColor(0, 0, 0, 0), "inputColor1");
        return radial.outputImage();
    }

    CIImage inputImage;
    Number input_X, input_Y, inputRadius_1, inputRadius_2, inputRed, inputGreen, inputBlue;
    VORN_FILTER(VE_RadialGradient, inputImage, input_X, input_Y, inputRadius_1, inputRadius_2,
                inputRed, inputGreen, inputBlue)

private:
    CIFilterRef gradient;
};
VORN_REGISTER(VE_RadialGradient)
