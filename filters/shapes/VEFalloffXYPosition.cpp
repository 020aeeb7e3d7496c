// Falloff at a position: keeps a rectangle about the middle of the image or about a point, or what
// lies outside of it, with a soft edge and, in two of the modes, an aspect of its own.
#include "filters/shapes/SoftShape.h"

class VEFalloffXYPosition : public CIFilter {
public:
    VEFalloffXYPosition() {
        loadKernels<VEFalloffXYPosition>(kernels, "VE_FalloffXYPositionFilterKernel", kFunctions);
    }

    static Attributes customAttributes() { return positionedShapeAttributes(); }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        const int selector = shapeSelector(inputMode, inputIsXY);
        const float aspect = takesAspectAsSet(selector) ? inputAspect.floatValue() : 1.0f;
        const CIVector center = isPositionedShape(selector)
                                    ? CIVector(placeOf(inputXPosition), placeOf(inputYPosition))
                                    : CIVector(0.5, 0.5);
        return kernels[isReverseShape(selector)].applyWithExtent(
            source.extent(), RegionOfInterest::identity(),
            {source, inputMixer, aspect, radiusOf(inputSize), softnessOf(inputEdge), center});
    }

    CIImage inputImage;
    Number inputMode, inputMixer, inputSize, inputEdge, inputXPosition, inputYPosition, inputAspect,
        inputIsXY;
    VORN_FILTER(VEFalloffXYPosition, inputImage, inputMode, inputMixer, inputSize, inputEdge,
                inputXPosition, inputYPosition, inputAspect, inputIsXY)

private:
    static constexpr std::string_view kFunctions[] = {"VE_FalloffXYPosition_cropRectXY",
                                                      "VE_FalloffXYPosition_cropRectXYReverse"};
    inline static CIKernel kernels[std::size(kFunctions)];
};
VORN_REGISTER(VEFalloffXYPosition)
