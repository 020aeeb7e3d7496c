// Affine transform: the image moved, turned, scaled or sheared, read with bilinear interpolation.
// Transforms of transforms are one resampling, and the identity is the image itself.
#include "imaging/builtin/Builtin.h"

class CIAffineTransform : public CIFilter {
public:
    static FilterGuide guide() {
        return {
            .title = "Affine transform",
            .sentence = "Moves, turns, scales or shears the picture.",
            .tags = {"transform", "rotate", "scale"},
        };
    }

    CIImage outputImage() override {
        if (!inputImage) return {};
        const CIImage image = inputImage.imageByApplyingTransform(inputTransform);
        return image ? image : refuse(*this, "the transform is not finite or has no inverse");
    }

    CIImage inputImage;
    CGAffineTransform inputTransform;
    VORN_FILTER(CIAffineTransform, inputImage, inputTransform)
};
VORN_BUILTIN(CIAffineTransform)
