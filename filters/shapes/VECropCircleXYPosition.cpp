// Crop circle at a position: keeps a circle about the middle of the image or about a point, or what
// lies outside of it, with a soft edge and, in two of the modes, an aspect of its own.
#include "filters/shapes/SoftShape.h"

class VECropCircleXYPosition : public CIFilter {
public:
    VECropCircleXYPosition() {
        loadKernels<VECropCircleXYPosition>(kernels, "VE_CropCircleXYPositionFilterKernel",
                                            kFunctions);
    }

    static Attributes customAttributes() { return positionedShapeAttributes(); }

    static FilterGuide guide() {
        return {.title = "Soft circle at a place",
                .sentence = "Keeps a circle or an oval anywhere in the picture, or what lies "
                            "around it, with a soft edge.",
                .tags = {"crop", "circle", "oval", "vignette", "mask", "spot"},
                .inputs = positionedShapeGuides(
                    {{.key = "inputIsXY",
                      .label = "any place",
                      .purpose = "1: the modes past the second one can be chosen"}}),
                .modes = {"circle in the middle", "all but a circle in the middle",
                          "circle at the place", "all but a circle at the place",
                          "oval at the place", "all but an oval at the place"},
                .beginWith = positionedShapeSettings()};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        const int selector = shapeSelector(inputMode, inputIsXY);
        const float aspect =
            takesAspectAsSet(selector) ? inputAspect.floatValue() : aspectOf(inputImage);
        return kernels[isReverseShape(selector)].applyWithExtent(
            source.extent(), RegionOfInterest::identity(),
            {source, inputMixer, center(selector, aspect), aspect, radiusOf(inputSize),
             softnessOf(inputEdge)});
    }

    CIImage inputImage;
    Number inputMode, inputMixer, inputSize, inputEdge, inputXPosition, inputYPosition, inputAspect,
        inputIsXY;
    VORN_FILTER(VECropCircleXYPosition, inputImage, inputMode, inputMixer, inputSize, inputEdge,
                inputXPosition, inputYPosition, inputAspect, inputIsXY)

private:
    CIVector center(int selector, float aspect) const {
        if (isPositionedShape(selector))
            return CIVector(aspect * placeOf(inputXPosition), placeOf(inputYPosition));
        if (selector == 0 || selector == 1) return CIVector(static_cast<float>(0.5 * aspect), 0.5);
        return CIVector(1.0, 1.0); // kept for modes off the table
    }

    static constexpr std::string_view kFunctions[] = {
        "VE_CropCircleXYPosition_cropCircleXY", "VE_CropCircleXYPosition_cropCircleXYReverse"};
    inline static CIKernel kernels[std::size(kFunctions)];
};
VORN_REGISTER(VECropCircleXYPosition)
