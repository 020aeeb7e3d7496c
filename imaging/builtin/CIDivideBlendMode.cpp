// Divide: the background divided by the source, at most 1, composited source-over. A background of
// 0 stays 0 whatever divides it. The quotient is that of the GIMP manual's "divide" mode.
#include "imaging/builtin/Blend.h"

class CIDivideBlendMode : public CIFilter {
public:
    static FilterGuide guide() {
        return {
            .title = "Divide",
            .sentence = "Divides the background by the picture.",
            .tags = {"blend", "divide"},
        };
    }

    CIImage outputImage() override {
        return blend(*this, "CI_divide", inputImage, inputBackgroundImage);
    }

    CIImage inputImage, inputBackgroundImage;
    VORN_FILTER(CIDivideBlendMode, inputImage, inputBackgroundImage)
};
VORN_BUILTIN(CIDivideBlendMode)
