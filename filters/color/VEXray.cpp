// X-ray: folds the tones over into a negative on blue-based film as the intensity rises.
#include "core/FilterSupport.h"

class VEXray : public CIFilter {
public:
    VEXray() { loadKernel<VEXray>(kernel, "VE_XrayFilterKernel", "VE_Xray_xray"); }

    static Attributes customAttributes() { return {scalar("inputIntensity", "intensity", {})}; }

    static FilterGuide guide() {
        return {
            .title = "X-ray",
            .sentence = "Turns the picture into a negative on blue film.",
            .tags = {"negative", "blue", "film", "tone"},
            .inputs = {{.key = "inputIntensity", .purpose = "from the picture to the negative"}},
            .beginWith = {{"inputIntensity", 1}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        return kernel.applyWithExtent(source.extent(), {source, inputIntensity});
    }

    CIImage inputImage;
    Number inputIntensity;
    VORN_FILTER(VEXray, inputImage, inputIntensity)

private:
    inline static CIColorKernel kernel;
};
VORN_REGISTER(VEXray)
