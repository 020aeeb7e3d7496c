// Mask: makes the picture transparent by the brightness or a channel of a second one.
#include "filters/keying/Mattes.h"

class VEAlphaMaskFromImage : public CIFilter {
public:
    VEAlphaMaskFromImage() {
        loadKernels<VEAlphaMaskFromImage>(kernels, "VE_AlphaMaskFromImageFilterKernel", kFunctions);
    }

    static Attributes customAttributes() {
        // The slider goes beyond the last mode.
        return {mixer(), scalar("inputMode", "mode", {.sliderMax = 10})};
    }

    static FilterGuide guide() {
        return {.title = "Picture as a mask",
                .sentence = "Cuts the picture out by the brightness, a colour or the alpha of a "
                            "second picture that is stretched over it.",
                .tags = {"mask", "matte", "luma", "channel", "transparency"},
                .inputs = {{.key = "inputMaskImage",
                            .purpose = "the mask; the picture itself where there is none"}},
                .modes = channelModes()};
    }

    CIImage outputImage() override {
        if (isTooLargeToMask(inputImage, inputMaskImage)) return errorImage.imageFor("FX 091");
        return masked(kernelForMode(kernels, inputMode), inputImage, inputMaskImage, inputMixer,
                      "VEAlphaMaskFromImage");
    }

    CIImage inputImage, inputMaskImage;
    Number inputMixer, inputMode;
    VORN_FILTER(VEAlphaMaskFromImage, inputImage, inputMaskImage, inputMixer, inputMode)

private:
    static constexpr std::string_view kFunctions[] = {
        "VE_AlphaMaskFromImage_multiplyLuma",  "VE_AlphaMaskFromImage_multiplyInvLuma",
        "VE_AlphaMaskFromImage_multiplyRed",   "VE_AlphaMaskFromImage_multiplyInvRed",
        "VE_AlphaMaskFromImage_multiplyGreen", "VE_AlphaMaskFromImage_multiplyInvGreen",
        "VE_AlphaMaskFromImage_multiplyBlue",  "VE_AlphaMaskFromImage_multiplyInvBlue",
        "VE_AlphaMaskFromImage_multiplyAlpha", "VE_AlphaMaskFromImage_multiplyInvAlpha"};
    inline static CIKernel kernels[std::size(kFunctions)];
    ErrorImage errorImage;
};
VORN_REGISTER(VEAlphaMaskFromImage)
