// Wobble: ten motions of the image: a shake, a wobble, a flicker, four rolls, a rippling, a roll in
// two directions and a wrap.
#include "filters/shared/Motion.h"

#include <array>

class VEWobble : public CIFilter {
public:
    VEWobble() { loadKernels<VEWobble>(kernels, "VE_WobbleFilterKernel", kFunctions); }

    static Attributes customAttributes() {
        constexpr ScalarRange fifth{.standard = 0.2};
        return {mixer(),
                scalar("inputMode", "mode", {.sliderMax = 10}),
                scalar("inputSize", "size", fifth),
                scalar("inputSpeed", "speed", fifth),
                scalar("inputC", "c", {}),
                scalar("inputD", "d", {})};
    }

    static FilterGuide guide() {
        return {.title = "Wobble",
                .sentence = "Shakes, wobbles, flickers, rolls or ripples the picture by itself.",
                .tags = {"shake", "roll", "ripple", "flicker", "motion"},
                .inputs =
                    {{.key = "inputSize",
                      .purpose = "how far the motion goes; how often the picture rolls; to left or "
                                 "right in the last two modes, at rest in the middle"},
                     {.key = "inputSpeed",
                      .purpose = "how fast the motion is; how many ripples there are; up or down "
                                 "in the last two modes, at rest in the middle"},
                     {.key = "inputC",
                      .label = "fine across",
                      .purpose =
                          "in the last mode a fine shift to left or right, at rest in the middle"},
                     {.key = "inputD",
                      .label = "fine up",
                      .purpose = "in the last mode a fine shift up or down, at rest in the middle"},
                     {.key = "inputSyncMode",
                      .purpose = "1: the motion follows the frame time that the host pushes",
                      .from = 0,
                      .to = 1,
                      .start = 0.0}},
                .modes = {"shake", "wobble", "flicker", "roll down", "roll up", "roll right",
                          "roll left", "ripples", "roll both ways", "shift both ways"},
                .movesByItself = true,
                .keepsState = true,
                .canFlash = true,
                .beginWith = {{"inputMode", 1}, {"inputSize", 0.6}, {"inputSpeed", 0.6}}};
    }

    CIImage outputImage() override {
        const int mode = clampedMode(inputMode, kLastMode);
        const auto pixels = static_cast<float>(area(inputImage));
        if (pixels > (mode == kFlicker ? kFixedArea23764000 : kArea4320x4320))
            return errorImage.imageFor(errorLabel());
        const double elapsed = timeStep();
        if (mode < 0) return {};

        const CISampler source(inputImage);
        const double size = inputSize.floatValue(), speed = inputSpeed.floatValue();
        const auto apply = [&](std::initializer_list<double> values) {
            return applied(mode, source, values);
        };
        switch (mode) {
        case 0: {
            swing(elapsed * speed);
            return apply({sines(0) * (size * 0.1), sines(3) * (size * 0.1)});
        }
        case 1: {
            swing(elapsed * speed);
            constexpr double rates[] = {2.919e-08, 8.505e-09, 6.895e-09};
            for (size_t k = 0; k < 3; ++k) turn(phases[6 + k], elapsed * rates[k] * speed);
            const auto angle = static_cast<float>(sines(6) * (2 * (size * 0.1)));
            return apply({sines(0) * (size * 0.1), sines(3) * (size * 0.1), std::cos(angle),
                          std::sin(angle)});
        }
        case kFlicker: {
            swing(elapsed * speed);
            turn(phases[6], elapsed * 2.737e-08 * speed);
            turn(phases[7], elapsed * 8.701e-09 * speed);
            return apply({sines(0) * (size * 0.001), sines(3) * (size * 0.001),
                          (std::fabs(sine(6)) + std::fabs(sine(7))) * (size * 0.5)});
        }
        case 3:
        case 4:
        case 5:
        case 6: {
            // The picture runs through in the first part of each cycle and rests for the others.
            advance(phases[0], elapsed * 1e-09 * (size * size) * 16);
            phases[1] = std::min(1.0, (4 * speed + 1) * fraction(phases[0]));
            return apply({fraction(phases[1]), 0, 1});
        }
        case 7: {
            advance(phases[0], elapsed * 1e-09 * speed * 100);
            return apply({speed * 128, size * 0.01, std::fmod(phases[0], kManyTurns)});
        }
        case 8: {
            const double x = size - kRest, y = speed - kRest;
            advance(phases[0], std::fabs(x) * x * elapsed * 1e-09 * 50);
            advance(phases[1], std::fabs(y) * y * elapsed * 1e-09 * 50);
            return apply({fraction(phases[0]), fraction(phases[1])});
        }
        default: {
            phases[0] = (size - kRest) * 3.9843137256;
            phases[1] = (speed - kRest) * 3.9843137256;
            phases[2] = (inputC.floatValue() - kRest) * 0.0315;
            phases[3] = (inputD.floatValue() - kRest) * 0.0315;
            return apply({phases[0], phases[1], phases[2], phases[3]});
        }
        }
    }

    void setVornFrameTime(uint64_t nanoseconds) override { frameTime = nanoseconds; }

    CIImage inputImage;
    Number inputMixer, inputMode, inputSize, inputSpeed, inputC, inputD;
    Number inputSyncMode; ///< not advertised; not 0: the motion follows the host's frame time
    VORN_FILTER(VEWobble, inputImage, inputMixer, inputMode, inputSize, inputSpeed, inputC, inputD,
                inputSyncMode)

private:
    static constexpr int kFlicker = 2, kLastMode = 9;
    static constexpr double kRest = 0.4980392157; ///< 127 of 255
    /// Whole turns of a phase that is passed on unwrapped; beyond them single precision would make
    /// it jerk.
    static constexpr double kManyTurns = 6.283185307179586 * 262144;

    /// Nanoseconds to move on by. With the host's time every motion starts from zero in each frame
    /// and goes as far as that time.
    double timeStep() {
        if (frameTime == 0 || inputSyncMode.intValue() == 0) return clock.nanoseconds();
        clock.restart();
        phases.fill(0);
        return static_cast<double>(frameTime);
    }

    /// Moves the six phases of the sums of sines on. Their rates, in radians a nanosecond, have no
    /// common measure, so that the sums look irregular.
    void swing(double step) {
        constexpr double rates[] = {3.5e-08,     1.337e-08,  8.701e-09,
                                    3.30134e-08, 1.2481e-08, 3.132045e-09};
        for (size_t k = 0; k < 6; ++k) turn(phases[k], step * rates[k]);
    }
    static void turn(double& phase, double step) {
        advance(phase, step);
        phase = VornEffectsMod2pi(phase);
    }
    float sine(size_t k) const { return std::sin(static_cast<float>(phases[k])); }
    float sines(size_t k) const { return sine(k) + sine(k + 1) + sine(k + 2); }
    /// With the sign of the number.
    static double fraction(double value) {
        double whole;
        return std::modf(value, &whole);
    }

    /// Applies the kernel of a mode to the source, the mixer and up to four numbers.
    CIImage applied(int mode, const CISampler& source, std::initializer_list<double> values) const {
        const CIKernel& kernel = kernels[mode];
        const RegionOfInterest rule =
            mode == kFlicker ? RegionOfInterest::grownBy(1) : RegionOfInterest::whole(source);
        const auto value = [&](size_t i) { return static_cast<float>(values.begin()[i]); };
        const CGRect extent = source.extent();
        switch (values.size()) {
        case 2:
            return kernel.applyWithExtent(
                extent, rule, {KernelArgument::orNothing(source), inputMixer, value(0), value(1)});
        case 3:
            return kernel.applyWithExtent(
                extent, rule,
                {KernelArgument::orNothing(source), inputMixer, value(0), value(1), value(2)});
        default:
            return kernel.applyWithExtent(extent, rule,
                                          {KernelArgument::orNothing(source), inputMixer, value(0),
                                           value(1), value(2), value(3)});
        }
    }

    /// The label of the mode as it was set; a mode past the last one has none, although it is
    /// drawn.
    std::string_view errorLabel() const {
        constexpr std::string_view labels[] = {"FX 161", "FX 162", "FX 160", "FX 179", "FX 180",
                                               "FX 181", "FX 182", "FX 159", "FX 189", "FX 195"};
        const uint32_t mode = inputMode.unsignedIntValue();
        return mode < std::size(labels) ? labels[mode] : std::string_view();
    }

    static constexpr std::string_view kFunctions[] = {
        "VE_Wobble_shake",   "VE_Wobble_wobble",    "VE_Wobble_flicker",  "VE_Wobble_rollDown",
        "VE_Wobble_rollUp",  "VE_Wobble_rollRight", "VE_Wobble_rollLeft", "VE_Wobble_rippling",
        "VE_Wobble_roll_XY", "VE_Wobble_wrap_XY"};
    inline static CIKernel kernels[std::size(kFunctions)];
    FrameClock clock;
    uint64_t frameTime = 0; ///< the host's, nanoseconds; 0: none was pushed
    std::array<double, 16> phases{};
    ErrorImage errorImage;
};
VORN_REGISTER(VEWobble)
