// Tiles: repeats the image in an N-by-N grid.
#include "filters/geometry/SmallCopies.h"

class VETiles : public CIFilter {
public:
    VETiles() { loadKernel<VETiles>(kernel, "VE_TilesFilterKernel", "VE_Tiles_tiles1"); }

    static Attributes customAttributes() {
        return {scalar("inputDivisions", "divisions",
                       {.min = 1, .sliderMin = 1, .sliderMax = 16, .standard = 4}),
                mixer()};
    }

    static FilterGuide guide() {
        return {.title = "Tiles",
                .sentence = "Repeats the picture in a grid of as many tiles across as up.",
                .tags = {"repeat", "grid", "multiply"},
                .inputs = {{.key = "inputDivisions", .purpose = "tiles across and up"}}};
    }

    CIImage outputImage() override {
        if (area(inputImage) > kFixedArea23764000) return errorImage.imageFor("FX 127");
        const CISampler source(inputImage);
        const int smaller = reductionForCopies(inputDivisions.floatValue());
        const CIImage tiles =
            kernel
                .applyWithExtent(source.extent(), RegionOfInterest::whole(source),
                                 {KernelArgument::orNothing(source), inputMixer, inputDivisions})
                .imageWithReduction(smaller, smaller);
        const float mix = inputMixer.floatValue();
        if (!liesOnPixels(source.extent())) return tiles;
        if (inputDivisions.floatValue() <= 1 && mix >= 0 && mix <= 1)
            return tiles.imageKnownToEqual(inputImage);
        if (mix != 1) return tiles;
        return tiles.imageWithPeriod(periodOfTiles(source.extent().width, inputDivisions),
                                     periodOfTiles(source.extent().height, inputDivisions));
    }

    CIImage inputImage;
    Number inputDivisions, inputMixer;
    VORN_FILTER(VETiles, inputImage, inputDivisions, inputMixer)

private:
    inline static CIKernel kernel;
    ErrorImage errorImage;
};
VORN_REGISTER(VETiles)
