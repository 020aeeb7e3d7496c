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
