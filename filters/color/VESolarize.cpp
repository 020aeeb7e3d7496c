// Solarize: folds the tones over at a level that falls as the intensity rises.
#include "core/FilterSupport.h"

class VESolarize : public CIFilter {
public:
    VESolarize() {
        loadKernel<VESolarize>(kernel, "VE_SolarizeFilterKernel", "VE_Solarize_solarize");
    }

    static Attributes customAttributes() { return {scalar("inputIntensity", "intensity", {})}; }

    static FilterGuide guide() {
        return {.title = "Solarize",
                .sentence = "Folds the bright tones over into dark ones, like film that saw light "
                            "while it was developed.",
                .tags = {"tone", "film", "psychedelic"},
                .inputs = {{.key = "inputIntensity",
                            .purpose = "how far down tones fold over; none do at 0"}},
                .beginWith = {{"inputIntensity", 0.8}}};
    }

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
