// Falloff: keeps a rectangle about the middle of the image, with a soft edge.
#include "filters/shapes/SoftShape.h"

class VEFalloff : public CIFilter {
public:
    VEFalloff() { loadKernel<VEFalloff>(kernel, "VE_FalloffFilterKernel", "VE_Falloff_cropRect"); }

    static Attributes customAttributes() {
        return {mixer(), scalar("inputSize", "size", {}), scalar("inputEdge", "edge", {})};
    }

    static FilterGuide guide() {
        return {.title = "Soft rectangle",
                .sentence = "Keeps a rectangle in the middle of the picture, with soft edges.",
                .tags = {"crop", "rectangle", "vignette", "mask", "border"},
                .inputs = softShapeGuides(),
                .beginWith = {{"inputSize", 0.1}, {"inputEdge", 0.6}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        return kernel.applyWithExtent(
            source.extent(), RegionOfInterest::identity(),
            {source, inputMixer, radiusOf(inputSize), softnessOf(inputEdge)});
    }

    CIImage inputImage;
    Number inputMixer, inputSize, inputEdge;
    VORN_FILTER(VEFalloff, inputImage, inputMixer, inputSize, inputEdge)

private:
    inline static CIKernel kernel;
};
VORN_REGISTER(VEFalloff)
