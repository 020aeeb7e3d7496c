// Cloud generator: drifting clouds in the extent of the image, whose pixels are not read.
#include "filters/shared/Motion.h"

class VE_CloudGenerator : public CIFilter {
public:
    VE_CloudGenerator() {
        loadKernels<VE_CloudGenerator>(kernels, "VE_CloudGeneratorFilterKernel", kFunctions);
    }

    static Attributes customAttributes() {
        constexpr ScalarRange range{.sliderMax = 255};
        return {scalar("inputScale", "scale", range), scalar("inputSpeed", "speed", {}),
                scalar("inputCover", "cover", range), scalar("inputAlpha", "alpha", range),
                scalar("inputBrightness", "brightness", range)};
    }

    static FilterGuide guide() {
        return {
            .title = "Clouds",
            .sentence = "Fills the frame with drifting white clouds on a transparent ground.",
            .tags = {"sky", "weather", "background", "texture"},
            .inputs = {{.key = "inputImage", .purpose = "gives the size; its pixels are not read"},
                       {.key = "inputScale", .purpose = "how small the clouds are"},
                       {.key = "inputSpeed", .purpose = "how fast they drift"},
                       {.key = "inputCover", .purpose = "how much of the sky they cover"},
                       {.key = "inputAlpha", .purpose = "how dense they become; a clear sky at 0"},
                       {.key = "inputBrightness", .purpose = "from dark clouds to bright ones"}},
            .movesByItself = true,
            .keepsState = true,
            .beginWith = {{"inputScale", 60},
                          {"inputSpeed", 1},
                          {"inputCover", 115},
                          {"inputAlpha", 128},
                          {"inputBrightness", 127}}};
    }

    CIImage outputImage() override {
        if (area(inputImage) > kArea3840x2160) return errorImage.imageFor("FX 094");
        const CISampler source(inputImage);
        advance(time, clock.seconds());
        // 0 to 255 becomes 0.25 to 10, -5 to 7, 0 to 20 and -0.5 to 0.5; clouds move faster the
        // larger the scale.
        const double scale = inputScale.floatValue() * 0.03823529411764706 + 0.25;
        const double speed =
            (scale * 0.5 + 0.875) * (inputSpeed.floatValue() * 0.0003921568627450981);
        const double cover = inputCover.floatValue() * 0.047058823529411764 - 5.0;
        const double alpha = inputAlpha.floatValue() * 0.0784313725490196;
        const double brightness = inputBrightness.floatValue() * 0.00392156862745098 - 0.5;
        return kernels[0].applyWithExtent(
            source.extent(), RegionOfInterest::whole(source),
            {KernelArgument::orNothing(source), static_cast<float>(time), static_cast<float>(scale),
             static_cast<float>(speed), static_cast<float>(cover), static_cast<float>(alpha),
             static_cast<float>(brightness)});
    }

    CIImage inputImage;
    Number inputScale, inputSpeed, inputCover, inputAlpha, inputBrightness;
    VORN_FILTER(VE_CloudGenerator, inputImage, inputScale, inputSpeed, inputCover, inputAlpha,
                inputBrightness)

private:
    static constexpr std::string_view kFunctions[] = {"VE_CloudGenerator_cloudGen_1"};
    inline static CIKernel kernels[std::size(kFunctions)];
    FrameClock clock;
    double time = 0; ///< seconds
    ErrorImage errorImage;
};
VORN_REGISTER(VE_CloudGenerator)
