// Chroma key by hue, saturation and value: makes colours near the key transparent.
#include "core/FilterSupport.h"

class VEChromaKeyHSV : public CIFilter {
public:
    VEChromaKeyHSV() {
        loadKernel<VEChromaKeyHSV>(kernel, "VE_ChromaKeyHSVFilterKernel",
                                   "VE_ChromaKeyHSV_chromaKeyHSV");
    }

    static Attributes customAttributes() {
        return {scalar("inputTolerance", "tolerance", {.min = 0.01}),
                scalar("inputAmount", "amount", {}), scalar("inputHue", "hue", {}),
                scalar("inputSaturation", "saturation", {}), scalar("inputValue", "value", {})};
    }

    static FilterGuide guide() {
        return {.title = "Chroma key by hue",
                .sentence = "Makes colours near a hue, a saturation and a brightness transparent.",
                .tags = {"key", "green screen", "blue screen", "transparency", "hue"},
                .inputs = {{.key = "inputTolerance",
                            .purpose = "how far from the key a colour still goes"},
                           {.key = "inputAmount", .purpose = "how soft the border of what goes is"},
                           {.key = "inputHue",
                            .purpose = "hue of the key, once around the circle from red to red"},
                           {.key = "inputSaturation", .purpose = "saturation of the key"},
                           {.key = "inputValue", .purpose = "brightness of the key"}},
                // The green of the test card.
                .beginWith = {{"inputTolerance", 0.4},
                              {"inputAmount", 0.6},
                              {"inputHue", 0.39},
                              {"inputSaturation", 0.9},
                              {"inputValue", 0.7}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        return kernel.applyWithExtent(
            source.extent(), RegionOfInterest::identity(),
            {source, inputTolerance, inputAmount, inputHue, inputSaturation, inputValue});
    }

    CIImage inputImage;
    Number inputTolerance, inputAmount, inputHue, inputSaturation, inputValue;
    VORN_FILTER(VEChromaKeyHSV, inputImage, inputTolerance, inputAmount, inputHue, inputSaturation,
                inputValue)

private:
    inline static CIKernel kernel;
};
VORN_REGISTER(VEChromaKeyHSV)
