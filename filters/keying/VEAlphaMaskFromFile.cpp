// Alpha mask: makes the picture transparent by the alpha of a mask, or by what the mask leaves out.
#include "filters/keying/Mattes.h"
#include "platform/Messages.h"

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
        if (area(inputImage) > kFixedArea23764000 || area(inputMaskImage) > kFixedArea23764000)
            return errorImage.imageFor("FX 090");
        const CISampler source(inputImage);
        CISampler mask(inputMaskImage);
        if (!mask) {
            report(Severity::Warning, "### VEAlphaMaskFromFile - no mask!");
            mask = source;
        }
        return kernelForMode(kernels, inputMode)
            .applyWithExtent(
                source.extent(),
                RegionOfInterest::wholeByIndex(inputImage.extent(), inputMaskImage.extent()),
                {source, mask, maskScale(inputMaskImage, inputImage), inputMixer});
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
