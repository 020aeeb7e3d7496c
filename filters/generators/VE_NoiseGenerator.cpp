// Noise generator: moving noise of four kinds in the extent of the image, which is not read.
#include "filters/shared/Motion.h"

class VE_NoiseGenerator : public CIFilter {
public:
    VE_NoiseGenerator() {
        loadKernels<VE_NoiseGenerator>(kernels, "VE_NoiseGeneratorFilterKernel", kFunctions);
    }

    static Attributes customAttributes() {
        constexpr ScalarRange half{.standard = 0.5};
        return {scalar("inputMode", "mode", {.sliderMax = 5}), scalar("inputScale", "scale", half),
                scalar("inputSpeed", "speed",
                       {.min = 0.0001, .sliderMin = 0.0001, .sliderMax = 4, .standard = 1}),
                scalar("input4", "density/scroll x", half), scalar("input5", "scroll y", half)};
    }

    static FilterGuide guide() {
        return {
            .title = "Noise",
            .sentence = "Fills the frame with moving grey noise, water light or cells.",
            .tags = {"texture", "background", "water", "cells"},
            .inputs = {{.key = "inputImage", .purpose = "gives the size; its pixels are not read"},
                       {.key = "inputScale", .purpose = "how fine the pattern is"},
                       {.key = "inputSpeed", .purpose = "how fast it changes"},
                       {.key = "input4",
                        .purpose = "how large cells are; else how fast the pattern moves across, "
                                   "at rest in the middle"},
                       {.key = "input5",
                        .purpose = "how fast the pattern moves up or down, at rest in the middle; "
                                   "not for cells"}},
            .modes = {"soft noise", "flowing noise", "light under water", "cells"},
            .movesByItself = true,
            .keepsState = true,
            .beginWith = {{"inputMode", 2}}};
    }

    CIImage outputImage() override {
        const int mode = clampedMode(inputMode, 3);
        if (mode != previousMode) {
            previousMode = mode;
            phase = scrollX = scrollY = 0;
        }
        const double elapsed = clock.seconds();
        const float scale = inputScale.floatValue();
        const double speed = inputSpeed.floatValue();
        const double swept = speed * speed * elapsed;
        float frequency, density = 0;
        switch (mode) {
        default:
            frequency = static_cast<float>(scale * 5.0 + 0.1);
            break;
        case 1:
            frequency = scale * 4900.0f + 100.0f;
            break;
        case 2:
            frequency = static_cast<float>(scale * 5000.0f + 500.0);
            break;
        case 3:
            frequency = static_cast<float>(scale * 500.0f + 1.0);
            density = static_cast<float>(std::pow(1.0f - input4.floatValue(), 4.5f) * 20 + 0.65);
            break;
        }
        advance(phase, mode == 3 ? swept * 10 : swept);
        if (mode != 3) {
            const double unit = mode == 1 || mode == 2 ? 5 : 500;
            advance(scrollX, elapsed * velocity(input4) * unit);
            advance(scrollY, elapsed * velocity(input5) * unit);
        }
        const Period& period = kPeriods[std::max(mode, 0)];
        return kernels[std::max(mode, 0)].applyWithExtent(
            inputImage.extent(), RegionOfInterest::identity(),
            {reduced(phase, period.phase), frequency, density, reduced(scrollX, period.scroll),
             reduced(scrollY, period.scroll)});
    }

    CIImage inputImage;
    Number inputMode, inputScale, inputSpeed, input4, input5;
    VORN_FILTER(VE_NoiseGenerator, inputImage, inputMode, inputScale, inputSpeed, input4, input5)

private:
    /// After which the kernels' patterns repeat, hours to days. Single precision could not follow
    /// the motion for longer.
    struct Period {
        double phase, scroll;
    };
    static constexpr double kTurns = 6.283185307179586 * 16384;
    static constexpr Period kPeriods[] = {
        {131072, 1048576}, {kTurns, 65536}, {kTurns, 65536}, {524288, 65536}};
    static float reduced(double value, double period) {
        return static_cast<float>(std::fmod(value, period));
    }

    /// 127/255 is rest; the square of the distance from it, away from the control's direction.
    static double velocity(const Number& control) {
        const double offset = control.doubleValue() - 0.4980392157;
        return -std::fabs(offset) * offset;
    }

    static constexpr std::string_view kFunctions[] = {
        "VE_NoiseGenerator_perlinNoiseKernel", "VE_NoiseGenerator_flowNoiseKernel",
        "VE_NoiseGenerator_causticNoiseKernel", "VE_NoiseGenerator_voronoiNoiseKernel"};
    inline static CIKernel kernels[std::size(kFunctions)];
    FrameClock clock;
    double phase = 0, scrollX = 0, scrollY = 0;
    int previousMode = -1;
};
VORN_REGISTER(VE_NoiseGenerator)
