// Drop shadow: a shadow of the image's alpha under it, at an offset.
#include "filters/shapes/Shadows.h"

class VEDropShadow : public CIFilter {
public:
    VEDropShadow() {
        loadKernel<VEDropShadow>(kernel, "VE_DropShadowFilterKernel", "VE_DropShadow_dropShadow");
    }

    static Attributes customAttributes() {
        constexpr ScalarRange pixels{.min = -40, .sliderMin = -40, .sliderMax = 40};
        // The labels of the level and the blur are hosts' old ones, and kept.
        return {scalar("inputLevel", "size", {}), scalar("inputBlur", "edge", {.sliderMax = 5}),
                scalar("inputXPosition", "X Position", pixels),
                scalar("inputYPosition", "Y Position", pixels)};
    }

    static FilterGuide guide() {
        return {
            .title = "Drop shadow",
            .sentence = "Lays a soft black shadow under a picture that is transparent in "
                        "places; under an opaque one there is nothing to see.",
            .tags = {"shadow", "depth", "transparency", "title"},
            .inputs = {{.key = "inputLevel", .purpose = "how dark the shadow is; none at 0"},
                       {.key = "inputBlur", .purpose = "how soft the shadow is"},
                       {.key = "inputXPosition",
                        .purpose = "how many pixels the shadow lies to the right"},
                       {.key = "inputYPosition",
                        .purpose = "how many pixels it lies higher; below the picture under 0"}},
            .needsTransparency = true,
            .beginWith = {{"inputLevel", 0.7},
                          {"inputBlur", 2.5},
                          {"inputXPosition", 12},
                          {"inputYPosition", -12}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        const CIVector offset(inputXPosition.floatValue(), inputYPosition.floatValue());
        const float blur = inputBlur.floatValue();
        return softShadow(kernel.applyWithExtent(source.extent(), shadowReads(),
                                                 {source, offset, inputLevel.floatValue(), blur}),
                          2.0 * double(blur), inputLevel);
    }

    CIImage inputImage;
    Number inputLevel, inputBlur, inputXPosition, inputYPosition;
    VORN_FILTER(VEDropShadow, inputImage, inputLevel, inputBlur, inputXPosition, inputYPosition)

private:
    inline static CIKernel kernel;
};
VORN_REGISTER(VEDropShadow)
