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
