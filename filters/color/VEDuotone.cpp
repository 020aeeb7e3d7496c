// Duotone: draws the tones in two colours of a palette of eight. The mode goes through all ordered
// pairs.
#include "core/FilterSupport.h"

class VEDuotone : public CIFilter {
public:
    VEDuotone() {
        loadKernel<VEDuotone>(kernel, "VE_DuotoneFilterKernel", "VE_Duotone_simpleDuotone");
    }

    static Attributes customAttributes() {
        // The last of the 56 pairs has the mode 55; the slider goes one further.
        return {mixer(), scalar("inputMode", "mode", {.sliderMax = 56}),
                scalar("inputValue", "value", {.standard = 0.5})};
    }

    static FilterGuide guide() {
        return {.title = "Duotone",
                .sentence = "Draws the picture in two colours, one for dark tones and one for "
                            "bright ones.",
                .tags = {"duotone", "colour", "tone", "tint"},
                .inputs = {{.key = "inputValue",
                            .purpose = "the brightness at which both colours are equally strong"}},
                .modes = pairNames(),
                .beginWith = {{"inputMode", 19}}};
    }

    CIImage outputImage() override {
        const auto [one, two] = pair(std::max(0, clampedMode(inputMode, kPairs - 1)));
        const CISampler source(inputImage);
        return kernel.applyWithExtent(source.extent(), RegionOfInterest::identity(),
                                      {source, inputMixer, one.color, two.color, inputValue});
    }

    CIImage inputImage;
    Number inputMixer, inputMode, inputValue;
    VORN_FILTER(VEDuotone, inputImage, inputMixer, inputMode, inputValue)

private:
    struct NamedColor {
        std::string_view name;
        CIVector color;
    };
    static constexpr NamedColor kPalette[] = {{"red", {1, 0, 0, 1}},     {"green", {0, 1, 0, 1}},
                                              {"blue", {0, 0, 1, 1}},    {"cyan", {0, 1, 1, 1}},
                                              {"magenta", {1, 0, 1, 1}}, {"yellow", {1, 1, 0, 1}},
                                              {"white", {1, 1, 1, 1}},   {"black", {0, 0, 0, 1}}};
    static constexpr int kOthers = static_cast<int>(std::size(kPalette)) - 1;
    static constexpr int kPairs = (kOthers + 1) * kOthers;

    /// Each colour with each of the others, in the order of the palette.
    static std::pair<NamedColor, NamedColor> pair(int mode) {
        const int first = mode / kOthers, other = mode % kOthers;
        return {kPalette[first], kPalette[other >= first ? other + 1 : other]};
    }
    static std::vector<ModeGuide> pairNames() {
        std::vector<ModeGuide> names;
        for (int mode = 0; mode < kPairs; ++mode) {
            const auto [one, two] = pair(mode);
            names.emplace_back((std::string(one.name) + " to " + std::string(two.name)).c_str());
        }
        return names;
    }

    inline static CIKernel kernel;
};
VORN_REGISTER(VEDuotone)
