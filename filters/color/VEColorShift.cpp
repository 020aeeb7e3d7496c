// Colour shift: the hues swing to and fro with the platform's clock.
#include "core/FilterSupport.h"

class VEColorShift : public CIFilter {
public:
    VEColorShift() {
        loadKernel<VEColorShift>(kernel, "VE_ColorShiftFilterKernel", "VE_ColorShift_colorShift");
    }

    static Attributes customAttributes() {
        return {mixer(), scalar("inputRange", "range", {}), scalar("inputSpeed", "speed", {})};
    }

    static FilterGuide guide() {
        return {.title = "Colour shift",
                .sentence = "Lets the hues swing to and fro around the colour circle.",
                .tags = {"hue", "colour", "motion", "psychedelic"},
                .inputs = {{.key = "inputRange",
                            .purpose = "how far hues swing; at 1 half around the circle each way"},
                           {.key = "inputSpeed",
                            .purpose = "how far the swing goes on in a step of 51.2 milliseconds, "
                                       "in radians; at 0 it stands still"}},
                .movesByItself = true,
                .canFlash = true,
                .beginWith = {{"inputRange", 1}, {"inputSpeed", 0.04}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        // A step of the whole process's clock, whenever the filter was made.
        const auto step = static_cast<float>(VornEffectsGetUptimeInNanoseconds() / 51'200'000);
        const float phase = inputSpeed.floatValue() * step;
        const double shift = inputRange.floatValue() * std::sin(static_cast<double>(phase));
        return kernel.applyWithExtent(source.extent(),
                                      {source, inputMixer, static_cast<float>(shift)});
    }

    CIImage inputImage;
    Number inputMixer, inputRange, inputSpeed;
    VORN_FILTER(VEColorShift, inputImage, inputMixer, inputRange, inputSpeed)

private:
    inline static CIColorKernel kernel;
};
VORN_REGISTER(VEColorShift)
