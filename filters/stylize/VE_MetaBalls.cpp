// Metaballs: melts the bright parts of the image into soft blobs of one colour.
#include "core/FilterSupport.h"

class VE_MetaBalls : public CIFilter {
public:
    VE_MetaBalls() {
        loadKernel<VE_MetaBalls>(kernel, "VE_MetaBallsFilterKernel", "VE_MetaBalls_lumaKey");
    }

    static Attributes customAttributes() {
        return {constant("inputBlur", {.sliderMax = 100, .standard = 10}),
                constant("inputThreshold", {.sliderMax = 255, .standard = 127})};
    }

    static FilterGuide guide() {
        return {.title = "Metaballs",
                .sentence = "Melts the bright parts of the picture into soft blobs of one colour.",
                .tags = {"blobs", "liquid", "blur", "silhouette"},
                .inputs = {{.key = "inputBlur", .purpose = "how far bright parts run together"},
                           {.key = "inputThreshold",
                            .purpose = "how bright a blob has to be; more blur asks for less"},
                           color("inputRed", "red", 255),
                           color("inputGreen", "green", 112),
                           color("inputBlue", "blue", 32)}};
    }

    CIImage outputImage() override {
        CIFilter& blur = chained(gaussian, "CIGaussianBlur");
        blur.setValueForKey(inputImage, "inputImage");
        blur.setValueForKey(inputBlur, "inputRadius");
        const CISampler blurred(blur.outputImage());
        const auto threshold =
            static_cast<float>(inputBlur.floatValue() / -0.75 + inputThreshold.floatValue());
        const auto share = [](float of255) { return static_cast<float>(of255 * kShortened255th); };
        return kernel.applyWithExtent(blurred.extent(), RegionOfInterest::grownBy(1),
                                      {blurred, share(threshold), share(inputRed.floatValue()),
                                       share(inputGreen.floatValue()),
                                       share(inputBlue.floatValue())});
    }

    CIImage inputImage;
    Number inputBlur, inputThreshold;
    Number inputRed, inputGreen, inputBlue; ///< not advertised; black when they are unset
    VORN_FILTER(VE_MetaBalls, inputImage, inputBlur, inputThreshold, inputRed, inputGreen,
                inputBlue)

private:
    static InputGuide color(const char* key, const char* label, double start) {
        return {.key = key, .label = label, .from = 0, .to = 255, .start = start};
    }

    static constexpr double kShortened255th = 0.003921568;
    inline static CIKernel kernel;
    CIFilterRef gaussian;
};
VORN_REGISTER(VE_MetaBalls)
