// Ripple: rings on water that spread from a point, drop by drop or as a train. A host may hand over
// its controls packed in a record of eleven bytes.
#include "filters/shared/Motion.h"

class VE_Ripple : public CIFilter {
public:
    VE_Ripple() { loadKernels<VE_Ripple>(kernels, "VE_RippleFilterKernel", kFunctions); }

    static Attributes customAttributes() {
        return {scalar("inputMode", "mode", {}),
                scalar("inputOriginX", "originX", {}),
                scalar("inputOriginY", "originY", {}),
                scalar("inputAmplitude", "amplitude", {.sliderMax = 200, .standard = 10}),
                scalar("inputPeriod", "period", {.sliderMax = 100, .standard = 10}),
                scalar("inputSpeed", "speed", {.sliderMax = 200, .standard = 50}),
                scalar("inputRingWidth", "ringWidth", {.sliderMax = 200, .standard = 30}),
                scalar("inputDecay", "decay",
                       {.min = 0.001, .sliderMin = 0.001, .sliderMax = 0.02, .standard = 0.0025}),
                scalar("inputInterval", "interval",
                       {.min = 0.01, .sliderMin = 0.01, .sliderMax = 10, .standard = 1}),
                scalar("inputRippleCount", "rippleCount",
                       {.min = 1, .sliderMin = 1, .sliderMax = 30, .standard = 5})};
    }

    static FilterGuide guide() {
        return {
            .title = "Ripple",
            .sentence = "Lets drops fall onto the picture: rings spread from a point, one by one "
                        "or in a train.",
            .tags = {"water", "drop", "rings", "distortion", "motion"},
            .inputs = {{.key = "inputOriginX", .purpose = "where they begin, from left to right"},
                       {.key = "inputOriginY", .purpose = "where they begin, from bottom to top"},
                       {.key = "inputAmplitude", .purpose = "how steep the waves are"},
                       {.key = "inputPeriod",
                        .purpose = "the length of a wave, in hundredths of the shorter side"},
                       {.key = "inputSpeed",
                        .purpose =
                            "how far they come in a second, in hundredths of the shorter side"},
                       {.key = "inputRingWidth",
                        .purpose = "how wide a single ring is, in hundredths of the shorter side"},
                       {.key = "inputDecay", .purpose = "how soon waves flatten on their way"},
                       {.key = "inputInterval",
                        .purpose = "the time from drop to drop of single rings",
                        .unit = "seconds"},
                       {.key = "inputRippleCount", .purpose = "how many rings a train has"},
                       {.key = "inputData",
                        .purpose =
                            "the controls in eleven bytes; what a shorter record lacks is taken "
                            "from the controls"}},
            .modes = {"single rings", "a train of rings"},
            .movesByItself = true,
            .keepsState = true,
            .beginWith = {{"inputMode", 1},
                          {"inputOriginX", 0.5},
                          {"inputOriginY", 0.5},
                          {"inputAmplitude", 20},
                          {"inputPeriod", 15},
                          {"inputSpeed", 40}}};
    }

    /// Moves the drop on by the time since the last call. The interval between drops follows its
    /// control within a fifth of a second or so, and a time that does not run on begins a new drop.
    void setVornFrameTime(uint64_t nanoseconds) override {
        const uint64_t time = nanoseconds == 0 ? VornEffectsGetUptimeInNanoseconds() : nanoseconds;
        const double interval =
            clampedInterval(inputInterval.isSet() ? inputInterval.doubleValue() : 1.0);
        if (!hasTiming || lastFrameTime == 0 || time <= lastFrameTime) {
            hasTiming = true;
            lastFrameTime = time;
            dropAge = 0;
            smoothedInterval = interval;
            return;
        }
        double elapsed = static_cast<double>(time - lastFrameTime) * 1e-9;
        lastFrameTime = time;
        if (elapsed > 1) elapsed = 0; // the host stood still, or its clock jumped
        const double weight = elapsed > 0 ? elapsed / (0.2 + elapsed) : 0;
        smoothedInterval = clampedInterval((1 - weight) * smoothedInterval + weight * interval);
        dropAge += elapsed;
        while (dropAge >= smoothedInterval) dropAge -= smoothedInterval;
    }

    CIImage outputImage() override {
        const int mode = inputMode.modeValue();
        const uint64_t now = VornEffectsGetUptimeInNanoseconds();
        const CISampler source(inputImage);
        const CGRect extent = source.extent();
        const auto x = static_cast<float>(origin(0, inputOriginX) * extent.width);
        const auto y = static_cast<float>(origin(2, inputOriginY) * extent.height);
        const float amplitude = control(4, 0, 200, inputAmplitude);
        const float period = control(5, 0, 100, inputPeriod);
        const float speed = control(6, 0, 200, inputSpeed);
        const float decay = this->decay();
        if (!hasTiming) setVornFrameTime(now);
        if (mode > 0)
            return kernels[1].applyWithExtent(
                extent, RegionOfInterest::identity(),
                {KernelArgument::orNothing(source), x, y, amplitude, period, speed,
                 static_cast<float>(static_cast<double>(now) / 1'000'000'000), decay,
                 control(10, 1, 30, inputRippleCount)});
        return kernels[0].applyWithExtent(extent, RegionOfInterest::identity(),
                                          {KernelArgument::orNothing(source), x, y, amplitude,
                                           period, speed, dropAge,
                                           control(7, 0, 200, inputRingWidth), decay, envelope()});
    }

    CIImage inputImage;
    Number inputMode, inputOriginX, inputOriginY, inputAmplitude, inputPeriod, inputSpeed,
        inputRingWidth, inputDecay, inputInterval, inputRippleCount;
    Data inputData; ///< not advertised; where it has bytes they stand for the controls
    VORN_FILTER(VE_Ripple, inputImage, inputMode, inputOriginX, inputOriginY, inputAmplitude,
                inputPeriod, inputSpeed, inputRingWidth, inputDecay, inputInterval,
                inputRippleCount, inputData)

private:
    /// Within what a drop may take, in seconds; what is no number is the shortest.
    static double clampedInterval(double seconds) {
        return std::fmin(std::fmax(seconds, 0.01), 10);
    }
    bool hasByte(size_t index) const { return inputData && index < inputData->size(); }

    /// A share of the frame, in the middle of its step: of two bytes, the coarse one first, or else
    /// of the control, which counts in steps of one byte.
    double origin(size_t first, const Number& number) const {
        if (!hasByte(first + 1)) return number.doubleValue() + 0.00196078431372549;
        return ((*inputData)[first] * 256 + (*inputData)[first + 1]) / 65535.0 +
               7.629510948348211e-06;
    }
    /// One byte, from `low` to `high`, or else the control.
    float control(size_t index, double low, double high, const Number& number) const {
        if (!hasByte(index)) return number.floatValue();
        return static_cast<float>((*inputData)[index] / 255.0 * (high - low) + low);
    }

    /// Packed it runs the other way.
    float decay() const {
        if (!hasByte(8)) return inputDecay.floatValue();
        return static_cast<float>((1 - (*inputData)[8] / 255.0) * 0.0019 + 0.001);
    }

    /// 1, but over its last quarter of a second a drop fades.
    double envelope() const { return std::clamp(4 * (smoothedInterval - dropAge), 0.0, 1.0); }

    static constexpr std::string_view kFunctions[] = {"VE_Ripple_singleRipple",
                                                      "VE_Ripple_multiRipple"};
    inline static CIKernel kernels[std::size(kFunctions)];
    uint64_t lastFrameTime = 0;               ///< nanoseconds
    double dropAge = 0, smoothedInterval = 1; ///< seconds
    bool hasTiming = false;
};
VORN_REGISTER(VE_Ripple)
