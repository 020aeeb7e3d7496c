// Horizontal crop: keeps a horizontal band of the image, with a soft edge.
#include "core/FilterSupport.h"

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
            {source, inputMixer, fromOpen(inputSize), fromOpen(inputOffset), inputEdge});
    }

    CIImage inputImage;
    Number inputMixer, inputSize, inputOffset, inputEdge;
    VORN_FILTER(VEHorizCrop, inputImage, inputMixer, inputSize, inputOffset, inputEdge)

private:
    /// 0 gives 0.5, 1 gives 0, and -1 gives 1.
    static float fromOpen(const Number& value) {
        return static_cast<float>((1 - double(value.floatValue())) * 0.5);
    }

    inline static CIKernel kernel;
};
VORN_REGISTER(VEHorizCrop)
