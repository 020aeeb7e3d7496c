// Waves: a travelling swell, or one of four distortions by waves, that move with the clock.
#include "filters/shared/Motion.h"

class VE_Waves : public CIFilter {
public:
    VE_Waves() { loadKernels<VE_Waves>(kernels, "VE_WavesFilterKernel", kFunctions); }

    static Attributes customAttributes() {
        constexpr ScalarRange byte{.sliderMax = 255};
        return {scalar("inputMixer", "mixer", byte), scalar("inputMode", "mode", {.sliderMax = 5}),
                scalar("inputSpeed", "speed", byte), scalar("inputFrequency", "frequency", byte),
                scalar("inputIntensity", "intensity", byte)};
    }

    static FilterGuide guide() {
        return {.title = "Waves",
                .sentence = "Shows the picture through moving waves.",
                .tags = {"water", "ripple", "distortion", "motion"},
                .inputs = {{.key = "inputMixer", .purpose = "how much of the effect is mixed in"},
                           {.key = "inputSpeed", .purpose = "how fast the waves run"},
                           {.key = "inputFrequency", .purpose = "how many waves there are"},
                           {.key = "inputIntensity", .purpose = "how far they move the picture"}},
                .modes = {"swell to the right", "rows sway", "columns sway",
                          "rows and columns sway", "rings"},
                .movesByItself = true,
                .keepsState = true,
                .beginWith = {{"inputMixer", 255},
                              {"inputMode", 3},
                              {"inputSpeed", 100},
                              {"inputFrequency", 50},
                              {"inputIntensity", 90}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        if (areaInSinglePrecision(inputImage) > kArea4320x4320)
            return errorImage.imageFor("FX 202");
        const double elapsed = clock.seconds();
        const double speed = inputSpeed.floatValue(), frequency = inputFrequency.floatValue();
        const double intensity = inputIntensity.floatValue();
        const int mode = std::max(0, clampedMode(inputMode, 4));
        const Scale& scale = kScales[mode > 0];
        advance(phase, speed * elapsed * scale.speed);
        const float mix = inputMixer.floatValue() / 255;
        const CIImage waves = kernels[mode].applyWithExtent(
            source.extent(), RegionOfInterest::whole(source),
            {KernelArgument::orNothing(source), mix, static_cast<float>(phase),
             static_cast<float>(frequency * scale.frequency),
             static_cast<float>(intensity * scale.intensity)});
        return mix == 0 || intensity == 0 ? waves.imageKnownToEqual(inputImage) : waves;
    }

    CIImage inputImage;
    Number inputMixer, inputMode, inputSpeed, inputFrequency, inputIntensity;
    VORN_FILTER(VE_Waves, inputImage, inputMixer, inputMode, inputSpeed, inputFrequency,
                inputIntensity)

private:
    /// What a control's unit is worth to the kernels: the swell's, and that of the distortions.
    struct Scale {
        double speed, frequency, intensity;
    };
    static constexpr Scale kScales[] = {{0.002, 0.1, 4.5e-05}, {0.004, 0.4, 0.0009}};

    static constexpr std::string_view kFunctions[] = {
        "VE_Waves_waves", "VE_Waves_wave_distort_1", "VE_Waves_wave_distort_2",
        "VE_Waves_wave_distort_3", "VE_Waves_wave_distort_4"};
    inline static CIKernel kernels[std::size(kFunctions)];
    FrameClock clock;
    double phase = 0;
    ErrorImage errorImage;
};
VORN_REGISTER(VE_Waves)
