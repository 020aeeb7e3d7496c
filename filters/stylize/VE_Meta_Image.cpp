// Meta image: redraws the image as a mosaic of tiles from a second one, chosen by brightness.
#include "filters/stylize/Cells.h"

class VE_Meta_Image : public CIFilter {
public:
    VE_Meta_Image() {
        loadKernel<VE_Meta_Image>(kernel, "VE_Meta_ImageFilterKernel",
                                  "VE_Meta_Image_metaImageOne");
    }

    static Attributes customAttributes() {
        // The defaults are below their minimum; the keys of the saturation and of the steps speak
        // of something else.
        constexpr ScalarRange pixels{.min = 1, .sliderMin = 1, .sliderMax = 800};
        return {mixer(),
                scalar("inputScale", "Scale", {.min = 1, .sliderMin = 1, .sliderMax = 100}),
                scalar("inputDesaturate", "Saturation", {}),
                scalar("inputSize", "Steps", {.min = 1, .sliderMin = 1, .sliderMax = 50}),
                scalar("inputWidth", "Width", pixels),
                scalar("inputHeight", "Height", pixels)};
    }

    static FilterGuide guide() {
        return {
            .title = "Mosaic of tiles",
            .sentence =
                "Redraws the picture as a mosaic of tiles from a second one, chosen by brightness.",
            .tags = {"photomosaic", "tiles", "mosaic"},
            .inputs = {{.key = "inputMetaImage",
                        .label = "tiles",
                        .purpose = "where the tiles lie, row by row from the upper left, for the "
                                   "darkest first"},
                       {.key = "inputScale", .purpose = "tiles across the frame; 40 below 1"},
                       {.key = "inputDesaturate",
                        .purpose = "from grey to the colours of the picture and of the tiles"},
                       {.key = "inputSize", .purpose = "steps of brightness, with a tile for each"},
                       {.key = "inputWidth",
                        .purpose = "how wide a tile is in its picture, which is divided evenly "
                                   "among the steps below 1",
                        .unit = "pixels"},
                       {.key = "inputHeight",
                        .purpose = "how high a tile is in its picture",
                        .unit = "pixels"}},
            .beginWith = {{"inputScale", 40}, {"inputDesaturate", 1}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage), tiles(inputMetaImage);
        if (areaInSinglePrecision(inputImage) > kArea4320x4320 ||
            areaInSinglePrecision(inputMetaImage) > kArea4320x4320)
            return errorImage.imageFor("FX 176");
        const float scale = inputMixer.floatValue() == 0 ? 1.0f : inputScale.floatValue();
        const float width = inputWidth.floatValue(), height = inputHeight.floatValue();
        const CGRect frame = source.extent(), there = tiles.extent();
        // The kernel's cells, which have the proportions of its tiles.
        const double cellWidth = frame.width / (scale < 1 ? kStandardTiles : scale);
        const double cellHeight =
            cellWidth * (height < 1 ? there.height : height) / (width < 1 ? there.width : width);
        const CIImage mosaic =
            kernel
                .applyWithExtent(frame, RegionOfInterest::wholeByIndex(frame, there),
                                 {source, tiles, inputMixer, scale, inputDesaturate.floatValue(),
                                  width, height, inputSize.floatValue()})
                .imageWithReduction(reductionForCells(static_cast<float>(cellWidth)),
                                    reductionForCells(static_cast<float>(cellHeight)));
        return inputMixer.floatValue() == 0 ? mosaic.imageKnownToEqual(inputImage) : mosaic;
    }

    CIImage inputImage, inputMetaImage;
    Number inputScale, inputDesaturate, inputSize, inputWidth, inputHeight, inputMixer;
    VORN_FILTER(VE_Meta_Image, inputImage, inputMetaImage, inputScale, inputDesaturate, inputSize,
                inputWidth, inputHeight, inputMixer)

private:
    static constexpr double kStandardTiles = 40; ///< across
    inline static CIKernel kernel;
    ErrorImage errorImage;
};
VORN_REGISTER(VE_Meta_Image)
