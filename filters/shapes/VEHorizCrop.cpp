// Horizontal crop: keeps a horizontal band of the image, with a soft edge.
#include "filters/shapes/SoftShape.h"

class VEHorizCrop : public CIFilter {
public:
    VEHorizCrop() {
        loadKernel<VEHorizCrop>(kernel, "VE_HorizCropFilterKernel", "VE_HorizCrop_cropHoriz");
    }

    static Attributes customAttributes() {
        return {mixer(), scalar("inputSize", "size", {}),
                scalar("inputOffset", "offset", {.min = -1, .sliderMin = -1}),
                scalar("inputEdge", "edge", {})};
    }

    static FilterGuide guide() {
        return {.title = "Horizontal band",
                .sentence = "Keeps a horizontal band of the picture, with a soft edge.",
                .tags = {"crop", "band", "letterbox", "mask"},
                .inputs = {{.key = "inputSize", .purpose = "how narrow the band is; nothing at 1"},
                           {.key = "inputOffset", .purpose = "how far the band is moved up"},
                           {.key = "inputEdge", .purpose = "how far the edge is softened"}},
                .beginWith = {{"inputSize", 0.4}, {"inputOffset", 0.15}, {"inputEdge", 0.2}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        return kernel.applyWithExtent(
            source.extent(), RegionOfInterest::identity(),
            {source, inputMixer, radiusOf(inputSize), radiusOf(inputOffset), inputEdge});
    }

    CIImage inputImage;
    Number inputMixer, inputSize, inputOffset, inputEdge;
    VORN_FILTER(VEHorizCrop, inputImage, inputMixer, inputSize, inputOffset, inputEdge)

private:
    inline static CIKernel kernel;
};
VORN_REGISTER(VEHorizCrop)
