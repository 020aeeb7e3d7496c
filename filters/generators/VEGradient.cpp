// Gradient: a colour that fades out from one place across the frame to another, without end.
#include "core/FilterSupport.h"

class VEGradient : public CIFilter {
public:
    static Attributes customAttributes() {
        return {scalar("input_X1", "X1", {}),   scalar("input_Y1", "Y1", {}),
                scalar("input_X2", "X2", {}),   scalar("input_Y2", "Y2", {}),
                scalar("inputRed", "red", {}),  scalar("inputGreen", "green", {.min = 0.01}),
                scalar("inputBlue", "blue", {})};
    }

    static FilterGuide guide() {
        return {
            .title = "Gradient",
            .sentence = "A colour that fades to nothing from one side of the frame to the other.",
            .tags = {"gradient", "ramp", "fade", "background"},
            .inputs = {{.key = "inputImage", .purpose = "gives the width; its pixels are not read"},
                       {.key = "input_X1", .purpose = "where the colour begins to fade"},
                       {.key = "input_Y1", .isDead = true},
                       {.key = "input_X2", .purpose = "from where on nothing is left"},
                       {.key = "input_Y2", .isDead = true}},
            .beginWith = {
                {"input_X2", 1}, {"inputRed", 0.1}, {"inputGreen", 0.5}, {"inputBlue", 1}}};
    }

    CIImage outputImage() override {
        // Both points lie on y = 0: the gradient always runs across.
        const double width = inputImage.extent().width;
        CIFilter& linear = chained(gradient, "CISmoothLinearGradient");
        linear.setValueForKey(CIVector(input_X1.doubleValue() * width, 0), "inputPoint0");
        linear.setValueForKey(CIVector(input_X2.doubleValue() * width, 0), "inputPoint1");
        linear.setValueForKey(
            CIColor(inputRed.doubleValue(), inputGreen.doubleValue(), inputBlue.doubleValue(), 1.0),
            "inputColor0");
        linear.setValueForKey(CIColor(0, 0, 0, 0), "inputColor1");
        return linear.outputImage();
    }

    CIImage inputImage;
    Number input_X1, input_Y1, input_X2, input_Y2, inputRed, inputGreen, inputBlue;
    VORN_FILTER(VEGradient, inputImage, input_X1, input_Y1, input_X2, input_Y2, inputRed,
                inputGreen, inputBlue)

private:
    CIFilterRef gradient;
};
VORN_REGISTER(VEGradient)
