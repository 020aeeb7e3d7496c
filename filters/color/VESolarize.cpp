// Solarize: folds the tones over at a level that falls as the intensity rises.
#include "core/FilterSupport.h"

class VESolarize : public CIFilter {
public:
    VESolarize() {
        loadKernel<VESolarize>(kernel, "VE_SolarizeFilterKernel", "VE_Solarize_solarize");
    }

    static Attributes customAttributes() { return {scalar("inputIntensity", "intensity", {})}; }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        return kernel.applyWithExtent(source.extent(), {source, inputIntensity});
    }

    CIImage inputImage;
    Number inputIntensity;
    VORN_FILTER(VESolarize, inputImage, inputIntensity)

private:
    inline static CIColorKernel kernel;
};
VORN_REGISTER(VESolarize)
