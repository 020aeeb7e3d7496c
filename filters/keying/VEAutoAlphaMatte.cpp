// Auto alpha matte: derives alpha from the picture's own colours, by a pair of them.
#include "core/FilterSupport.h"

class VEAutoAlphaMatte : public CIFilter {
public:
    VEAutoAlphaMatte() {
        loadKernels<VEAutoAlphaMatte>(kernels, "VE_AutoAlphaMatteFilterKernel", kFunctions);
    }

    static Attributes customAttributes() {
        // The slider ends before the modes do.
        return {scalar("inputMode", "mode", {.sliderMax = 7})};
    }

    static FilterGuide guide() {
        return {
            .title = "Automatic matte",
            .sentence = "Makes the first of two colours transparent and keeps the second: black "
                        "and white or black and a colour, either way round.",
            .tags = {"key", "matte", "transparency", "black", "white", "primary"},
            .inputs = {{.key = "inputMode",
                        .purpose = "which colour goes; the one that is named first, always"}},
            .modes = {"black goes, white stays", "white goes, black stays", "black goes, red stays",
                      "red goes, black stays", "black goes, green stays", "green goes, black stays",
                      "black goes, blue stays", "blue goes, black stays",
                      "black goes, magenta stays", "magenta goes, black stays"}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        return kernelForMode(kernels, inputMode).applyWithExtent(source.extent(), {source});
    }

    CIImage inputImage;
    Number inputMode;
    VORN_FILTER(VEAutoAlphaMatte, inputImage, inputMode)

private:
    static constexpr std::string_view kFunctions[] = {
        "VE_AutoAlphaMatte_BlackWhite",   "VE_AutoAlphaMatte_WhiteBlack",
        "VE_AutoAlphaMatte_BlackRed",     "VE_AutoAlphaMatte_RedBlack",
        "VE_AutoAlphaMatte_BlackGreen",   "VE_AutoAlphaMatte_GreenBlack",
        "VE_AutoAlphaMatte_BlackBlue",    "VE_AutoAlphaMatte_BlueBlack",
        "VE_AutoAlphaMatte_BlackMagenta", "VE_AutoAlphaMatte_MagentaBlack"};
    inline static CIKernel kernels[std::size(kFunctions)];
};
VORN_REGISTER(VEAutoAlphaMatte)
