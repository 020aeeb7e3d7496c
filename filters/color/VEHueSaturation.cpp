// Hue and saturation: turns the hues by an angle in radians and scales the colour.
#include "filters/color/HueAndControls.h"

class VEHueSaturation : public CIFilter {
public:
    static Attributes customAttributes() {
        return {scalar("inputSaturation", "saturation", {.sliderMax = 2, .standard = 1}),
                // One turn and a half, unevenly about 0.
                scalar("inputHue", "hue", {.min = -3.14, .sliderMin = -3.14, .sliderMax = 6.28})};
    }

    static FilterGuide guide() {
        return {.title = "Hue and saturation",
                .sentence = "Turns the hues around the colour circle and makes colours paler or "
                            "stronger.",
                .tags = {"hue", "saturation", "colour"},
                .inputs = {{.key = "inputSaturation", .purpose = "0 is grey, 1 the picture's own"},
                           {.key = "inputHue",
                            .purpose = "how far hues turn, from red through yellow where it is "
                                       "positive",
                            .unit = "radians"}},
                .beginWith = {{"inputSaturation", 1.4}, {"inputHue", 2.1}}};
    }

    CIImage outputImage() override {
        return adjusted.of(inputImage, inputHue, inputSaturation, 0.0);
    }

    CIImage inputImage;
    Number inputSaturation, inputHue;
    VORN_FILTER(VEHueSaturation, inputImage, inputSaturation, inputHue)

private:
    HueAndControls adjusted;
};
VORN_REGISTER(VEHueSaturation)
