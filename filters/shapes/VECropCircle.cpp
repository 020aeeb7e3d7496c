// Crop circle: keeps a circle about the middle of the image, with a soft edge.
#include "filters/shapes/SoftShape.h"

class VECropCircle : public CIFilter {
public:
    VECropCircle() {
        loadKernel<VECropCircle>(kernel, "VE_CropCircleFilterKernel", "VE_CropCircle_cropCircle");
    }

    static Attributes customAttributes() {
        return {mixer(), scalar("inputSize", "size", {}), scalar("inputEdge", "edge", {})};
    }

    static FilterGuide guide() {
        return {.title = "Soft circle",
                .sentence = "Keeps a circle in the middle of the picture, with a soft edge.",
                .tags = {"crop", "circle", "vignette", "mask"},
                .inputs = softShapeGuides(),
                .beginWith = {{"inputSize", 0.2}, {"inputEdge", 0.5}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        const float aspect = aspectOf(inputImage);
        return kernel.applyWithExtent(source.extent(), RegionOfInterest::identity(),
                                      {source, inputMixer,
                                       CIVector(static_cast<float>(0.5 * aspect), 0.5), aspect,
                                       radiusOf(inputSize), softnessOf(inputEdge)});
    }

    CIImage inputImage;
    Number inputMixer, inputSize, inputEdge;
    VORN_FILTER(VECropCircle, inputImage, inputMixer, inputSize, inputEdge)

private:
    inline static CIKernel kernel;
};
VORN_REGISTER(VECropCircle)
