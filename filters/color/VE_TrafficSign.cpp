// Traffic sign: a few flat, bold colours. The boost moves each channel away from the middle, the
// scale is its number of steps.
#include "core/FilterSupport.h"

class VE_TrafficSign : public CIFilter {
public:
    VE_TrafficSign() {
        loadKernel<VE_TrafficSign>(kernel, "VE_TrafficSignFilterKernel",
                                   "VE_TrafficSign_trafficSign");
    }

    static Attributes customAttributes() {
        return {
            constant("inputMixer", {}), // at rest by default, unlike the mixer of other filters
            constant("inputScale", {.min = 1, .sliderMin = 1, .sliderMax = 200, .standard = 10}),
            constant("inputBoost", {.min = 1, .sliderMin = 1, .sliderMax = 5, .standard = 1})};
    }

    static FilterGuide guide() {
        return {
            .title = "Traffic sign",
            .sentence = "Redraws the picture in the flat colours of traffic signs: white, red, "
                        "orange, yellow, green and blue.",
            .tags = {"posterize", "flat", "bold", "colours"},
            .inputs = {{.key = "inputScale",
                        .label = "shades",
                        .purpose = "how finely the colours are shaded, from flat to twelve steps"},
                       {.key = "inputBoost",
                        .purpose = "how soon pale colours are more than white"}},
            .beginWith = {{"inputMixer", 1}, {"inputScale", 10}, {"inputBoost", 1.5}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        return kernel.applyWithExtent(source.extent(), RegionOfInterest::identity(),
                                      {source, inputMixer, inputScale, inputBoost});
    }

    CIImage inputImage;
    Number inputMixer, inputScale, inputBoost;
    VORN_FILTER(VE_TrafficSign, inputImage, inputMixer, inputScale, inputBoost)

private:
    inline static CIKernel kernel;
};
VORN_REGISTER(VE_TrafficSign)
