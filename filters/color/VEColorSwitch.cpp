// Colour switch: the channels in another order.
#include "core/FilterSupport.h"

class VEColorSwitch : public CIFilter {
public:
    VEColorSwitch() {
        loadKernels<VEColorSwitch>(kernels, "VE_ColorSwitchFilterKernel", kFunctions);
    }

    static Attributes customAttributes() {
        // A mixer by another label, and at rest by default. The slider goes beyond the last mode.
        return {scalar("inputMode", "mode", {.sliderMax = 5}),
                scalar("inputMixer", "intensity", {})};
    }

    static FilterGuide guide() {
        return {.title = "Colour switch",
                .sentence = "Swaps red, green and blue among each other.",
                .tags = {"channels", "swap", "colour"},
                .inputs = {{.key = "inputMixer", .purpose = "from the picture to the swapped one"}},
                .modes = {"green and blue swapped", "red and blue swapped",
                          "red to green to blue to red", "red to blue to green to red",
                          "red and green swapped"},
                .beginWith = {{"inputMode", 1}, {"inputMixer", 1}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        return kernelForMode(kernels, inputMode)
            .applyWithExtent(source.extent(), {source, inputMixer});
    }

    CIImage inputImage;
    Number inputMode, inputMixer;
    VORN_FILTER(VEColorSwitch, inputImage, inputMode, inputMixer)

private:
    static constexpr std::string_view kFunctions[] = {
        "VE_ColorSwitch_to_rbg", "VE_ColorSwitch_to_bgr", "VE_ColorSwitch_to_brg",
        "VE_ColorSwitch_to_gbr", "VE_ColorSwitch_to_grb"};
    inline static CIKernel kernels[std::size(kFunctions)];
};
VORN_REGISTER(VEColorSwitch)
