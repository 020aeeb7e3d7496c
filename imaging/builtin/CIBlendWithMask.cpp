// Shows the image where the brightness of a mask is 1, the background where it is 0, and the mean
// of the two by that brightness between.
#include "imaging/builtin/BlendWithMask.h"

class CIBlendWithMask : public CIFilter {
public:
    static FilterGuide guide() {
        return {
            .title = "Blend with mask",
            .sentence =
                "Shows the picture where the brightness of a mask is high, else the background.",
            .tags = {"blend", "mask", "matte"},
        };
    }

    CIImage outputImage() override {
        return blendWithMask(*this, "CI_blendWithMask", inputImage, inputBackgroundImage,
                             inputMaskImage);
    }

    CIImage inputImage, inputBackgroundImage, inputMaskImage;
    VORN_FILTER(CIBlendWithMask, inputImage, inputBackgroundImage, inputMaskImage)
};
VORN_BUILTIN(CIBlendWithMask)
