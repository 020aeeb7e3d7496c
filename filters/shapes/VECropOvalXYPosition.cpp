// Crop oval at a position: keeps an oval about a point, or what lies outside of it, with a soft
// edge.
#include "filters/shapes/SoftShape.h"

class VECropOvalXYPosition : public CIFilter {
public:
    VECropOvalXYPosition() {
        loadKernels<VECropOvalXYPosition>(kernels, "VE_CropOvalXYPositionFilterKernel", kFunctions);
    }

    static Attributes customAttributes() {
        constexpr ScalarRange place{
            .min = -0.5, .sliderMin = -0.5, .sliderMax = 1.5, .standard = 0.5};
        return {scalar("inputSize", "size", {.min = -1, .sliderMin = -1}),
                scalar("inputEdge", "edge", {}),
                scalar("inputAspect", "aspect", {.sliderMax = 10, .standard = 1.778}),
                scalar("inputXPosition", "X Position", place),
                scalar("inputYPosition", "Y Position", place),
                scalar("inputMode", "mode", {})};
    }

    static FilterGuide guide() {
        return {
            .title = "Soft oval at a place",
            .sentence =
                "Keeps an oval anywhere in the picture, or what lies around it, with a soft edge.",
            .tags = {"crop", "oval", "circle", "vignette", "mask", "spot"},
            .inputs = positionedShapeGuides(),
            .modes = {"oval", "all but the oval"},
            .beginWith = {{"inputAspect", 1}, {"inputEdge", 0.3}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        const float aspect = inputAspect.floatValue();
        // Unlike the other positioned crops, without the step added to the position.
        const CIVector center(inputXPosition.floatValue() * aspect, inputYPosition.floatValue());
        // Every mode but 0 is the reverse oval, one that reads as negative too.
        return kernels[inputMode.modeValue() != 0].applyWithExtent(
            source.extent(), RegionOfInterest::identity(),
            {source, center, aspect, radiusOf(inputSize), softnessOf(inputEdge)});
    }

    CIImage inputImage;
    Number inputSize, inputEdge, inputAspect, inputXPosition, inputYPosition, inputMode;
    VORN_FILTER(VECropOvalXYPosition, inputImage, inputSize, inputEdge, inputAspect, inputXPosition,
                inputYPosition, inputMode)

private:
    static constexpr std::string_view kFunctions[] = {"VE_CropOvalXYPosition_cropOvalXY",
                                                      "VE_CropOvalXYPosition_cropOvalXYReverse"};
    inline static CIKernel kernels[std::size(kFunctions)];
};
VORN_REGISTER(VECropOvalXYPosition)
