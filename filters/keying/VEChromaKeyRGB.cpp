// Chroma key by red, green and blue: makes colours near the key transparent.
#include "core/FilterSupport.h"

class VEChromaKeyRGB : public CIFilter {
public:
    VEChromaKeyRGB() {
        loadKernel<VEChromaKeyRGB>(kernel, "VE_ChromaKeyRGBFilterKernel",
                                   "VE_ChromaKey_chromaKeyRGB");
    }

    static Attributes customAttributes() {
        return {scalar("inputTolerance", "tolerance", {.min = 0.01}),
                scalar("inputAmount", "amount", {}), scalar("inputRed", "red", {}),
                scalar("inputGreen", "green", {.min = 0.01}), scalar("inputBlue", "blue", {})};
    }

    static FilterGuide guide() {
        return {.title = "Chroma key by colour",
                .sentence = "Makes colours near one of red, green and blue transparent.",
                .tags = {"key", "green screen", "blue screen", "transparency"},
                .inputs = {{.key = "inputTolerance",
                            .purpose = "how far from the key a colour still goes"},
                           {.key = "inputAmount", .purpose = "how soft the border of what goes is"},
                           {.key = "inputRed", .purpose = "red of the key"},
                           {.key = "inputGreen", .purpose = "green of the key"},
                           {.key = "inputBlue", .purpose = "blue of the key"}},
                // The green of the test card.
                .beginWith = {{"inputTolerance", 0.4},
                              {"inputAmount", 0.6},
                              {"inputRed", 0.07},
                              {"inputGreen", 0.7},
                              {"inputBlue", 0.3}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        return kernel.applyWithExtent(
            source.extent(), RegionOfInterest::identity(),
            {source, inputTolerance, inputAmount, inputRed, inputGreen, inputBlue});
    }

    CIImage inputImage;
    Number inputTolerance, inputAmount, inputRed, inputGreen, inputBlue;
    VORN_FILTER(VEChromaKeyRGB, inputImage, inputTolerance, inputAmount, inputRed, inputGreen,
                inputBlue)

private:
    inline static CIKernel kernel;
};
VORN_REGISTER(VEChromaKeyRGB)
