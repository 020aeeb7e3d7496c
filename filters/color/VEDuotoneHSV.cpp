// Duotone by hue: tints dark and bright tones by a hue and a saturation each.
#include "core/FilterSupport.h"

class VEDuotoneHSV : public CIFilter {
public:
    VEDuotoneHSV() {
        loadKernel<VEDuotoneHSV>(kernel, "VE_DuotoneHSVFilterKernel", "VE_DuotoneHSV_hsvDuotone");
    }

    static Attributes customAttributes() {
        return {scalar("inputThreshold", "value", {.standard = 0.5}),
                scalar("inputHue1", "hue 1", {.sliderMax = 6}),
                scalar("inputSat1", "saturation 1", {.standard = 1}),
                scalar("inputHue2", "hue 2", {.sliderMax = 6}),
                scalar("inputSat2", "saturation 2", {.standard = 1})};
    }

    static FilterGuide guide() {
        return {.title = "Duotone by hue",
                .sentence = "Tints the picture in two hues, one for dark tones and one for bright "
                            "ones.",
                .tags = {"duotone", "tint", "hue", "split toning"},
                .inputs = {{.key = "inputThreshold",
                            .purpose = "the brightness at which the first hue gives way to the "
                                       "second"},
                           {.key = "inputHue1",
                            .purpose = "hue of dark tones: 0 red, 1 yellow, 2 green, 3 cyan, "
                                       "4 blue, 5 magenta"},
                           {.key = "inputSat1", .purpose = "saturation of dark tones"},
                           {.key = "inputHue2", .purpose = "hue of bright tones, counted alike"},
                           {.key = "inputSat2", .purpose = "saturation of bright tones"}},
                .beginWith = {{"inputThreshold", 0.45},
                              {"inputHue1", 3.7},
                              {"inputSat1", 0.8},
                              {"inputHue2", 0.6},
                              {"inputSat2", 0.45}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        return kernel.applyWithExtent(
            source.extent(), RegionOfInterest::identity(),
            {source, inputThreshold, inputHue1, inputHue2, inputSat1, inputSat2});
    }

    CIImage inputImage;
    Number inputThreshold, inputHue1, inputSat1, inputHue2, inputSat2;
    VORN_FILTER(VEDuotoneHSV, inputImage, inputThreshold, inputHue1, inputSat1, inputHue2,
                inputSat2)

private:
    inline static CIKernel kernel;
};
VORN_REGISTER(VEDuotoneHSV)
