// Bars: divides the image into bars and keeps a part of each.
#include "core/FilterSupport.h"

class VEBars : public CIFilter {
public:
    VEBars() { loadKernels<VEBars>(kernels, "VE_BarsFilterKernel", kFunctions); }

    static Attributes customAttributes() {
        return {mixer(), scalar("inputMode", "mode", {.sliderMax = 2}),
                scalar("inputDivisions", "divisions",
                       {.min = 1, .sliderMin = 1, .sliderMax = 100, .standard = 20}),
                scalar("inputSize", "size", {.standard = 0.5})};
    }

    static FilterGuide guide() {
        return {.title = "Bars",
                .sentence = "Divides the picture into bars, with gaps between them.",
                .tags = {"bars", "blinds", "stripes", "mask"},
                .inputs = {{.key = "inputDivisions", .purpose = "how many bars"},
                           {.key = "inputSize", .purpose = "how wide the gaps are"}},
                .modes = {"horizontal bars", "vertical bars"}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        return kernelForMode(kernels, inputMode)
            .applyWithExtent(source.extent(), RegionOfInterest::identity(),
                             {source, inputMixer, inputDivisions, 1 - inputSize.floatValue()});
    }

    CIImage inputImage;
    Number inputMixer, inputMode, inputDivisions, inputSize;
    VORN_FILTER(VEBars, inputImage, inputMixer, inputMode, inputDivisions, inputSize)

private:
    static constexpr std::string_view kFunctions[] = {"VE_Bars_horizontalBars",
                                                      "VE_Bars_verticalBars"};
    inline static CIKernel kernels[std::size(kFunctions)];
};
VORN_REGISTER(VEBars)
