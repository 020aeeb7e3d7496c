// CRT: the picture on a cathode-ray tube, in three passes: phosphor triads, scan lines that roll
// with some noise in them, and the curve of the glass.
#include "filters/shared/Motion.h"

class VE_CRT : public CIFilter {
public:
    VE_CRT() {
        loadKernel<VE_CRT>(linesKernel, kLibrary, "VE_CRT_crtLines");
        loadKernel<VE_CRT>(triadsKernel, kLibrary, "VE_CRT_crtRGB");
        loadKernel<VE_CRT>(glassKernel, kLibrary, "VE_CRT_crtWarp");
    }

    static Attributes customAttributes() {
        return {
            constant("inputSpeed", {.sliderMax = 20, .standard = kAtRest}),
            constant("inputStripeHeight", {.standard = 0.5}),
            constant("inputSize", {.min = 2, .sliderMin = 2, .sliderMax = 6, .standard = 2}),
            constant("inputWarp", {.min = 2, .sliderMin = 2, .sliderMax = 6.5, .standard = 6.5}),
            constant("inputSpacing",
                     {.min = 20, .sliderMin = 20, .sliderMax = 200, .standard = 20})};
    }

    static FilterGuide guide() {
        return {
            .title = "CRT",
            .sentence = "Shows the picture on an old television tube, with phosphor dots, scan "
                        "lines and curved glass.",
            .tags = {"television", "screen", "retro", "scan lines", "curvature"},
            .inputs = {{.key = "inputSpeed",
                        .purpose = "how fast the lines roll: down above 10, up below it, and still "
                                   "at 10"},
                       {.key = "inputStripeHeight",
                        .label = "stripe height",
                        .purpose = "how much of each line's height the dark stripe takes; no lines "
                                   "at 0"},
                       {.key = "inputSize",
                        .purpose =
                            "how wide a phosphor dot is, in pixels; three stand side by side"},
                       {.key = "inputWarp",
                        .purpose = "how flat the glass is: strongly curved at 2, gently at 6.5"},
                       {.key = "inputSpacing",
                        .purpose = "how far apart the lines are: 8 pixels at 20, 80 at 200"},
                       {.key = "inputWidth",
                        .purpose = "changes nothing",
                        .from = 0,
                        .to = 1920,
                        .start = 1920.0},
                       {.key = "inputHeight",
                        .purpose = "changes nothing",
                        .from = 0,
                        .to = 1080,
                        .start = 1080.0}},
            .movesByItself = true,
            .keepsState = true};
    }

    CIImage outputImage() override {
        const double elapsed = clock.nanoseconds();
        const auto rate = static_cast<float>(2 * (inputSpeed.doubleValue() - kAtRest));
        advance(timeCounter, rate * (elapsed * 1e-9) * 16.0);

        const CISampler source(inputImage);
        const CGRect frame = source.extent();
        const CISampler noise(streaks(frame.width, frame.height));
        const RegionOfInterest around = RegionOfInterest::grownBy(1);
        const float size = inputSize.floatValue();
        const CIImage triads = triadsKernel.applyWithExtent(
            frame, around, {KernelArgument::orNothing(source), size, size * 3.5f});
        const CIImage lines =
            linesKernel.applyWithExtent(frame, around,
                                        {CISampler(triads), noise, static_cast<float>(timeCounter),
                                         inputSpacing, inputStripeHeight, 0.05});
        return glassKernel.applyWithExtent(lines.extent(), around, lines,
                                           {CIVector(frame.width, frame.height), inputWarp});
    }

    CIImage inputImage;
    Number inputWidth, inputHeight; ///< not advertised, and nothing reads them
    Number inputSize, inputWarp, inputSpacing, inputStripeHeight, inputSpeed;
    VORN_FILTER(VE_CRT, inputImage, inputWidth, inputHeight, inputSize, inputWarp, inputSpacing,
                inputStripeHeight, inputSpeed)

private:
    static constexpr double kAtRest = 10; ///< the speed at which lines stand still

    /// Noise drawn out across, from another place in each frame.
    CIImage streaks(double width, double height) {
        CIFilter& moved = chained(transform, "CIAffineTransform");
        moved.setValueForKey(chained(generator, "CIRandomGenerator").outputImage(), "inputImage");
        const double x = random.unit() * 100.0, y = 100.0 * random.unit();
        moved.setValueForKey(CGAffineTransform{1, 0, 0, 1, x, y}, "inputTransform");
        CIFilter& stretched = chained(scale, "CILanczosScaleTransform");
        stretched.setValueForKey(moved.outputImage(), "inputImage");
        stretched.setValueForKey(Number(1.0), "inputScale");
        stretched.setValueForKey(Number(5.0), "inputAspectRatio");
        CIFilter& cropped = chained(crop, "CICrop");
        cropped.setValueForKey(stretched.outputImage(), "inputImage");
        cropped.setValueForKey(CIVector(0, 0, width, height), "inputRectangle");
        return cropped.outputImage();
    }

    static constexpr std::string_view kLibrary = "VE_CRTFilterKernel";
    inline static CIColorKernel linesKernel;
    inline static CIKernel triadsKernel;
    inline static CIWarpKernel glassKernel;
    CIFilterRef generator, transform, scale, crop;
    RandomNumbers random;
    FrameClock clock = FrameClock::fromZero(); ///< the lines begin with one large step
    double timeCounter = 0;                    ///< the lines' phase; it grows for ever
};
VORN_REGISTER(VE_CRT)
