// Scrolling gradient: one of thirteen patterns in the extent of the image, which is not read. They
// move by the clock.
#include "filters/shared/Motion.h"

class VE_ScrollingGradient : public CIFilter {
public:
    VE_ScrollingGradient() {
        loadKernels<VE_ScrollingGradient>(kernels, "VE_ScrollingGradientFilterKernel", kFunctions);
    }

    static Attributes customAttributes() {
        // The slider of the mode ends before the last two, which hosts set as numbers.
        return {scalar("inputMode", "mode", {.sliderMax = 10}),
                scalar("inputSpeed", "speed", {.standard = 0.5}),
                scalar("inputScale", "scale",
                       {.min = 1, .sliderMin = 1, .sliderMax = 100, .standard = 1}),
                scalar("inputWidth", "width",
                       {.min = 0.1, .sliderMin = 0.1, .sliderMax = 100, .standard = 10}),
                scalar("inputEdge", "edge",
                       {.min = 0.5, .sliderMin = 0.5, .sliderMax = 8, .standard = 2})};
    }

    static FilterGuide guide() {
        return {
            .title = "Moving patterns",
            .sentence = "Fills the frame with stripes, rainbows or rings that move to the right, "
                        "up or outward, and back below the middle of the speed.",
            .tags = {"gradient", "stripes", "rainbow", "rings", "background"},
            .inputs = {{.key = "inputImage", .purpose = "gives the size; its pixels are not read"},
                       {.key = "inputSpeed", .purpose = "at rest in the middle"},
                       {.key = "inputScale",
                        .purpose = "how far white rings and squares lie apart"},
                       {.key = "inputWidth",
                        .purpose = "of a stripe, a rainbow or a coloured ring with its gap, in "
                                   "hundredths of the frame's longer side; of white rings and "
                                   "squares, how much they leave of their gaps"},
                       {.key = "inputEdge",
                        .purpose = "how hard edges are and how steeply fades fall; not in "
                                   "colours"}},
            .modes = {"bars across", "fades across", "bars up", "fades up", "rainbow across",
                      "rainbow up", "rings", "fading rings", "tunnel of rings", "lens of rings",
                      "coloured rings", "squares", "coloured squircles"},
            .movesByItself = true,
            .keepsState = true,
            .beginWith = {{"inputMode", 8}, {"inputSpeed", 0.9}, {"inputWidth", 25}}};
    }

    CIImage outputImage() override {
        const int mode = std::max(0, clampedMode(inputMode, 12));
        const double elapsed = clock.seconds();
        const CISampler source(inputImage);
        // 127/255 is rest; the square of the distance from it, against the control's direction.
        const double offset = inputSpeed.doubleValue() - 0.4980392157;
        const double velocity = -std::fabs(offset) * offset;
        const Parameters p = parametersOf(mode);
        advance(phase, elapsed * velocity * p.rate);
        const CIImage pattern = kernels[mode].applyWithExtent(
            source.extent(), RegionOfInterest::identity(),
            {source, static_cast<float>(std::fmod(phase, mode == 11 ? kSquares : kOthers)),
             static_cast<float>(p.p1), static_cast<float>(p.p2), static_cast<float>(p.p3)});
        const bool isAcross = mode <= 1 || mode == 4; // of stripes every row is the same
        return isAcross ? pattern.imageWithPeriod(0, 1) : pattern;
    }

    CIImage inputImage;
    Number inputMode, inputSpeed, inputScale, inputWidth, inputEdge;
    VORN_FILTER(VE_ScrollingGradient, inputImage, inputMode, inputSpeed, inputScale, inputWidth,
                inputEdge)

private:
    /// Whole numbers of cycles of the patterns, hours at full speed. Single precision could not
    /// follow the motion for longer.
    static constexpr double kSquares = 16384, kOthers = 524288;

    struct Parameters {
        double rate, p1 = 0, p2 = 0, p3 = 0;
    };
    Parameters parametersOf(int mode) const {
        const double w = inputWidth.doubleValue(), e = inputEdge.doubleValue(),
                     s = inputScale.doubleValue();
        if (mode <= 3) return {300, 100.1 - w, e};
        if (mode <= 5) return {65, (w - 100.1) * -0.05};
        if (mode <= 7) return {300, w * 0.02, e * 0.2, s * 4.0};
        if (mode == 8) return {300, (w - 100.1) * -0.02, e * 0.2, s * 4.0};
        if (mode == 9) return {300, w * 0.09, e, s * 4.0};
        if (mode == 10) return {-100, 0, 0, w * 100};
        if (mode == 11) return {-4, w * 0.005, e * -0.0125 + 0.10625, s * 0.01 + 0.08};
        return {-50, 0, 0, w * 0.01};
    }

    static constexpr std::string_view kFunctions[] = {
        "VE_ScrollingGradient_scrollingGradientHorizontal_1",
        "VE_ScrollingGradient_scrollingGradientHorizontal_2",
        "VE_ScrollingGradient_scrollingGradientVertical_1",
        "VE_ScrollingGradient_scrollingGradientVertical_2",
        "VE_ScrollingGradient_scrollingRainbow_1",
        "VE_ScrollingGradient_scrollingRainbow_2",
        "VE_ScrollingGradient_concentricCircles_1",
        "VE_ScrollingGradient_concentricCircles_2",
        "VE_ScrollingGradient_concentricCircles_3",
        "VE_ScrollingGradient_concentricCircles_4",
        "VE_ScrollingGradient_coloredCircles",
        "VE_ScrollingGradient_concentricSquares",
        "VE_ScrollingGradient_coloredConcentricSquircles"};
    inline static CIKernel kernels[std::size(kFunctions)];
    FrameClock clock;
    double phase = 0; ///< goes on through a change of the mode
};
VORN_REGISTER(VE_ScrollingGradient)
