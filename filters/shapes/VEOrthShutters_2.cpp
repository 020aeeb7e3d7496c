// Soft shutters: four that close straight from the sides of the image, with soft edges.
#include "filters/shapes/Shutters.h"

class VEOrthShutters_2 : public CIFilter {
public:
    VEOrthShutters_2() {
        loadKernel<VEOrthShutters_2>(kernel, "VE_OrthShutters_2FilterKernel",
                                     "VE_OrthShutters_2_softOrthShtrLRTB");
    }

    static Attributes customAttributes() {
        return shutterAttributes(scalar("inputEdge", "edge", {.standard = 1}));
    }

    static FilterGuide guide() {
        return {.title = "Soft shutters",
                .sentence =
                    "Closes four straight shutters with soft edges from the sides of the picture.",
                .tags = {"crop", "shutter", "framing", "barn doors", "vignette", "mask"},
                .inputs = shutterGuides(
                    {{.key = "inputEdge", .purpose = "how far the edges are softened"}}),
                .beginWith = {{"inputEdge", 0.6},
                              {"inputSizeX1", 0.3},
                              {"inputSizeY1", 0.2},
                              {"inputSizeX2", 0.3},
                              {"inputSizeY2", 0.2}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        const float edge = inputEdge.floatValue();
        // Squared, which closes the shutters quickly first; shows are made with it.
        const auto fromOpen = [](const Number& size) {
            const float open = 1 - size.floatValue();
            return open * open;
        };
        // In the order of X1, Y1, X2, Y2, whatever order the name of the kernel ends in.
        return kernel.applyWithExtent(source.extent(), RegionOfInterest::identity(),
                                      {source, edge * edge, fromOpen(inputSizeX1),
                                       fromOpen(inputSizeY1), fromOpen(inputSizeX2),
                                       fromOpen(inputSizeY2)});
    }

    CIImage inputImage;
    Number inputEdge, inputSizeX1, inputSizeY1, inputSizeX2, inputSizeY2;
    VORN_FILTER(VEOrthShutters_2, inputImage, inputEdge, inputSizeX1, inputSizeY1, inputSizeX2,
                inputSizeY2)

private:
    inline static CIKernel kernel;
};
VORN_REGISTER(VEOrthShutters_2)
