// Edge detect: draws lines where neighbouring colours differ.
#include "core/FilterSupport.h"

class VEEdgeDetect : public CIFilter {
public:
    VEEdgeDetect() {
        loadKernel<VEEdgeDetect>(kernel, "VE_EdgeDetectFilterKernel", "VE_EdgeDetect_edgeDetect");
    }

    static Attributes customAttributes() {
        return {mixer(), scalar("inputWidth", "LineWidth", {.standard = 0.5}),
                scalar("inputReduce", "Reduce", {.standard = 0.5})};
    }

    static FilterGuide guide() {
        return {.title = "Glowing edges",
                .sentence = "Draws the picture as bright lines in its own hues on black, wherever "
                            "its colours change.",
                .tags = {"outline", "lines", "contour", "neon"},
                .inputs = {{.key = "inputWidth", .purpose = "how thick the lines are"},
                           {.key = "inputReduce",
                            .purpose = "how many of the weaker lines are left out"}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        // Counts downwards: 0 for the thickest lines.
        const auto thinness = static_cast<float>((1.0 - inputWidth.doubleValue()) * 0.01);
        const CIImage lines = kernel.applyWithExtent(source.extent(), RegionOfInterest::identity(),
                                                     {source, inputMixer, thinness, inputReduce});
        return inputMixer.floatValue() == 0 ? lines.imageKnownToEqual(inputImage) : lines;
    }

    CIImage inputImage;
    Number inputMixer, inputWidth, inputReduce;
    VORN_FILTER(VEEdgeDetect, inputImage, inputMixer, inputWidth, inputReduce)

private:
    inline static CIKernel kernel;
};
VORN_REGISTER(VEEdgeDetect)
