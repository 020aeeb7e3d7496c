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
