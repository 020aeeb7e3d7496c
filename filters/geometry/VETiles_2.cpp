// Tiles 2: repeats the image in a grid, with a count and a spacing for each direction.
#include "filters/geometry/SmallCopies.h"

class VETiles_2 : public CIFilter {
public:
    VETiles_2() { loadKernel<VETiles_2>(kernel, "VE_Tiles_2FilterKernel", "VE_Tiles_2_tiles2"); }

    static Attributes customAttributes() {
        constexpr ScalarRange range{.min = 1, .sliderMin = 1, .sliderMax = 100, .standard = 1};
        return {scalar("inputXdiv", "H divisions", range),
                scalar("inputYdiv", "V divisions", range),
                scalar("inputXoffset", "H spacing", range),
                scalar("inputYoffset", "V spacing", range), mixer()};
    }

    static FilterGuide guide() {
        return {.title = "Tiles with spacing",
                .sentence = "Repeats the picture in a grid, with a number and a spacing of tiles "
                            "for each direction.",
                .tags = {"repeat", "grid", "multiply", "gaps"},
                .inputs = {{.key = "inputXdiv", .purpose = "tiles across"},
                           {.key = "inputYdiv", .purpose = "tiles up"},
                           {.key = "inputXoffset",
                            .purpose = "hundredths of a tile that stay clear across, none at 1"},
                           {.key = "inputYoffset",
                            .purpose = "hundredths of a tile that stay clear upwards, none at 1"}},
                .beginWith = {
                    {"inputXdiv", 3}, {"inputYdiv", 2}, {"inputXoffset", 4}, {"inputYoffset", 6}}};
    }

    CIImage outputImage() override {
        if (area(inputImage) > kFixedArea23764000) return errorImage.imageFor("FX 128");
        const CISampler source(inputImage);
        const CIImage tiles =
            kernel
                .applyWithExtent(source.extent(), RegionOfInterest::whole(source),
                                 {KernelArgument::orNothing(source), inputMixer, inputXdiv,
                                  inputYdiv, inputXoffset, inputYoffset})
                .imageWithReduction(smaller(inputXdiv, inputXoffset),
                                    smaller(inputYdiv, inputYoffset));
        const float mix = inputMixer.floatValue();
        if (!liesOnPixels(source.extent())) return tiles;
        if (mix >= 0 && mix <= 1 &&
            std::max({inputXdiv.floatValue(), inputYdiv.floatValue(), inputXoffset.floatValue(),
                      inputYoffset.floatValue()}) <= 1)
            return tiles.imageKnownToEqual(inputImage);
        if (mix != 1) return tiles;
        return tiles.imageWithPeriod(periodOfTiles(source.extent().width, inputXdiv),
                                     periodOfTiles(source.extent().height, inputYdiv));
    }

    CIImage inputImage;
    Number inputXdiv, inputYdiv, inputXoffset, inputYoffset, inputMixer;
    VORN_FILTER(VETiles_2, inputImage, inputXdiv, inputYdiv, inputXoffset, inputYoffset, inputMixer)

private:
    /// How many times smaller a tile is than the picture: a spacing above 1 takes hundredths away.
    static int smaller(const Number& divisions, const Number& spacing) {
        const float left = 1 - 0.01f * std::clamp(spacing.floatValue() - 1, 0.0f, 99.0f);
        return reductionForCopies(std::max(divisions.floatValue(), 1.0f) / left);
    }

    inline static CIKernel kernel;
    ErrorImage errorImage;
};
VORN_REGISTER(VETiles_2)
