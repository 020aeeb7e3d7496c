// Gobo: reduces the image to black and white, as a mask before a lamp, with a weight per channel.
#include "core/FilterSupport.h"

class VEGobo : public CIFilter {
public:
    VEGobo() { loadKernel<VEGobo>(kernel, "VE_GoboFilterKernel", "VE_Gobo_blackAndWhite"); }

    static Attributes customAttributes() {
        return {mixer(), scalar("inputIntensity", "intensity", {}), scalar("inputRed", "red", {}),
                scalar("inputGreen", "green", {}), scalar("inputBlue", "blue", {})};
    }

    static FilterGuide guide() {
        return {.title = "Gobo",
                .sentence =
                    "Reduces the picture to black and white, as hard as a stencil before a lamp.",
                .tags = {"black and white", "stencil", "mask", "contrast"},
                .inputs = {{.key = "inputIntensity",
                            .purpose = "from a plain grey picture to a hard stencil"},
                           {.key = "inputRed",
                            .purpose = "how much red counts besides its share of the brightness"},
                           {.key = "inputGreen",
                            .purpose = "how much green counts besides its share of the brightness"},
                           {.key = "inputBlue",
                            .purpose = "how much blue counts besides its share of the brightness"}},
                .beginWith = {{"inputIntensity", 0.8}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        return kernel.applyWithExtent(
            source.extent(), RegionOfInterest::identity(),
            {source, inputMixer, inputIntensity, inputRed, inputGreen, inputBlue});
    }

    CIImage inputImage;
    Number inputMixer, inputIntensity, inputRed, inputGreen, inputBlue;
    VORN_FILTER(VEGobo, inputImage, inputMixer, inputIntensity, inputRed, inputGreen, inputBlue)

private:
    inline static CIKernel kernel;
};
VORN_REGISTER(VEGobo)
