// Chroma key by position: makes colours near that of a place in the picture transparent.
#include "core/FilterSupport.h"

class VEChromaKeyXY : public CIFilter {
public:
    VEChromaKeyXY() {
        loadKernel<VEChromaKeyXY>(kernel, "VE_ChromaKeyXYFilterKernel",
                                  "VE_ChromaKeyXY_chromaKey_XYpos");
    }

    static Attributes customAttributes() {
        return {scalar("inputTolerance", "tolerance", {.min = 0.01}),
                scalar("inputAmount", "amount", {}), scalar("inputXposition", "x position", {}),
                scalar("inputYposition", "y position", {})};
    }

    static FilterGuide guide() {
        return {.title = "Chroma key by place",
                .sentence = "Makes colours near that of a place in the picture transparent.",
                .tags = {"key", "green screen", "blue screen", "transparency", "pick"},
                .inputs = {{.key = "inputTolerance",
                            .purpose = "how far from the key a colour still goes"},
                           {.key = "inputAmount", .purpose = "how soft the border of what goes is"},
                           {.key = "inputXposition",
                            .purpose = "the place, from the left edge to the right one"},
                           {.key = "inputYposition",
                            .purpose = "the place, from the lower edge to the upper one"}},
                .beginWith = {{"inputTolerance", 0.4},
                              {"inputAmount", 0.6},
                              {"inputXposition", 0.375},
                              {"inputYposition", 0.55}}};
    }

    CIImage outputImage() override {
        if (areaInSinglePrecision(inputImage) > kFixedArea23764000)
            return errorImage.imageFor("FX 055");
        const CISampler source(inputImage);
        return kernel.applyWithExtent(
            source.extent(), RegionOfInterest::whole(source),
            {source, inputTolerance, inputAmount, inputXposition, inputYposition});
    }

    CIImage inputImage;
    Number inputTolerance, inputAmount, inputXposition, inputYposition;
    VORN_FILTER(VEChromaKeyXY, inputImage, inputTolerance, inputAmount, inputXposition,
                inputYposition)

private:
    inline static CIKernel kernel;
    ErrorImage errorImage;
};
VORN_REGISTER(VEChromaKeyXY)
