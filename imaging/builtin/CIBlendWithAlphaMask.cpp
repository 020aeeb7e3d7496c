// Shows the image where the alpha of a mask is 1, the background where it is 0, and the mean of the
// two by that alpha between.
#include "imaging/builtin/BlendWithMask.h"

class CIBlendWithAlphaMask : public CIFilter {
public:
    static FilterGuide guide() {
        return {
            .title = "Blend with alpha mask",
            .sentence = "Shows the picture where the alpha of a mask is high, else the background.",
            .tags = {"blend", "mask", "matte"},
        };
    }

    CIImage outputImage() override {
        return blendWithMask(*this, "CI_blendWithAlphaMask", inputImage, inputBackgroundImage,
                             inputMaskImage);
    }

    CIImage inputImage, inputBackgroundImage, inputMaskImage;
    VORN_FILTER(CIBlendWithAlphaMask, inputImage, inputBackgroundImage, inputMaskImage)
};
VORN_BUILTIN(CIBlendWithAlphaMask)
