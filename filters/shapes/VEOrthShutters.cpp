// Shutters: four that close straight from the sides of the image.
#include "filters/shapes/Shutters.h"

class VEOrthShutters : public CIFilter {
public:
    VEOrthShutters() {
        loadKernel<VEOrthShutters>(kernel, "VE_OrthShuttersFilterKernel",
                                   "VE_OrthShutters_orthShtrLTRB");
    }

    static Attributes customAttributes() { return shutterAttributes(mixer()); }

    static FilterGuide guide() {
        return {.title = "Shutters",
                .sentence = "Closes four straight shutters from the sides of the picture.",
                .tags = {"crop", "shutter", "framing", "barn doors", "mask"},
                .inputs = shutterGuides(),
                .beginWith = {{"inputSizeX1", 0.2},
                              {"inputSizeY1", 0.35},
                              {"inputSizeX2", 0.5},
                              {"inputSizeY2", 0.15}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        return kernel.applyWithExtent(source.extent(), RegionOfInterest::identity(),
                                      {source, inputMixer, radiusOf(inputSizeX1),
                                       radiusOf(inputSizeY1), radiusOf(inputSizeX2),
                                       radiusOf(inputSizeY2)});
    }

    CIImage inputImage;
    Number inputMixer, inputSizeX1, inputSizeY1, inputSizeX2, inputSizeY2;
    VORN_FILTER(VEOrthShutters, inputImage, inputMixer, inputSizeX1, inputSizeY1, inputSizeX2,
                inputSizeY2)

private:
    inline static CIKernel kernel;
};
VORN_REGISTER(VEOrthShutters)
