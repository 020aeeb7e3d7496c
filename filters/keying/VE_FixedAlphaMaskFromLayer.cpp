// Fixed mask: cuts a layer out by the alpha of a mask of its own size, which is scaled, moved and
// turned. The result is as large as the mask.
#include "filters/keying/Mattes.h"

#include <numbers>

class VE_FixedAlphaMaskFromLayer : public CIFilter {
public:
    VE_FixedAlphaMaskFromLayer() {
        loadKernel<VE_FixedAlphaMaskFromLayer>(kernel, "VE_FixedAlphaMaskFromLayerFilterKernel",
                                               "VE_FixedAlphaMaskFromLayer_fixedAlphaMask");
    }

    static Attributes customAttributes() {
        // Hosts show these names; what is read are input1 to input4.
        constexpr ScalarRange range{.sliderMax = 255, .standard = 127};
        return {constant("Scale", {.sliderMax = 255}), constant("X Position", range),
                constant("Y Position", range), constant("Rotation", range)};
    }

    static FilterGuide guide() {
        return {
            .title = "Fixed mask",
            .sentence = "Cuts a layer out by the alpha of a mask that keeps its own size and "
                        "can be scaled, moved and turned.",
            .tags = {"mask", "matte", "alpha", "layer", "rotation"},
            .frameKey = "inputLayerImage",
            .inputs = {{.key = "inputFixedMaskImage",
                        .purpose = "the mask; the result is as large as it is"},
                       control("input1", "scale", "the size of the mask; its own at 127"),
                       control("input2", "x position",
                               "how far the mask moves to the right, in pixels; at rest at 127"),
                       control("input3", "y position",
                               "how far the mask moves up, in pixels; at rest at 127"),
                       control("input4", "rotation",
                               "how far the mask turns, half anticlockwise from 127 to 254, "
                               "half clockwise down to 0"),
                       {.key = "Scale", .isDead = true},
                       {.key = "X Position", .label = "x position", .isDead = true},
                       {.key = "Y Position", .label = "y position", .isDead = true},
                       {.key = "Rotation", .isDead = true}},
            .beginWith = {{"input1", 127}, {"input2", 137}, {"input3", 127}, {"input4", 137}}};
    }

    CIImage outputImage() override {
        if (area(inputFixedMaskImage) > kArea4320x4320 || area(inputLayerImage) > kArea4320x4320)
            return errorImage.imageFor("FX 093");
        const CISampler mask(inputFixedMaskImage), layer(inputLayerImage);
        const float scale = matteScale(input1, 1);
        const auto rotation = static_cast<float>(fromRest(input4) / 127 * std::numbers::pi);
        return kernel.applyWithExtent(mask.extent(), allAndAPixel(mask, layer),
                                      {mask, layer, scale,
                                       CIVector(fromRest(input2), fromRest(input3)), halfOf(scale),
                                       rotation});
    }

    CIImage inputFixedMaskImage, inputLayerImage;
    Number input1, input2, input3, input4;
    VORN_FILTER(VE_FixedAlphaMaskFromLayer, inputFixedMaskImage, inputLayerImage, input1, input2,
                input3, input4)

private:
    static InputGuide control(const char* key, const char* label, const char* purpose) {
        return {
            .key = key, .label = label, .purpose = purpose, .from = 0, .to = 255, .start = 127.0};
    }

    inline static CIKernel kernel;
    ErrorImage errorImage;
};
VORN_REGISTER(VE_FixedAlphaMaskFromLayer)
