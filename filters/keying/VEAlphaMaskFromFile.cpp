// Alpha mask: makes the picture transparent by the alpha of a mask, or by what the mask leaves out.
#include "filters/keying/Mattes.h"

class VEAlphaMaskFromFile : public CIFilter {
public:
    VEAlphaMaskFromFile() {
        loadKernels<VEAlphaMaskFromFile>(kernels, "VE_AlphaMaskFromFileFilterKernel", kFunctions);
    }

    static Attributes customAttributes() {
        // The slider goes beyond the last mode.
        return {mixer(), scalar("inputMode", "mode", {.sliderMax = 8})};
    }

    static FilterGuide guide() {
        return {.title = "Alpha mask",
                .sentence =
                    "Cuts the picture out by the alpha of a mask that is stretched over it.",
                .tags = {"mask", "matte", "alpha", "cut out", "transparency"},
                .inputs = {{.key = "inputMaskImage",
                            .purpose = "the mask; the picture itself where there is none"}},
                .modes = {"mask", "mask, left and right swapped", "mask, upside down",
                          "mask, turned by half", "inverted mask",
                          "inverted mask, left and right swapped", "inverted mask, upside down",
                          "inverted mask, turned by half"}};
    }

    CIImage outputImage() override {
        if (isTooLargeToMask(inputImage, inputMaskImage)) return errorImage.imageFor("FX 090");
        return masked(kernelForMode(kernels, inputMode), inputImage, inputMaskImage, inputMixer,
                      "VEAlphaMaskFromFile");
    }

    CIImage inputImage, inputMaskImage;
    Number inputMixer, inputMode;
    VORN_FILTER(VEAlphaMaskFromFile, inputImage, inputMaskImage, inputMixer, inputMode)

private:
    static constexpr std::string_view kFunctions[] = {
        "VE_AlphaMaskFromFile_multiplyAlpha1",
        "VE_AlphaMaskFromFile_multiplyAlpha1MirrorH",
        "VE_AlphaMaskFromFile_multiplyAlpha1MirrorV",
        "VE_AlphaMaskFromFile_multiplyAlpha1MirrorHV",
        "VE_AlphaMaskFromFile_multiplyAlpha2",
        "VE_AlphaMaskFromFile_multiplyAlpha2MirrorH",
        "VE_AlphaMaskFromFile_multiplyAlpha2MirrorV",
        "VE_AlphaMaskFromFile_multiplyAlpha2MirrorHV"};
    inline static CIKernel kernels[std::size(kFunctions)];
    ErrorImage errorImage;
};
VORN_REGISTER(VEAlphaMaskFromFile)
