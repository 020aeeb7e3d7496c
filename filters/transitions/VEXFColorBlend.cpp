// Colour blend: fades the outgoing image into a colour and the incoming one out of it.
#include "filters/shared/Transition.h"

class VEXFColorBlend : public CIFilter {
public:
    VEXFColorBlend() {
        loadKernel<VEXFColorBlend>(kernel, "VEXFColorBlendFilterKernel",
                                   "VEXFColorBlend_colorBlend");
    }

    static Attributes customAttributes() {
        return {scalar("inputFadeStatus", "Time", {}),
                {"inputColor",
                 {{kCIAttributeDefault, CIColor(1, 1, 1, 1)}, {kCIAttributeDisplayName, "Color"}}}};
    }

    static FilterGuide guide() {
        return {
            .title = "Fade through a colour",
            .sentence = "Fades the outgoing picture into a colour and the incoming one out of it.",
            .tags = {"fade", "dip", "colour"},
            .inputs = transitionGuides({{.key = "inputColor", .purpose = "what is seen halfway"}}),
            .beginWith = {{"inputFadeStatus", 0.25}}};
    }

    CIImage outputImage() override {
        const double time = inputFadeStatus.floatValue();
        const CISampler image(time <= 0.5 ? inputImage : inputTargetImage);
        const double amount = time <= 0.5 ? 2 * (0.5 - time) : 2 * (time - 0.5);
        return kernel.applyWithExtent(
            image.extent(), RegionOfInterest::identity(),
            {image,
             CIVector(inputColor.red(), inputColor.green(), inputColor.blue(), inputColor.alpha()),
             static_cast<float>(amount)});
    }

    CIImage inputImage, inputTargetImage;
    Number inputFadeStatus;
    CIColor inputColor;
    VORN_FILTER(VEXFColorBlend, inputImage, inputTargetImage, inputFadeStatus, inputColor)

private:
    inline static CIKernel kernel;
};
VORN_REGISTER(VEXFColorBlend)
