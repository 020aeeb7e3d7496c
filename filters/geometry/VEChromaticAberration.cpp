// Chromatic aberration: colours part from each other towards the corners, as in a simple lens.
#include "core/FilterSupport.h"

class VEChromaticAberration : public CIFilter {
public:
    VEChromaticAberration() {
        loadKernel<VEChromaticAberration>(kernel, "VE_ChromaticAberrationFilterKernel",
                                          "VE_ChromaticAberration_transverseChromaticAberration");
    }

    static Attributes customAttributes() {
        return {mixer(0),
                scalar("inputSampleCount", "sample_count",
                       {.min = 1, .sliderMin = 1, .sliderMax = 20, .standard = 1}),
                scalar("inputStart", "start", {}), scalar("inputBlur", "blur", {.sliderMax = 100})};
    }

    static FilterGuide guide() {
        return {.title = "Chromatic aberration",
                .sentence = "Parts the colours along lines from the middle, red outwards and blue "
                            "inwards, as the edge of a simple lens does.",
                .tags = {"lens", "fringe", "prism", "rgb split"},
                .inputs = {{.key = "inputSampleCount",
                            .label = "samples",
                            .purpose = "from three separate pictures to a smooth spectrum"},
                           {.key = "inputStart",
                            .purpose = "how far from the middle it begins, as a share of the way "
                                       "to the corners"},
                           {.key = "inputBlur", .purpose = "how far colours part"}},
                .beginWith = {{"inputMixer", 1}, {"inputSampleCount", 8}, {"inputBlur", 40}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        const CGRect extent = inputImage.extent();
        const CIImage parted = kernel.applyWithExtent(
            source.extent(), RegionOfInterest::identity(),
            {KernelArgument::orNothing(source), CIVector(extent.width, extent.height),
             inputSampleCount, inputStart, inputBlur, inputMixer});
        const bool isMixedOut = inputMixer.floatValue() == 0 || inputBlur.floatValue() == 0;
        return isMixedOut ? parted.imageKnownToEqual(inputImage) : parted;
    }

    CIImage inputImage;
    Number inputMixer, inputSampleCount, inputStart, inputBlur;
    VORN_FILTER(VEChromaticAberration, inputImage, inputMixer, inputSampleCount, inputStart,
                inputBlur)

private:
    inline static CIKernel kernel;
};
VORN_REGISTER(VEChromaticAberration)
