// Vertical crop: keeps a vertical band of the image, with a soft edge.
#include "filters/shapes/SoftShape.h"

class VEVertCrop : public CIFilter {
public:
    VEVertCrop() {
        loadKernel<VEVertCrop>(kernel, "VE_VertCropFilterKernel", "VE_VertCrop_cropVert");
    }

    static Attributes customAttributes() {
        return {mixer(), scalar("inputSize", "size", {}),
                scalar("inputOffset", "offset", {.min = -1, .sliderMin = -1}),
                scalar("inputEdge", "edge", {})};
    }

    static FilterGuide guide() {
        return {
            .title = "Vertical band",
            .sentence = "Keeps a vertical band of the picture, with a soft edge.",
            .tags = {"crop", "band", "pillarbox", "mask"},
            .inputs = {{.key = "inputSize", .purpose = "how narrow the band is; nothing at 1"},
                       {.key = "inputOffset", .purpose = "how far the band is moved to the right"},
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
    VORN_FILTER(VEVertCrop, inputImage, inputMixer, inputSize, inputOffset, inputEdge)

private:
    inline static CIKernel kernel;
};
VORN_REGISTER(VEVertCrop)
