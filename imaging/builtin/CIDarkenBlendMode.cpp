// Darken: the darker of source and background, channel by channel, composited source-over (W3C
// Compositing and Blending Level 1, section 10.1.4).
#include "imaging/builtin/Blend.h"

class CIDarkenBlendMode : public CIFilter {
public:
    static FilterGuide guide() {
        return {
            .title = "Darken",
            .sentence = "Shows the darker of two pictures, channel by channel.",
            .tags = {"blend", "darken"},
        };
    }

    CIImage outputImage() override {
        return blend(*this, "CI_darken", inputImage, inputBackgroundImage);
    }

    CIImage inputImage, inputBackgroundImage;
    VORN_FILTER(CIDarkenBlendMode, inputImage, inputBackgroundImage)
};
VORN_BUILTIN(CIDarkenBlendMode)
