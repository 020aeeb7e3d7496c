// Source-over: the input image over the background, on premultiplied colour:
//   out = source + (1 - alpha of the source) * background
// (W3C Compositing and Blending Level 1, section 9.1.4). Without one of the two, the other.
#include "imaging/builtin/Builtin.h"

class CISourceOverCompositing : public CIFilter {
public:
    static FilterGuide guide() {
        return {
            .title = "Source over",
            .sentence = "Lays the picture over the background.",
            .tags = {"blend", "composite"},
        };
    }

    CIImage outputImage() override {
        const CIImage image = inputImage.imageByCompositingOverImage(inputBackgroundImage);
        if (!inputImage || !inputBackgroundImage || !image) return image;
        return outputOf(*this, makeInPool<Node>(*image.node()));
    }

    CIImage inputImage, inputBackgroundImage;
    VORN_FILTER(CISourceOverCompositing, inputImage, inputBackgroundImage)
};
VORN_BUILTIN(CISourceOverCompositing)
