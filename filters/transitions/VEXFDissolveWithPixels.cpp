// Dissolve with pixels: a dissolve whose picture breaks up into blocks, the largest halfway.
#include "filters/shared/Transition.h"

#include <cmath>

class VEXFDissolveWithPixels : public CIFilter {
public:
    VEXFDissolveWithPixels() {
        loadKernels<VEXFDissolveWithPixels>(kernels, "VEXFDissolveWithPixelsFilterKernel",
                                            kFunctions);
    }

    static Attributes customAttributes() {
        return {scalar("inputFadeStatus", "Time", {}),
                scalar("inputAdjust", "Adjust",
                       {.min = 1, .sliderMin = 1, .sliderMax = 4, .standard = 1, .identity = 1})};
    }

    static FilterGuide guide() {
        return {
            .title = "Dissolve with pixels",
            .sentence =
                "Dissolves from one picture to another through blocks that are largest halfway.",
            .tags = {"dissolve", "mosaic", "blocks", "pixellate"},
            .inputs =
                transitionGuides({{.key = "inputAdjust",
                                   .purpose = "how long the outgoing picture stays; 1 is even"}}),
            .beginWith = {{"inputFadeStatus", 0.06}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage), target(inputTargetImage);
        const float time = inputFadeStatus.floatValue();
        const float share = std::pow(time, inputAdjust.floatValue());
        const CIImage mixed = kernels[0].applyWithExtent(
            source.extent(), transitionReads(inputTargetImage, source.extent()),
            {source, target, share});
        if (!mixed) return {};
        // Without end there is no middle that blocks could be set out from.
        if (!mixed.extent().isFinite()) return mixed;

        const auto middle = static_cast<float>(std::min(std::max<double>(time, 0.0001), 0.9999));
        const auto block = static_cast<float>((1 - 2 * std::fabs(middle - 0.5)) * 100);
        const auto margin = static_cast<float>(block * 0.1);
        // The rule shrinks what it is asked for; the framework takes it for no rule at all.
        const CISampler blocks(mixed);
        // Half a quarter of a block.
        const int part = timesSmaller(block / 4);
        return kernels[1]
            .applyWithExtent(blocks.extent(), RegionOfInterest::grownBy(-margin), {blocks, block})
            .imageWithReduction(part, part);
    }

    CIImage inputImage, inputTargetImage;
    Number inputFadeStatus, inputAdjust;
    VORN_FILTER(VEXFDissolveWithPixels, inputImage, inputTargetImage, inputFadeStatus, inputAdjust)

private:
    static constexpr std::string_view kFunctions[] = {"VEXFDissolveWithPixels_dissolve",
                                                      "VEXFDissolveWithPixels_pixellate"};
    inline static CIKernel kernels[std::size(kFunctions)];
};
VORN_REGISTER(VEXFDissolveWithPixels)
