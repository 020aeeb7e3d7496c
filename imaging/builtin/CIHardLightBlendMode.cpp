// Hard light: multiplies where the source is dark and screens where it is light, composited
// source-over (W3C Compositing and Blending Level 1, section 10.1.8).
#include "imaging/builtin/Blend.h"

class CIHardLightBlendMode : public CIFilter {
public:
    static FilterGuide guide() {
        return {
            .title = "Hard light",
            .sentence = "Darkens or lightens the background by the picture, as a hard light does.",
            .tags = {"blend", "light"},
        };
    }

    CIImage outputImage() override {
        return blend(*this, "CI_hardLight", inputImage, inputBackgroundImage);
    }

    CIImage inputImage, inputBackgroundImage;
    VORN_FILTER(CIHardLightBlendMode, inputImage, inputBackgroundImage)
};
VORN_BUILTIN(CIHardLightBlendMode)
