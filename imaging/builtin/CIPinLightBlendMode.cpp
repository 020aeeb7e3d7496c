// Pin light: darkens to twice a dark source and lightens to twice a light one less 1, composited
// source-over (PINLIGHT of OpenGL's extension NV_blend_equation_advanced).
#include "imaging/builtin/Blend.h"

class CIPinLightBlendMode : public CIFilter {
public:
    static FilterGuide guide() {
        return {
            .title = "Pin light",
            .sentence = "Replaces dark and light parts of the background by those of the picture.",
            .tags = {"blend", "light"},
        };
    }

    CIImage outputImage() override {
        return blend(*this, "CI_pinLight", inputImage, inputBackgroundImage);
    }

    CIImage inputImage, inputBackgroundImage;
    VORN_FILTER(CIPinLightBlendMode, inputImage, inputBackgroundImage)
};
VORN_BUILTIN(CIPinLightBlendMode)
