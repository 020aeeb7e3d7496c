// Moving matte: makes a layer transparent by a channel of a matte that is moved and scaled.
// Controls count from 0 to 255 and rest at 127; modes from 100 on double their range.
#include "filters/keying/Mattes.h"
#include "platform/Messages.h"

class VE_AlphaMatteFromLayerXY : public CIFilter {
public:
    VE_AlphaMatteFromLayerXY() {
        loadKernels<VE_AlphaMatteFromLayerXY>(kernels, "VE_AlphaMatteFromLayerXYFilterKernel",
                                              kFunctions);
    }

    static Attributes customAttributes() {
        // The switch, input1, is not advertised, and none of these defaults is its control's rest.
        constexpr ScalarRange range{.sliderMax = 255, .standard = 80};
        return {scalar("input2", "Mode", range), scalar("input3", "Scale", range),
                scalar("input4", "X Position", range), scalar("input5", "Y Position", range)};
    }

    static FilterGuide guide() {
        std::vector<ModeGuide> modes = channelModes();
        for (const ModeGuide& mode : channelModes(kDoubled))
            modes.emplace_back((mode.name + ", double range").c_str(), mode.value);
        return {
            .title = "Moving matte",
            .sentence = "Cuts a layer out by the brightness, a colour or the alpha of a matte that "
                        "can be moved and scaled.",
            .tags = {"matte", "mask", "layer", "transparency", "position"},
            .frameKey = "inputLayerImage",
            .inputs = {{.key = "inputMatteImage",
                        .purpose = "the matte, stretched over the layer; the layer itself where "
                                   "there is none"},
                       {.key = "input1",
                        .label = "on",
                        .purpose = "1 cuts the layer out, 0 leaves it as it is",
                        .from = 0,
                        .to = 1,
                        .start = 1.0},
                       {.key = "input2", .start = 0.0},
                       {.key = "input3",
                        .purpose = "the size of the matte; its own at 127",
                        .start = 127.0},
                       {.key = "input4",
                        .purpose = "how far the matte moves to the right; at rest at 127",
                        .start = 127.0,
                        .unit = "pixels"},
                       {.key = "input5",
                        .purpose = "how far the matte moves up; at rest at 127",
                        .start = 127.0,
                        .unit = "pixels"}},
            .modeKey = "input2",
            .modes = modes,
            .beginWith = {
                {"input1", 1}, {"input2", 0}, {"input3", 133}, {"input4", 150}, {"input5", 115}}};
    }

    CIImage outputImage() override {
        if (input1.unsignedIntValue() == 0) return inputLayerImage;
        if (area(inputLayerImage) > kArea4320x4320 || area(inputMatteImage) > kArea4320x4320)
            return errorImage.imageFor("FX 094");
        const int mode = input2.intValue();
        const bool isDoubled = mode >= kDoubled;
        const float range = isDoubled ? 2.0f : 1.0f;
        const CISampler layer(inputLayerImage);
        CISampler matte(inputMatteImage);
        if (!matte) {
            report(Severity::Warning, "### VE_AlphaMatteFromLayerXY - no matte!");
            matte = layer;
        }
        const CIVector offset(fromRest(input4) * range, fromRest(input5) * range);
        const float scale = matteScale(input3, range);
        return kernelForMode(kernels, isDoubled ? mode - kDoubled : mode)
            .applyWithExtent(layer.extent(), allAndAPixel(layer, matte),
                             {layer, matte, scale, offset, halfOf(scale)});
    }

    CIImage inputLayerImage, inputMatteImage;
    Number input1, input2, input3, input4, input5;
    VORN_FILTER(VE_AlphaMatteFromLayerXY, inputLayerImage, inputMatteImage, input1, input2, input3,
                input4, input5)

private:
    /// From this mode on the range is doubled.
    static constexpr int kDoubled = 100;
    static constexpr std::string_view kFunctions[] = {
        "VE_AlphaMatteFromLayerXY_multiplyLumaXY",  "VE_AlphaMatteFromLayerXY_multiplyInvLumaXY",
        "VE_AlphaMatteFromLayerXY_multiplyRedXY",   "VE_AlphaMatteFromLayerXY_multiplyInvRedXY",
        "VE_AlphaMatteFromLayerXY_multiplyGreenXY", "VE_AlphaMatteFromLayerXY_multiplyInvGreenXY",
        "VE_AlphaMatteFromLayerXY_multiplyBlueXY",  "VE_AlphaMatteFromLayerXY_multiplyInvBlueXY",
        "VE_AlphaMatteFromLayerXY_multiplyAlphaXY", "VE_AlphaMatteFromLayerXY_multiplyInvAlphaXY"};
    inline static CIKernel kernels[std::size(kFunctions)];
    ErrorImage errorImage;
};
VORN_REGISTER(VE_AlphaMatteFromLayerXY)
