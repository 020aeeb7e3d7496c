// Repeats: copies of the image in thirteen layouts, with a scale, a count and an offset between
// them.
#include "filters/geometry/SmallCopies.h"

class VE_Repeats : public CIFilter {
public:
    VE_Repeats() { loadKernels<VE_Repeats>(kernels, "VE_RepeatsFilterKernel", kFunctions); }

    static Attributes customAttributes() {
        constexpr ScalarRange offset{.sliderMax = 8, .standard = 1};
        return {scalar("inputMode", "mode", {.sliderMax = 255, .standard = 1}),
                scalar("inputScale", "scale", {.sliderMin = 1, .sliderMax = 64, .standard = 1}),
                scalar("inputRepeats", "repeats", {.sliderMax = 255, .standard = 1}),
                scalar("inputOffsetX", "offsetX", offset),
                scalar("inputOffsetY", "offsetY", offset)};
    }

    static FilterGuide guide() {
        return {
            .title = "Repeats",
            .sentence =
                "Draws smaller copies of the picture in a row, in a grid or along the diagonals.",
            .tags = {"copies", "grid", "row", "multiply"},
            .inputs =
                {{.key = "inputScale", .purpose = "how many times smaller a copy is"},
                 {.key = "inputRepeats",
                  .purpose =
                      "how many copies follow the first one; a fraction fades the last one in"},
                 {.key = "inputOffsetX", .purpose = "step between copies across"},
                 {.key = "inputOffsetY", .purpose = "step between copies upwards"}},
            .modes = {"from the middle", "from the middle, both ways", "grid", "staggered grid",
                      "diagonals", "from the lower left corner", "from the lower edge",
                      "from the lower right corner", "from the left edge", "from the right edge",
                      "from the upper left corner", "from the upper edge",
                      "from the upper right corner"},
            .beginWith = {{"inputMode", 4},
                          {"inputScale", 5},
                          {"inputRepeats", 2},
                          {"inputOffsetX", 0.9},
                          {"inputOffsetY", 0.9}}};
    }

    CIImage outputImage() override {
        if (areaInSinglePrecision(inputImage) > kArea4320x4320)
            return errorImage.imageFor("FX 139");
        const int mode = clampedMode(inputMode, static_cast<int>(std::size(kLayouts)) - 1);
        if (mode < 0) return inputImage;
        const CISampler source(inputImage);
        const Layout& layout = kLayouts[mode];
        const int smaller = reductionForCopies(inputScale.floatValue());
        return kernels[mode]
            .applyWithExtent(source.extent(), RegionOfInterest::whole(source),
                             {KernelArgument::orNothing(source), inputScale, inputRepeats,
                              static_cast<float>(layout.x.factor *
                                                 (inputOffsetX.floatValue() - layout.x.center)),
                              static_cast<float>(layout.y.factor *
                                                 (inputOffsetY.floatValue() - layout.y.center))})
            .imageWithReduction(smaller, smaller);
    }

    CIImage inputImage;
    Number inputMode, inputScale, inputRepeats, inputOffsetX, inputOffsetY;
    VORN_FILTER(VE_Repeats, inputImage, inputMode, inputScale, inputRepeats, inputOffsetX,
                inputOffsetY)

private:
    /// The offsets that a kernel gets: factor * (offset - center). A centred control rests at
    /// 127/255.
    struct Axis {
        double factor, center;
    };
    struct Layout {
        Axis x, y;
    };
    static constexpr double kMiddle = 0.4980392157;
    static constexpr Layout kLayouts[] = {
        {{8, kMiddle}, {8, kMiddle}},
        {{8, kMiddle}, {8, kMiddle}},
        {{4, 0}, {4, 0}},
        {{4, 0}, {4, 0}},
        {{4, 0}, {4, 0}},
        {{4, 0}, {4, 0}},
        {{4, kMiddle}, {4, 0}},
        {{-4, 0}, {4, 0}},
        {{4, 0}, {4, kMiddle}},
        {{-4, 0}, {4, kMiddle}},
        {{4, 0}, {-4, 0}},
        {{4, kMiddle}, {-4, 0}},
        {{-4, 0}, {-4, 0}},
    };
    static constexpr std::string_view kFunctions[] = {
        "VE_Repeats_repeats1",  "VE_Repeats_repeats2",  "VE_Repeats_repeats3",
        "VE_Repeats_repeats4",  "VE_Repeats_repeats5",  "VE_Repeats_repeats6",
        "VE_Repeats_repeats7",  "VE_Repeats_repeats8",  "VE_Repeats_repeats9",
        "VE_Repeats_repeats10", "VE_Repeats_repeats11", "VE_Repeats_repeats12",
        "VE_Repeats_repeats13"};
    static_assert(std::size(kFunctions) == std::size(kLayouts));
    inline static CIKernel kernels[std::size(kFunctions)];
    ErrorImage errorImage;
};
VORN_REGISTER(VE_Repeats)
