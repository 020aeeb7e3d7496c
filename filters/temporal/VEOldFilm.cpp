// Old film: a worn print, with scratches, dust, stains and unsteady light.
#include "filters/shared/Motion.h"

class VEOldFilm : public CIFilter {
public:
    VEOldFilm() { loadKernel<VEOldFilm>(kernel, "VE_OldFilmFilterKernel", "VE_OldFilm_oldFilm"); }

    static Attributes customAttributes() {
        return {mixer(),
                scalar("inputSpacing", "spacing",
                       {.min = 0.1, .sliderMin = 0.1, .sliderMax = 10, .standard = 1}),
                scalar("inputScratchWidth", "scratch width", {.sliderMax = 10, .standard = 1}),
                scalar("inputBackgroundNoise", "background noise", {.sliderMax = 0.05}),
                scalar("inputScale", "scale",
                       {.min = 10, .sliderMin = 10, .sliderMax = 100, .standard = 10})};
    }

    static FilterGuide guide() {
        return {.title = "Old film",
                .sentence = "Ages the picture into a worn print, with scratches, dust, stains and "
                            "flickering light.",
                .tags = {"film", "retro", "scratches", "dust", "flicker"},
                .inputs = {{.key = "inputSpacing",
                            .purpose = "how far apart scratches and dust are; most of them at 0.1"},
                           {.key = "inputScratchWidth",
                            .purpose = "how wide scratches are; there are none at 0"},
                           {.key = "inputBackgroundNoise", .isDead = true},
                           {.key = "inputScale", .purpose = "how large stains are, in pixels"}},
                .movesByItself = true,
                .keepsState = true,
                .canFlash = true};
    }

    CIImage outputImage() override {
        // Of nanoseconds and not of seconds: each frame is another one for the least unsteadiness
        // of the clock.
        const auto phase = static_cast<float>(VornEffectsMod2pi(clock.nanoseconds()));
        const CISampler source(inputImage);
        const CISampler noise(blotches(source.extent().width, source.extent().height));
        return kernel.applyWithExtent(
            source.extent(), RegionOfInterest::identity(),
            {KernelArgument::orNothing(source), noise, inputMixer, phase, inputSpacing,
             static_cast<float>(inputScratchWidth.doubleValue() * 1e-5), 0.0});
    }

    CIImage inputImage;
    Number inputMixer, inputSpacing, inputScratchWidth;
    Number inputBackgroundNoise; ///< advertised, and never read
    Number inputScale;
    VORN_FILTER(VEOldFilm, inputImage, inputMixer, inputSpacing, inputScratchWidth,
                inputBackgroundNoise, inputScale)

private:
    /// Coarse grey noise, the same in every frame.
    CIImage blotches(double width, double height) {
        CIFilter& grey = chained(monochrome, "CIColorMonochrome");
        grey.setValueForKey(chained(generator, "CIRandomGenerator").outputImage(), "inputImage");
        grey.setValueForKey(CIColor(0.75, 0.75, 0.75), "inputColor");
        grey.setValueForKey(Number(1.0), "inputIntensity");
        CIFilter& stretched = chained(scale, "CILanczosScaleTransform");
        stretched.setValueForKey(grey.outputImage(), "inputImage");
        stretched.setValueForKey(inputScale, "inputScale");
        stretched.setValueForKey(Number(1.0), "inputAspectRatio");
        CIFilter& cropped = chained(crop, "CICrop");
        cropped.setValueForKey(stretched.outputImage(), "inputImage");
        cropped.setValueForKey(CIVector(0, 0, width, height), "inputRectangle");
        return cropped.outputImage();
    }

    inline static CIKernel kernel;
    CIFilterRef generator, monochrome, scale, crop;
    FrameClock clock = FrameClock::fromZero();
};
VORN_REGISTER(VEOldFilm)
