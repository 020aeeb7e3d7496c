// CTO: orange, blue and magenta gels before the light.
#include "core/FilterSupport.h"

class VE_CTO : public CIFilter {
public:
    VE_CTO() { loadKernel<VE_CTO>(kernel, "VE_CTOFilterKernel", "VE_CTO_ctoAdjust"); }

    static Attributes customAttributes() {
        return {constant("inputMixer", {}),
                constant("inputColortemp", {.sliderMax = 2, .standard = 1}),
                constant("inputMinusGreen", {})};
    }

    static FilterGuide guide() {
        return {.title = "Colour temperature gel",
                .sentence = "Makes the light warmer or colder, as orange and blue gels do, and "
                            "takes its green away.",
                .tags = {"white balance", "temperature", "gel", "warm", "cold", "tint"},
                .inputs = {{.key = "inputMixer", .purpose = "how much of the effect is seen"},
                           {.key = "inputColortemp",
                            .label = "colour temperature",
                            .purpose = "orange below 1, blue above it"},
                           {.key = "inputMinusGreen",
                            .label = "minus green",
                            .purpose = "how strong a magenta gel takes green away"}},
                .beginWith = {{"inputMixer", 1}, {"inputColortemp", 0.4}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        const float temperature = inputColortemp.floatValue();
        const float orange = temperature < 1 ? (1 - temperature) * 0.5f : 0;
        const float blue = temperature > 1 ? (temperature - 1) * 0.25f : 0;
        return kernel.applyWithExtent(source.extent(),
                                      {source, inputMixer, blue, orange, inputMinusGreen});
    }

    CIImage inputImage;
    Number inputMixer, inputColortemp, inputMinusGreen;
    VORN_FILTER(VE_CTO, inputImage, inputMixer, inputColortemp, inputMinusGreen)

private:
    inline static CIColorKernel kernel;
};
VORN_REGISTER(VE_CTO)
