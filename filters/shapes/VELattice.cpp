// Lattice: cuts a lattice of lines out of the image, or keeps nothing else.
#include "core/FilterSupport.h"

class VELattice : public CIFilter {
public:
    VELattice() { loadKernels<VELattice>(kernels, "VE_LatticeFilterKernel", kFunctions); }

    static Attributes customAttributes() {
        return {mixer(), scalar("inputMode", "mode", {.sliderMax = 2}),
                scalar("inputSegments", "segments",
                       {.min = 1, .sliderMin = 1, .sliderMax = 80, .standard = 1}),
                scalar("inputThickness", "thickness", {.sliderMax = 3})};
    }

    static FilterGuide guide() {
        return {.title = "Lattice",
                .sentence =
                    "Cuts a lattice of lines with square cells out of the picture, or keeps "
                    "nothing but the lines.",
                .tags = {"grid", "lattice", "lines", "mask"},
                .inputs = {{.key = "inputSegments", .purpose = "lines from top to bottom"},
                           {.key = "inputThickness",
                            .purpose = "how thick the lines are; at 3 they touch"}},
                .modes = {"cut out", "kept"},
                .beginWith = {{"inputSegments", 12}, {"inputThickness", 0.5}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        const CGRect extent = inputImage.extent();
        return kernelForMode(kernels, inputMode)
            .applyWithExtent(source.extent(), RegionOfInterest::identity(),
                             {source, inputMixer, inputSegments, inputThickness,
                              static_cast<float>(extent.width / extent.height)});
    }

    CIImage inputImage;
    Number inputMixer, inputMode, inputSegments, inputThickness;
    VORN_FILTER(VELattice, inputImage, inputMixer, inputMode, inputSegments, inputThickness)

private:
    static constexpr std::string_view kFunctions[] = {"VE_Lattice_negLattice",
                                                      "VE_Lattice_posLattice"};
    inline static CIKernel kernels[std::size(kFunctions)];
};
VORN_REGISTER(VELattice)
