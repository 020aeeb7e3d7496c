// Channel shift: draws red and blue apart.
#include "core/FilterSupport.h"

class VEChannelShift : public CIFilter {
public:
    VEChannelShift() {
        loadKernel<VEChannelShift>(kernel, "VE_ChannelShiftFilterKernel",
                                   "VE_ChannelShift_channelShift");
    }

    static Attributes customAttributes() {
        constexpr ScalarRange range{.min = -100, .sliderMin = -100, .sliderMax = 100};
        return {mixer(), scalar("inputXShift", "x_shift", range),
                scalar("inputYShift", "y_shift", range)};
    }

    static FilterGuide guide() {
        return {.title = "Channel shift",
                .sentence = "Draws red and blue apart, as in a print whose inks do not meet.",
                .tags = {"channels", "glitch", "colour fringes", "misprint"},
                .inputs = {{.key = "inputXShift",
                            .purpose = "how far red moves to the right, and blue to the left",
                            .unit = "pixels"},
                           {.key = "inputYShift",
                            .purpose = "how far red moves up, and blue down",
                            .unit = "pixels"}},
                .beginWith = {{"inputXShift", 12}, {"inputYShift", 4}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        // Red and blue are twice the shift apart: so much is asked for on either side.
        const float x = std::fabs(2 * inputXShift.floatValue());
        const float y = std::fabs(2 * inputYShift.floatValue());
        const auto reads = RegionOfInterest::computed([x, y](int, CGRect rect) {
            return CGRect{rect.x - x, rect.y - y, rect.width + 2.0 * x, rect.height + 2.0 * y};
        });
        const CIImage shifted = kernel.applyWithExtent(
            source.extent(), reads.exact(), {source, inputMixer, inputXShift, inputYShift});
        const bool isAtRest = inputMixer.floatValue() == 0 || (x == 0 && y == 0);
        return isAtRest ? shifted.imageKnownToEqual(inputImage) : shifted;
    }

    CIImage inputImage;
    Number inputMixer, inputXShift, inputYShift;
    VORN_FILTER(VEChannelShift, inputImage, inputMixer, inputXShift, inputYShift)

private:
    inline static CIKernel kernel;
};
VORN_REGISTER(VEChannelShift)
