// Luma lines: redraws the image in lines, or in blocks, that are wider where it is brighter.
#include "filters/stylize/Cells.h"

class VELumaLines : public CIFilter {
public:
    VELumaLines() { loadKernels<VELumaLines>(kernels, "VE_LumaLinesFilterKernel", kFunctions); }

    static Attributes customAttributes() {
        // The default of the scale is below its minimum.
        return {mixer(), scalar("inputMode", "mode", {.sliderMax = 2}),
                scalar("inputDivisions", "Divisions", {.sliderMax = 100}),
                scalar("inputGap", "Gap Width", {.sliderMax = 5}),
                scalar("inputScale", "Scale", {.min = 1, .sliderMin = 1, .sliderMax = 1024})};
    }

    static FilterGuide guide() {
        return {
            .title = "Luma lines",
            .sentence = "Redraws the picture in lines, or in blocks, that are wider where it "
                        "is brighter.",
            .tags = {"lines", "engraving", "halftone", "blocks"},
            .inputs = {{.key = "inputDivisions", .purpose = "rows of lines or blocks; 60 below 1"},
                       {.key = "inputGap",
                        .purpose = "what stays dark between them at least",
                        .unit = "pixels"},
                       {.key = "inputScale",
                        .purpose = "how long the pieces are whose brightness counts: at 1 a "
                                   "quarter of their height, at 16 and below 1 as long as "
                                   "high, at 1024 eight times that"}},
            .modes = {"lines", "blocks"},
            .beginWith = {{"inputDivisions", 60}, {"inputGap", 1}, {"inputScale", 16}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        const CGRect extent = source.extent();
        const float scale = inputScale.floatValue(), divisions = inputDivisions.floatValue();
        // The kernels' pieces.
        const auto height =
            static_cast<float>(extent.height / (divisions < 1 ? kStandardRows : divisions));
        const float length = scale < 1 ? height : height * std::sqrt(scale) / 4;
        const CIImage drawn =
            kernels[clampedMode(inputMode, 1) > 0 ? 1 : 0]
                .applyWithExtent(extent, RegionOfInterest::grownBy(scale),
                                 {source, inputMixer, inputDivisions, inputGap, inputScale})
                .imageWithReduction(reductionForCells(length), reductionForCells(height));
        return inputMixer.floatValue() == 0 ? drawn.imageKnownToEqual(inputImage) : drawn;
    }

    CIImage inputImage;
    Number inputMixer, inputMode, inputDivisions, inputGap, inputScale;
    VORN_FILTER(VELumaLines, inputImage, inputMixer, inputMode, inputDivisions, inputGap,
                inputScale)

private:
    static constexpr float kStandardRows = 60;
    static constexpr std::string_view kFunctions[] = {"VE_LumaLines_lumaLines",
                                                      "VE_LumaLines_lumaBlocks"};
    inline static CIKernel kernels[std::size(kFunctions)];
};
VORN_REGISTER(VELumaLines)
