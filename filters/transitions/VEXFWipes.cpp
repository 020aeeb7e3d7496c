// Wipes: the incoming picture fills bars or rings, or a circle with a coloured ring at its edge.
#include "filters/shared/Transition.h"

class VEXFWipes : public CIFilter {
public:
    VEXFWipes() { loadKernels<VEXFWipes>(kernels, "VEXFWipesFilterKernel", kFunctions); }

    static Attributes customAttributes() {
        return {
            scalar("inputMode", "mode", {.sliderMax = 6}),
            scalar("inputDivisions", "divisions",
                   {.min = 1, .sliderMin = 1, .sliderMax = 20, .standard = 1, .identity = 1}),
            scalar("inputBlur", "blur",
                   {.min = 0.0001, .sliderMin = 0.0001, .standard = 0.0001, .identity = 0.0001}),
            scalar("inputFadeStatus", "Time", {}),
            scalar("inputRed", "red", {.standard = 1}),
            scalar("inputGreen", "green", {.standard = 1}),
            scalar("inputBlue", "blue", {.standard = 1}),
            scalar("inputRingWidth", "ringWidth",
                   {.min = 1, .sliderMin = 1, .sliderMax = 2, .standard = 1}),
            scalar("inputRingEdge", "ringEdge", {.sliderMax = 0.5})};
    }

    static FilterGuide guide() {
        return {.title = "Wipe",
                .sentence = "Wipes from one picture to another, in bars from the top or from the "
                            "left, or in circles from the middle or from the corners.",
                .tags = {"wipe", "blinds", "iris", "circle", "bars", "ring"},
                .inputs = transitionGuides(
                    {{.key = "inputDivisions", .purpose = "bars or rings that are filled at once"},
                     {.key = "inputBlur", .purpose = "how soft the edge is; at 1 as wide as a bar"},
                     {.key = "inputRed", .purpose = "of the ring"},
                     {.key = "inputGreen", .purpose = "of the ring"},
                     {.key = "inputBlue", .purpose = "of the ring"},
                     {.key = "inputRingWidth", .purpose = "no ring at 1"},
                     {.key = "inputRingEdge", .purpose = "how soft the ring's borders are"},
                     {.key = "inputData",
                      .purpose = "five bytes in place of the ring's colour, width and edge"}}),
                .modes = {"horizontal bars", "vertical bars", "circles outward", "circles inward",
                          "ring outward", "ring inward"},
                .beginWith = {{"inputFadeStatus", 0.45},
                              {"inputDivisions", 5},
                              {"inputBlur", 0.2},
                              {"inputRingWidth", 1.2},
                              {"inputRingEdge", 0.02}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage), target(inputTargetImage);
        const int mode = std::max(0, clampedMode(inputMode, 5));
        const RegionOfInterest reads = transitionReads(inputTargetImage, source.extent());
        if (mode < 4)
            return kernels[mode].applyWithExtent(
                source.extent(), reads,
                {source, target, inputFadeStatus, inputDivisions, inputBlur});
        const Ring ring = ringAsSet();
        return kernels[mode].applyWithExtent(source.extent(), reads,
                                             {source, target, inputFadeStatus, ring.edge, ring.red,
                                              ring.green, ring.blue, ring.width, ring.edge});
    }

    CIImage inputImage, inputTargetImage;
    Number inputMode, inputDivisions, inputBlur, inputFadeStatus, inputRed, inputGreen, inputBlue,
        inputRingWidth, inputRingEdge;
    Data inputData;
    VORN_FILTER(VEXFWipes, inputImage, inputTargetImage, inputMode, inputDivisions, inputBlur,
                inputFadeStatus, inputRed, inputGreen, inputBlue, inputRingWidth, inputRingEdge,
                inputData)

private:
    struct Ring {
        float red, green, blue, width, edge;
    };
    /// The data over the inputs; of less than five bytes it is as if there were none.
    Ring ringAsSet() const {
        if (!inputData || inputData->size() < 5)
            return {inputRed.floatValue(), inputGreen.floatValue(), inputBlue.floatValue(),
                    inputRingWidth.floatValue(), inputRingEdge.floatValue()};
        const auto share = [&](size_t i) { return (*inputData)[i] / 255.0; };
        return {static_cast<float>(share(0)), static_cast<float>(share(1)),
                static_cast<float>(share(2)), static_cast<float>(share(3) + 1),
                static_cast<float>(share(4) * 0.5)};
    }

    static constexpr std::string_view kFunctions[] = {
        "VEXFWipes_horizontalBars", "VEXFWipes_verticalBars",
        "VEXFWipes_circleBars",     "VEXFWipes_circleBarsReverse",
        "VEXFWipes_circleBarsRing", "VEXFWipes_circleBarsRingReverse"};
    inline static CIKernel kernels[std::size(kFunctions)];
};
VORN_REGISTER(VEXFWipes)
