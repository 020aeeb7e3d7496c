// Maximum: the larger of source and background for every component, alpha too, as premultiplied
// (the MAX equation of OpenGL 4.6, table 17.2).
#include "imaging/builtin/Blend.h"

class CIMaximumCompositing : public CIFilter {
public:
    static FilterGuide guide() {
        return {
            .title = "Maximum",
            .sentence = "Shows the larger of two pictures, channel by channel.",
            .tags = {"blend", "lighten"},
        };
    }

    CIImage outputImage() override {
        return blend(*this, "CI_maximum", inputImage, inputBackgroundImage);
    }

    CIImage inputImage, inputBackgroundImage;
    VORN_FILTER(CIMaximumCompositing, inputImage, inputBackgroundImage)
};
VORN_BUILTIN(CIMaximumCompositing)
