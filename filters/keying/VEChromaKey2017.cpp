// Chroma key: makes colours of the key's chroma transparent, whatever their brightness.
#include "core/FilterSupport.h"

class VEChromaKey2017 : public CIFilter {
public:
    VEChromaKey2017() {
        loadKernel<VEChromaKey2017>(kernel, "VE_ChromaKey2017FilterKernel",
                                    "VE_ChromaKey2017_chromaKey2017");
    }

    static Attributes customAttributes() {
        return {scalar("inputSensitivity", "sensitivity", {.min = 0.01}),
                scalar("inputSmoothing", "smoothing", {}),
                scalar("inputRed", "red", {}),
                scalar("inputGreen", "green", {.min = 0.01}),
                scalar("inputBlue", "blue", {}),
                scalar("inputBlur", "blur", {})};
    }

    static FilterGuide guide() {
        return {
            .title = "Chroma key",
            .sentence = "Makes colours of one tint transparent, however bright they are.",
            .tags = {"key", "green screen", "blue screen", "transparency"},
            .inputs = {{.key = "inputSensitivity",
                        .purpose = "how far from the key a tint still goes"},
                       {.key = "inputSmoothing", .purpose = "how soft the border of what goes is"},
                       {.key = "inputRed", .purpose = "red of the key"},
                       {.key = "inputGreen", .purpose = "green of the key"},
                       {.key = "inputBlue", .purpose = "blue of the key"},
                       {.key = "inputBlur", .purpose = "how far the transparency is spread"}},
            // The green of the test card.
            .beginWith = {{"inputSensitivity", 0.3},
                          {"inputSmoothing", 0.6},
                          {"inputRed", 0.07},
                          {"inputGreen", 0.7},
                          {"inputBlue", 0.3}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        return kernel.applyWithExtent(
            source.extent(), RegionOfInterest::identity(),
            {source, inputSensitivity, inputSmoothing, inputRed, inputGreen, inputBlue, inputBlur});
    }

    CIImage inputImage;
    Number inputSensitivity, inputSmoothing, inputRed, inputGreen, inputBlue, inputBlur;
    VORN_FILTER(VEChromaKey2017, inputImage, inputSensitivity, inputSmoothing, inputRed, inputGreen,
                inputBlue, inputBlur)

private:
    inline static CIKernel kernel;
};
VORN_REGISTER(VEChromaKey2017)
