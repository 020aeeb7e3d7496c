// Dither: draws the picture in lit and dark cells by the thresholds of a pattern that the host
// gives.
#include "core/FilterSupport.h"

class VE_BayerDitherFromFile : public CIFilter {
public:
    VE_BayerDitherFromFile() {
        loadKernel<VE_BayerDitherFromFile>(kernel, "VE_BayerDitherFromFileFilterKernel",
                                           "VE_BayerDitherFromFile_bayerDither");
    }

    static Attributes customAttributes() {
        return {constant("inputScale", {.sliderMax = 255, .standard = 80}),
                constant("inputBrightness", {.sliderMax = 255, .standard = 127})};
    }

    static FilterGuide guide() {
        return {
            .title = "Bayer dither",
            .sentence = "Draws the picture in dots that are lit or dark, in the order of a "
                        "pattern.",
            .tags = {"dither", "halftone", "pattern", "retro"},
            .inputs = {{.key = "bayerImage",
                        .label = "pattern",
                        .purpose = "thresholds as shades of grey, such as a Bayer matrix of 8 by 8 "
                                   "pixels, given by the host; they repeat over the frame"},
                       {.key = "inputScale", .purpose = "the size of a dot, from 1 pixel to 16"},
                       {.key = "inputBrightness",
                        .purpose = "how much light there is; the picture's own at 127"}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage), pattern(bayerImage, {.filter = SamplerFilter::Linear});
        if (areaInSinglePrecision(inputImage) > kFixedArea23764000 ||
            areaInSinglePrecision(bayerImage) > kPatternArea)
            return errorImage.imageFor("FX 150");
        const float scale = fraction(inputScale),
                    brightness = 2 * fraction(inputBrightness) + 0.02f;
        return kernel.applyWithExtent(
            source.extent(), RegionOfInterest::wholeByIndex(pattern.extent(), source.extent()),
            {pattern, source, scale, brightness});
    }

    CIImage inputImage, bayerImage;
    Number inputScale, inputBrightness;
    VORN_FILTER(VE_BayerDitherFromFile, inputImage, bayerImage, inputScale, inputBrightness)

private:
    static constexpr double kPatternArea = 1024 * 1024;

    /// 0 to 4.
    static float fraction(const Number& control) { return control.floatValue() * 0.01568627451f; }

    inline static CIKernel kernel;
    ErrorImage errorImage;
};
VORN_REGISTER(VE_BayerDitherFromFile)
