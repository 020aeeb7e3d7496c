// Hue, saturation and value: three controls on 0 to 1 that rest at 127/255.
#include "filters/color/HueAndControls.h"

class VEHueSaturationValue : public CIFilter {
public:
    static Attributes customAttributes() {
        constexpr ScalarRange range{.standard = 0.5};
        return {scalar("inputHue", "hue", range), scalar("inputSaturation", "saturation", range),
                scalar("inputValue", "value", range)};
    }

    static FilterGuide guide() {
        return {.title = "Hue, saturation and value",
                .sentence = "Turns the hues around the colour circle, makes colours paler or "
                            "stronger and the picture darker or brighter.",
                .tags = {"hue", "saturation", "brightness", "colour"},
                .inputs = {{.key = "inputHue",
                            .purpose = "half a turn of the colour circle each way; at rest in the "
                                       "middle"},
                           {.key = "inputSaturation",
                            .purpose = "from grey to twice the colour; at rest in the middle"},
                           {.key = "inputValue",
                            .purpose = "from black to white; at rest in the middle"}},
                .beginWith = {{"inputHue", 0.85}, {"inputSaturation", 0.65}, {"inputValue", 0.53}}};
    }

    CIImage outputImage() override {
        return adjusted.of(inputImage, fromRest(inputHue, 6.3079222570569575),
                           fromRest(inputSaturation, 2.0078740157, 1),
                           fromRest(inputValue, 2.0078740157));
    }

    CIImage inputImage;
    Number inputHue, inputSaturation, inputValue;
    VORN_FILTER(VEHueSaturationValue, inputImage, inputHue, inputSaturation, inputValue)

private:
    static float fromRest(const Number& control, double scale, double atRest = 0) {
        return static_cast<float>((control.floatValue() - 0.4980392157) * scale + atRest);
    }

    HueAndControls adjusted;
};
VORN_REGISTER(VEHueSaturationValue)
