// Meta image 2: redraws the image as a mosaic of small copies of itself.
#include "filters/geometry/SmallCopies.h"
#include "filters/stylize/Cells.h"

class VE_Meta_Image2 : public CIFilter {
public:
    VE_Meta_Image2() {
        loadKernel<VE_Meta_Image2>(kernel, "VE_Meta_Image2FilterKernel",
                                   "VE_Meta_Image2_metaImageTwo");
    }

    static Attributes customAttributes() {
        // The defaults are below their minimum.
        constexpr ScalarRange range{.min = 1, .sliderMin = 1, .sliderMax = 100};
        return {mixer(), scalar("inputColorMix", "color mix", range),
                scalar("inputDivisor", "tile size", range)};
    }

    static FilterGuide guide() {
        return {
            .title = "Mosaic of itself",
            .sentence = "Redraws the picture as a mosaic of small copies of itself.",
            .tags = {"photomosaic", "tiles", "copies"},
            .inputs = {{.key = "inputColorMix",
                        .purpose = "how much a copy takes on the colour of its place; 75 below 1",
                        .unit = "percent"},
                       {.key = "inputDivisor",
                        .purpose =
                            "how large a copy is; its longer side, a 40th of the frame's below 1",
                        .unit = "pixels"}},
            .beginWith = {{"inputColorMix", 75}, {"inputDivisor", 48}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        if (areaInSinglePrecision(inputImage) > kArea4320x4320)
            return errorImage.imageFor("FX 193");
        const float tile = inputDivisor.floatValue();
        const CGRect extent = source.extent();
        const double longer = std::max(extent.width, extent.height);
        const double perTile = longer / (tile < 1 ? longer / kStandardCopies : tile);
        // A copy asks for coarse means, the colour of its place for some no larger than that.
        const auto smaller = [&](double length) {
            return std::min(reductionForCopies(static_cast<float>(perTile)),
                            timesSmaller(static_cast<float>(length / perTile)));
        };
        const CIImage copies =
            kernel
                .applyWithExtent(extent, RegionOfInterest::whole(source),
                                 {source, CIVector(tile, tile), inputColorMix, inputMixer})
                .imageWithReduction(smaller(extent.width), smaller(extent.height));
        return inputMixer.floatValue() == 0 ? copies.imageKnownToEqual(inputImage) : copies;
    }

    CIImage inputImage;
    Number inputDivisor, inputColorMix, inputMixer;
    VORN_FILTER(VE_Meta_Image2, inputImage, inputDivisor, inputColorMix, inputMixer)

private:
    static constexpr double kStandardCopies = 40; ///< along the longer side
    inline static CIKernel kernel;
    ErrorImage errorImage;
};
VORN_REGISTER(VE_Meta_Image2)
