// Zoom: the outgoing picture shrinks into the middle, or the incoming one grows out of it.
#include "filters/shared/Transition.h"

class VEXFZoom : public CIFilter {
public:
    VEXFZoom() { loadKernels<VEXFZoom>(kernels, "VEXFZoomFilterKernel", kFunctions); }

    static Attributes customAttributes() {
        return {scalar("inputMode", "mode", {.sliderMax = 2}),
                scalar("inputFadeStatus", "Time", {})};
    }

    static FilterGuide guide() {
        return {.title = "Zoom to the next picture",
                .sentence = "Shrinks the outgoing picture into the middle of the incoming one, or "
                            "lets the incoming one grow out of the middle.",
                .tags = {"zoom", "shrink", "grow"},
                .inputs = transitionGuides(),
                .modes = {"the outgoing picture shrinks", "the incoming picture grows"},
                .beginWith = {{"inputFadeStatus", 0.4}}};
    }

    CIImage outputImage() override {
        return movedBetween(kernelForMode(kernels, inputMode), inputImage, inputTargetImage,
                            inputFadeStatus);
    }

    CIImage inputImage, inputTargetImage;
    Number inputMode, inputFadeStatus;
    VORN_FILTER(VEXFZoom, inputImage, inputTargetImage, inputMode, inputFadeStatus)

private:
    static constexpr std::string_view kFunctions[] = {"VEXFZoom_zoomOut", "VEXFZoom_zoomIn"};
    inline static CIKernel kernels[std::size(kFunctions)];
};
VORN_REGISTER(VEXFZoom)
