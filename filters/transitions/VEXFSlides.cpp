// Slides: the incoming picture slides over the outgoing one in strips, one after the other.
#include "filters/shared/Transition.h"

class VEXFSlides : public CIFilter {
public:
    VEXFSlides() { loadKernels<VEXFSlides>(kernels, "VEXFSlidesFilterKernel", kFunctions); }

    static Attributes customAttributes() {
        return {scalar("inputMode", "mode", {.sliderMax = 6}),
                scalar("inputDivisions", "divisions",
                       {.min = 1, .sliderMin = 1, .sliderMax = 128, .standard = 16, .identity = 1}),
                scalar("inputSpread", "spread",
                       {.min = 0.0001, .sliderMin = 0.0001, .standard = 0.1, .identity = 0.1}),
                scalar("inputFadeStatus", "Time", {})};
    }

    static FilterGuide guide() {
        return {.title = "Slide in strips",
                .sentence = "Slides the incoming picture over the outgoing one in strips, one "
                            "after the other.",
                .tags = {"slide", "strips", "blinds", "doors"},
                .inputs = transitionGuides(
                    {{.key = "inputDivisions", .purpose = "how many strips"},
                     {.key = "inputSpread",
                      .purpose = "from all strips at once to one after the other"}}),
                .modes = {"to the left", "from both sides", "down", "up", "from above and below",
                          "from all sides"},
                .beginWith = {{"inputFadeStatus", 0.45}, {"inputSpread", 0.5}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage), target(movable(inputTargetImage, source.extent()));
        return kernelForMode(kernels, inputMode)
            .applyWithExtent(source.extent(), RegionOfInterest::identity(),
                             {source, target, inputFadeStatus, inputDivisions, inputSpread});
    }

    CIImage inputImage, inputTargetImage;
    Number inputMode, inputDivisions, inputSpread, inputFadeStatus;
    VORN_FILTER(VEXFSlides, inputImage, inputTargetImage, inputMode, inputDivisions, inputSpread,
                inputFadeStatus)

private:
    static constexpr std::string_view kFunctions[] = {"VEXFSlides_xLeft",   "VEXFSlides_xCenter",
                                                      "VEXFSlides_yDown",   "VEXFSlides_yUp",
                                                      "VEXFSlides_yCenter", "VEXFSlides_xyCenter"};
    inline static CIKernel kernels[std::size(kFunctions)];
};
VORN_REGISTER(VEXFSlides)
