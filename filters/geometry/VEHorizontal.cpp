// Smear: one row of the frame, or one column, over the whole picture.
#include "core/FilterSupport.h"

class VEHorizontal : public CIFilter {
public:
    VEHorizontal() { loadKernels<VEHorizontal>(kernels, "VE_HorizontalFilterKernel", kFunctions); }

    /// "inputRow" is advertised and "inputRowOrColumn" is read: hosts know both names.
    static Attributes customAttributes() {
        return {mixer(), scalar("inputMode", "mode", {.sliderMax = 3}),
                scalar("inputRow", "row", {})};
    }

    static FilterGuide guide() {
        return {.title = "Smear",
                .sentence = "Draws one row of the picture out over its whole height, or one column "
                            "over its whole width.",
                .tags = {"stretch", "streaks", "lines", "glitch"},
                .inputs = {{.key = "inputRowOrColumn",
                            .label = "row or column",
                            .purpose = "which row, from the top, or which column, from the left",
                            .from = 0,
                            .to = 1,
                            .start = 0.5},
                           {.key = "inputRow", .isDead = true}},
                .modes = {"a row, up and down", "a column, to both sides"},
                .beginWith = {{"inputRowOrColumn", 0.5}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        if (area(inputImage) > kFixedArea27559000)
            return errorImage.imageFor(inputMode.modeValue() == 0 ? "FX 114" : "FX 113");
        // There are modes to 3; those past the column are the column again.
        const bool isRow = clampedMode(inputMode, 1) <= 0;
        const double width = inputImage.extent().width, height = inputImage.extent().height;
        const float place = inputRowOrColumn.floatValue();
        // Ten units about the line, measured from (0, 0).
        const CGRect strip =
            isRow ? CGRect{0, static_cast<float>(height * (1 - place)) - 5.0, width, 10}
                  : CGRect{static_cast<float>(width * place) - 5.0, 0, 10, height};
        const CIImage smeared =
            kernels[isRow ? 0 : 1]
                .applyWithExtent(source.extent(), RegionOfInterest::whole(strip),
                                 {KernelArgument::orNothing(source), inputRowOrColumn})
                .imageWithPeriod(isRow ? 0 : 1, isRow ? 1 : 0);
        if (!smeared) return {};
        const CIImage mixed = kernels[kMixer].applyWithExtent(
            source.extent(), RegionOfInterest::grownBy(1),
            {KernelArgument::orNothing(source), CISampler(smeared), inputMixer});
        if (inputMixer.floatValue() == 0) return mixed.imageKnownToEqual(inputImage);
        return inputMixer.floatValue() == 1 ? mixed.imageKnownToEqual(smeared) : mixed;
    }

    CIImage inputImage;
    Number inputMixer, inputMode;
    Number inputRowOrColumn; ///< not advertised; 0 is the top or the left, 1 the other end
    VORN_FILTER(VEHorizontal, inputImage, inputMixer, inputMode, inputRowOrColumn)

private:
    static constexpr int kMixer = 2;
    static constexpr std::string_view kFunctions[] = {
        "VE_Horizontal_smearVertical", "VE_Horizontal_smearHorizontal", "VE_Horizontal_mixer"};
    inline static CIKernel kernels[std::size(kFunctions)];
    ErrorImage errorImage;
};
VORN_REGISTER(VEHorizontal)
