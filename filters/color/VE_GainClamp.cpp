// Gain clamp: three limits on 0 to 255. The first input is the mode: a threshold per channel, a
// clamp per channel, or a clamp of all channels with gains of saturation and value.
#include "core/FilterSupport.h"

class VE_GainClamp : public CIFilter {
public:
    VE_GainClamp() { loadKernels<VE_GainClamp>(kernels, "VE_GainClampFilterKernel", kFunctions); }

    static Attributes customAttributes() {
        constexpr ScalarRange range{.sliderMax = 255, .standard = 255};
        return {constant("input1", {.sliderMax = 255}), constant("input2", range),
                constant("input3", range), constant("input4", range)};
    }

    static FilterGuide guide() {
        return {.title = "Gain clamp",
                .sentence = "Pushes bright colours to full, cuts them off, or limits them and "
                            "scales saturation and brightness.",
                .tags = {"levels", "limit", "clip", "saturation"},
                .inputs = {{.key = "input1", .label = "mode"},
                           {.key = "input2",
                            .label = "red",
                            .purpose = "level of red; in the third mode the limit of all channels"},
                           {.key = "input3",
                            .label = "green",
                            .purpose = "level of green; in the third mode the saturation"},
                           {.key = "input4",
                            .label = "blue",
                            .purpose = "level of blue; in the third mode the brightness"}},
                .modeKey = "input1",
                .modes = {"bright colours to full", "bright colours cut off",
                          "limit, saturation and brightness"},
                .beginWith = {{"input2", 140}, {"input3", 140}, {"input4", 140}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        return kernelForMode(kernels, input1)
            .applyWithExtent(source.extent(), RegionOfInterest::identity(),
                             {source, fraction(input2), fraction(input3), fraction(input4)});
    }

    CIImage inputImage;
    Number input1, input2, input3, input4;
    VORN_FILTER(VE_GainClamp, inputImage, input1, input2, input3, input4)

private:
    static float fraction(const Number& control) { return control.floatValue() / 255.0f; }

    static constexpr std::string_view kFunctions[] = {
        "VE_GainClamp_gainThreshold", "VE_GainClamp_gainClamp", "VE_GainClamp_hybridHSVgainClamp"};
    inline static CIKernel kernels[std::size(kFunctions)];
};
VORN_REGISTER(VE_GainClamp)
