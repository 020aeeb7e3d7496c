// Drop shadow towards a corner: a shadow of the image's alpha under it.
#include "filters/shapes/Shadows.h"

class VEDropShadow2 : public CIFilter {
public:
    VEDropShadow2() {
        loadKernels<VEDropShadow2>(kernels, "VE_DropShadow2FilterKernel", kFunctions);
    }

    static Attributes customAttributes() {
        return {scalar("inputMode", "Mode", {.sliderMax = 255}), scalar("inputLevel", "Level", {})};
    }

    static FilterGuide guide() {
        return {.title = "Drop shadow to a corner",
                .sentence = "Lays a soft black shadow under a picture that is transparent in "
                            "places, towards one of the corners; under an opaque one there is "
                            "nothing to see.",
                .tags = {"shadow", "depth", "transparency", "title"},
                .inputs = {{.key = "inputMode", .purpose = "where the shadow falls"},
                           {.key = "inputLevel", .purpose = "how dark the shadow is; none at 0"}},
                .modes = {{"bottom right", 0},
                          {"bottom left", 64},
                          {"top left", 128},
                          {"top right", 192}},
                .needsTransparency = true,
                .beginWith = {{"inputLevel", 0.7}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        const CGRect extent = source.extent();
        return softShadow(kernels[corner()].applyWithExtent(extent, shadowReads(),
                                                            {source, inputMode, inputLevel}),
                          0.01 * std::min(extent.width, extent.height), inputLevel);
    }

    CIImage inputImage;
    Number inputMode, inputLevel;
    VORN_FILTER(VEDropShadow2, inputImage, inputMode, inputLevel)

private:
    /// Four steps of 64; the first again beyond them.
    size_t corner() const {
        const float mode = inputMode.floatValue();
        if (!(mode >= 64 && mode < 256)) return 0;
        return static_cast<size_t>(mode / 64);
    }

    static constexpr std::string_view kFunctions[] = {
        "VE_DropShadow2_bottomRight", "VE_DropShadow2_bottomLeft", "VE_DropShadow2_topLeft",
        "VE_DropShadow2_topRight"};
    inline static CIKernel kernels[std::size(kFunctions)];
};
VORN_REGISTER(VEDropShadow2)
