// Layer blend: fades the image out towards one or two sides, so that layers blend into each other.
#include "core/FilterSupport.h"

class VELayerBlend : public CIFilter {
public:
    VELayerBlend() { loadKernels<VELayerBlend>(kernels, "VE_LayerBlendFilterKernel", kFunctions); }

    static Attributes customAttributes() {
        return {scalar("inputMode", "mode", {.sliderMax = 8}), // goes beyond the last mode
                scalar("inputSizeA", "size A", {}),
                scalar("inputEdgeA", "edge A", {}),
                scalar("inputSizeB", "size B", {}),
                scalar("inputEdgeB", "edge B", {}),
                scalar("inputAngle", "angle", {.sliderMax = 255})};
    }

    static FilterGuide guide() {
        return {
            .title = "Layer blend",
            .sentence = "Fades the picture out towards one or two of its sides, along soft edges "
                        "that may lean, so that layers blend into each other.",
            .tags = {"blend", "soft edge", "fade", "layers", "mask"},
            .inputs =
                {{.key = "inputSizeA",
                  .purpose = "how far the fade has moved in; in the modes \"each its own\" on the "
                             "left or at the top"},
                 {.key = "inputEdgeA", .purpose = "how wide it is; at 1 as wide as its way"},
                 {.key = "inputSizeB",
                  .purpose =
                      "the same on the right or at the bottom, in the modes \"each its own\""},
                 {.key = "inputEdgeB", .purpose = "the same for its width"},
                 {.key = "inputAngle",
                  .purpose =
                      "leans clockwise above 127, the other way below; 0 is upright as well"}},
            .modes = {"left", "right", "top", "bottom", "left and right", "top and bottom",
                      "left and right, each its own", "top and bottom, each its own"},
            .beginWith = {{"inputSizeA", 0.4},
                          {"inputEdgeA", 0.4},
                          {"inputSizeB", 0.2},
                          {"inputEdgeB", 0.1},
                          {"inputAngle", 160}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        return kernelForMode(kernels, inputMode)
            .applyWithExtent(source.extent(), RegionOfInterest::identity(),
                             {source, inputSizeA.floatValue(), inputEdgeA.floatValue(),
                              inputSizeB.floatValue(), inputEdgeB.floatValue(), lean()});
    }

    CIImage inputImage;
    Number inputMode, inputSizeA, inputEdgeA, inputSizeB, inputEdgeB, inputAngle;
    VORN_FILTER(VELayerBlend, inputImage, inputMode, inputSizeA, inputEdgeA, inputSizeB, inputEdgeB,
                inputAngle)

private:
    /// From -1 to 1 over the slider, whose 0 stays 0; less where one edge leans alone.
    float lean() const {
        float angle = inputAngle.floatValue();
        if (angle > 0) angle = static_cast<float>(double(angle) / 127 - 1);
        const int mode = clampedMode(inputMode, 7);
        if (mode < 2) return angle * 0.5f;
        return mode < 4 ? static_cast<float>(angle * 0.736) : angle;
    }

    static constexpr std::string_view kFunctions[] = {
        "VE_LayerBlend_leftAngle",         "VE_LayerBlend_rightAngle",
        "VE_LayerBlend_topAngle",          "VE_LayerBlend_bottomAngle",
        "VE_LayerBlend_leftRight",         "VE_LayerBlend_topBottom",
        "VE_LayerBlend_leftRightSeparate", "VE_LayerBlend_topBottomSeparate"};
    inline static CIKernel kernels[std::size(kFunctions)];
};
VORN_REGISTER(VELayerBlend)
