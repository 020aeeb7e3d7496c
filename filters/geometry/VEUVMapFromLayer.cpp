// UV map from layer: a second picture tells by its red and green where each pixel of the frame
// comes from.
#include "core/FilterSupport.h"
#include "platform/Messages.h"

class VEUVMapFromLayer : public CIFilter {
public:
    VEUVMapFromLayer() {
        loadKernels<VEUVMapFromLayer>(kernels, "VE_UVMapFromLayerFilterKernel", kFunctions);
    }

    static Attributes customAttributes() {
        constexpr ScalarRange full{.standard = 1};
        return {scalar("inputParam_1", "param_1", full), scalar("inputParam_2", "param_2", full),
                scalar("inputParam_3", "param_3", full),
                scalar("inputMode", "mode", {.sliderMax = 14})};
    }

    static FilterGuide guide() {
        return {
            .title = "UV map",
            .sentence =
                "Wraps the picture by a map whose red tells how far from the left and whose "
                "green how far from the bottom each pixel comes.",
            .tags = {"uv", "remap", "stmap", "displacement", "projection"},
            .inputs = {{.key = "inputMaskImage",
                        .purpose = "the map, of 8 bits or better of 16-bit floats"},
                       {.key = "inputParam_1",
                        .label = "amount",
                        .purpose = "how far pixels go the way that the map says"},
                       {.key = "inputParam_2",
                        .label = "map across",
                        .purpose = "moves the map to left or right, at rest at 127/255; not in the "
                                   "first mode"},
                       {.key = "inputParam_3",
                        .label = "map up",
                        .purpose = "moves the map down or up, at rest at 127/255; not in the "
                                   "first mode"}},
            .modes = {"distort", "mapped", "mapped, left and right swapped", "mapped, upside down",
                      "mapped, turned by half", "with light", "with light, left and right swapped",
                      "with light, upside down", "with light, turned by half",
                      "with light and opacity", "with light and opacity, left and right swapped",
                      "with light and opacity, upside down",
                      "with light and opacity, turned by half"},
            .beginWith = {{"inputParam_2", kRest}, {"inputParam_3", kRest}}};
    }

    CIImage outputImage() override {
        if (area(inputImage) > kFixedArea23764000 || area(inputMaskImage) > kFixedArea23764000)
            return errorImage.imageFor("FX 092");
        const CGRect frame = inputImage.extent(), given = inputMaskImage.extent();
        if (frame.width == 0 || frame.height == 0) return inputImage;

        const CIVector scale(given.width / frame.width, given.height / frame.height);
        const int mode = std::max(0, clampedMode(inputMode, kLastMode));
        const CISampler source(inputImage);
        if (!inputMaskImage) report(Severity::Warning, "### VEUVMapFromLayer - no uv map!");
        const CISampler map(inputMaskImage ? inputMaskImage : inputImage);
        const auto reads =
            RegionOfInterest::wholeByIndex(frame.grownBy(1), map.extent().grownBy(1));
        if (mode == 0) {
            const CIImage distorted = kernels[1].applyWithExtent(
                source.extent(), reads, {source, map, scale, inputParam_1, CIVector(0, 0)});
            return inputParam_1.floatValue() == 0 ? distorted.imageKnownToEqual(inputImage)
                                                  : distorted;
        }
        const double x = -frame.width * (inputParam_2.floatValue() - kRest);
        const double y = -frame.height * (inputParam_3.floatValue() - kRest);
        const auto less = static_cast<float>(2 * (1 - inputParam_1.doubleValue()));
        // What is left of the map are its own pixels.
        const CIImage cleaned =
            kernels[0]
                .applyWithExtent(map.extent(), RegionOfInterest::whole(map), {map})
                .imageInBitsOfSources();
        return kernels[mode + 1].applyWithExtent(
            source.extent(), reads,
            {source, CISampler(cleaned), scale, less, CIVector(x, y), isYUV() ? 1.0f : 0.0f});
    }

    CIImage inputImage, inputMaskImage;
    Number inputParam_1, inputParam_2, inputParam_3, inputMode;
    VORN_FILTER(VEUVMapFromLayer, inputImage, inputMaskImage, inputParam_1, inputParam_2,
                inputParam_3, inputMode)

private:
    static constexpr double kRest = 0.4980392157; ///< 127 of 255
    static constexpr int kLastMode = 12;

    /// Whether the host marks the frame's channels as luma and two chromas.
    bool isYUV() const {
        const auto entry = inputImage.properties().find("is_yuv");
        if (entry == inputImage.properties().end()) return false;
        if (const bool* flag = std::get_if<bool>(&entry->second)) return *flag;
        const double* number = std::get_if<double>(&entry->second);
        return number && *number != 0;
    }

    static constexpr std::string_view kFunctions[] = {"VE_UVMapFromLayer_blackAlpha",
                                                      "VE_UVMapFromLayer_Distort_RG8",
                                                      "VE_UVMapFromLayer_Replace_RG_only",
                                                      "VE_UVMapFromLayer_Replace_RG_only_FlipH",
                                                      "VE_UVMapFromLayer_Replace_RG_only_FlipV",
                                                      "VE_UVMapFromLayer_Replace_RG_only_FlipHV",
                                                      "VE_UVMapFromLayer_Replace_RG_B",
                                                      "VE_UVMapFromLayer_Replace_RG_B_FlipH",
                                                      "VE_UVMapFromLayer_Replace_RG_B_FlipV",
                                                      "VE_UVMapFromLayer_Replace_RG_B_FlipHV",
                                                      "VE_UVMapFromLayer_Replace_RG_BA",
                                                      "VE_UVMapFromLayer_Replace_RG_BA_FlipH",
                                                      "VE_UVMapFromLayer_Replace_RG_BA_FlipV",
                                                      "VE_UVMapFromLayer_Replace_RG_BA_FlipHV"};
    inline static CIKernel kernels[std::size(kFunctions)];
    ErrorImage errorImage;
};
VORN_REGISTER(VEUVMapFromLayer)
