// Falloff at a position: keeps a rectangle about the middle of the image or about a point, or what
// lies outside of it, with a soft edge and, in two of the modes, an aspect of its own.
#include "filters/shapes/SoftShape.h"

class VEFalloffXYPosition : public CIFilter {
public:
    VEFalloffXYPosition() {
        loadKernels<VEFalloffXYPosition>(kernels, "VE_FalloffXYPositionFilterKernel", kFunctions);
    }

    static Attributes customAttributes() { return positionedShapeAttributes(); }

    static FilterGuide guide() {
        return {.title = "Soft rectangle at a place",
                .sentence = "Keeps a rectangle anywhere in the picture, or what lies around it, "
                            "with soft edges.",
                .tags = {"crop", "rectangle", "vignette", "mask", "spot"},
                .inputs = positionedShapeGuides(
                    {{.key = "inputIsXY",
                      .label = "any place",
                      .purpose = "1: the modes past the second one can be chosen"}}),
                .modes = {"rectangle in the middle", "all but a rectangle in the middle",
                          "rectangle at the place", "all but a rectangle at the place",
                          "rectangle at the place, with an aspect",
                          "all but a rectangle at the place, with an aspect"},
                .beginWith = positionedShapeSettings()};
    }

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
