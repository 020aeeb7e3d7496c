// Slit scan: lines of the frame are moved by an amount that sweeps with time, in six patterns.
#include "core/FilterSupport.h"

class VESlitscan : public CIFilter {
public:
    VESlitscan() { loadKernels<VESlitscan>(kernels, "VE_SlitscanFilterKernel", kFunctions); }

    static Attributes customAttributes() {
        return {mixer(),
                scalar("inputMode", "mode", {.sliderMax = 6}),
                scalar("inputAmount", "amount", {.sliderMax = 1.1}),
                scalar("inputSpeed", "speed", {}),
                scalar("inputSwing", "swing", {.sliderMax = 10.1}),
                scalar("inputSoftness", "softness",
                       {.min = 1e-7, .sliderMin = 1e-7, .sliderMax = 0.5, .standard = 1e-7})};
    }

    static FilterGuide guide() {
        return {.title = "Slit scan",
                .sentence = "Moves the rows of the picture sideways, or its columns up and down, "
                            "in waves that sweep through it.",
                .tags = {"lines", "shear", "glitch", "motion"},
                .inputs = {{.key = "inputAmount", .purpose = "how far lines move"},
                           {.key = "inputSpeed", .purpose = "how fast the waves sweep"},
                           {.key = "inputSwing",
                            .purpose = "how many waves lie in the picture, from one on"},
                           {.key = "inputSoftness", .purpose = "how soft the jumps are"}},
                .modes = {"rows sweep", "columns sweep", "rows swing", "columns swing",
                          "rows at random", "columns at random"},
                .movesByItself = true,
                .canFlash = true,
                .beginWith = {{"inputMode", 2},
                              {"inputAmount", 0.2},
                              {"inputSpeed", 0.3},
                              {"inputSwing", 1},
                              {"inputSoftness", 0.5}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        // Steps of 51.2 milliseconds.
        const auto time = static_cast<float>(VornEffectsGetUptimeInNanoseconds() / 51'200'000);
        const CIImage scanned =
            kernelForMode(kernels, inputMode)
                .applyWithExtent(source.extent(), RegionOfInterest::identity(),
                                 {KernelArgument::orNothing(source), inputMixer, inputAmount,
                                  inputSwing, inputSpeed, time, inputSoftness});
        const bool isStill = inputMixer.floatValue() == 0 || inputAmount.floatValue() == 0;
        return isStill ? scanned.imageKnownToEqual(inputImage) : scanned;
    }

    CIImage inputImage;
    Number inputMixer, inputMode, inputAmount, inputSpeed, inputSwing, inputSoftness;
    VORN_FILTER(VESlitscan, inputImage, inputMixer, inputMode, inputAmount, inputSpeed, inputSwing,
                inputSoftness)

private:
    static constexpr std::string_view kFunctions[] = {
        "VE_Slitscan_Horiz",        "VE_Slitscan_Vert",           "VE_Slitscan_SwingHorizSin",
        "VE_Slitscan_SwingVertSin", "VE_Slitscan_SwingHorizRand", "VE_Slitscan_SwingVertRand"};
    inline static CIKernel kernels[std::size(kFunctions)];
};
VORN_REGISTER(VESlitscan)
