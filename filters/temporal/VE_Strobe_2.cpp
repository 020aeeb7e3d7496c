// Strobe 2: darkens the image by one of nine waveforms that run on the clock.
#include "filters/shared/Motion.h"

class VE_Strobe_2 : public CIFilter {
public:
    VE_Strobe_2() { loadKernels<VE_Strobe_2>(kernels, "VE_Strobe_2FilterKernel", kFunctions); }

    static Attributes customAttributes() {
        return {mixer(), scalar("inputMode", "mode", {.sliderMax = 9}),
                scalar("inputFrequency", "size", {.sliderMax = 100, .standard = 1}),
                scalar("inputSpeed", "speed", {.sliderMax = 20, .standard = 1})};
    }

    static FilterGuide guide() {
        return {.title = "Strobe",
                .sentence = "Darkens the picture in pulses, from a soft breathing to hard flashes.",
                .tags = {"flash", "pulse", "blink", "rhythm"},
                .inputs = {{.key = "inputFrequency",
                            .purpose =
                                "how far waves swing and how soft switches are; fainter below 1"},
                           {.key = "inputSpeed", .purpose = "how fast it pulses"},
                           {.key = "inputRange",
                            .purpose =
                                "how long light or dark is held, or the level that waves swing "
                                "about, the middle at 127; not in the first and the last two modes",
                            .from = 0,
                            .to = 255,
                            .start = 127.0}},
                .modes = {"on and off", "on for longer", "off for longer", "waves",
                          "waves with held ends", "humps", "dips", "snap to black and back",
                          "snap to the picture and fade"},
                .movesByItself = true,
                .keepsState = true,
                .canFlash = true,
                .beginWith = {{"inputMode", 3}, {"inputSpeed", 4}, {"inputRange", 127}}};
    }

    CIImage outputImage() override {
        if (areaInSinglePrecision(inputImage) > kFixedArea23764000)
            return errorImage.imageFor("FX 225");
        const CISampler source(inputImage);
        advance(time, clock.seconds());
        const int index = std::max(0, clampedMode(inputMode, 8));
        float speed = inputSpeed.floatValue(), frequency = inputFrequency.floatValue(), range = 0;
        if (index >= 7) {
            speed *= 0.5f;
            frequency = static_cast<float>(frequency * 0.15);
        } else if (index >= 1) {
            speed = static_cast<float>(std::pow(speed * 0.35, 1.5));
            // The middle of the control is 127 of 255, which the lines below would miss by a
            // little.
            const float control = inputRange.floatValue();
            if (index <= 4)
                range = control == 127 ? 0.5f : static_cast<float>(control * 0.01176470588 - 1.0);
            else
                range = control == 127 ? 0.0f : static_cast<float>(control * 0.007843137255 - 1.0);
        }
        return kernels[index].applyWithExtent(
            inputImage.extent(), RegionOfInterest::whole(source),
            {source, inputMixer, frequency, speed, range, static_cast<float>(time)});
    }

    CIImage inputImage;
    Number inputMixer, inputMode, inputFrequency, inputSpeed;
    Number inputRange; ///< not advertised
    VORN_FILTER(VE_Strobe_2, inputImage, inputMixer, inputMode, inputFrequency, inputSpeed,
                inputRange)

private:
    static constexpr std::string_view kFunctions[] = {
        "VE_Strobe_2_squareEqual",        "VE_Strobe_2_squareHoldOn",
        "VE_Strobe_2_squareHoldOff",      "VE_Strobe_2_sineEqual",
        "VE_Strobe_2_sineHold",           "VE_Strobe_2_sineAbsHumps",
        "VE_Strobe_2_sineAbsHumpsInvert", "VE_Strobe_2_snapBlackfadeWhite",
        "VE_Strobe_2_snapWhiteFadeBlack"};
    inline static CIKernel kernels[std::size(kFunctions)];
    FrameClock clock;
    double time = 0; ///< seconds
    ErrorImage errorImage;
};
VORN_REGISTER(VE_Strobe_2)
