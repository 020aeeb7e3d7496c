// Double vision: the frame and a copy of it that lies beside it.
#include "core/FilterSupport.h"

class VEDoubleVision : public CIFilter {
public:
    VEDoubleVision() {
        loadKernel<VEDoubleVision>(kernel, "VE_DoubleVisionFilterKernel",
                                   "VE_DoubleVision_doubleVision");
    }

    static Attributes customAttributes() {
        return {mixer(), scalar("inputSeparationX", "sep x", {.standard = 0.5}),
                scalar("inputSeparationY", "sep y", {.standard = 0.5})};
    }

    static FilterGuide guide() {
        return {.title = "Double vision",
                .sentence = "Lays a copy of the picture over it that is moved to the right or left "
                            "and up or down.",
                .tags = {"ghost", "copy", "offset", "drunk"},
                .inputs = {{.key = "inputSeparationX",
                            .label = "separation across",
                            .purpose = "how far to the left or right the copy lies, on the picture "
                                       "in the middle"},
                           {.key = "inputSeparationY",
                            .label = "separation up",
                            .purpose = "how far down or up the copy lies, on the picture in the "
                                       "middle"}},
                .beginWith = {{"inputSeparationX", 0.6}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        if (area(inputImage) > kFixedArea23764000) return errorImage.imageFor("FX 158");
        const float x = offset(inputImage.extent().width, inputSeparationX);
        const float y = offset(inputImage.extent().height, inputSeparationY);
        const CIImage doubled =
            kernel.applyWithExtent(source.extent(), RegionOfInterest::whole(source),
                                   {KernelArgument::orNothing(source), inputMixer, CIVector(x, y)});
        const bool isOne = x == 0 && y == 0;
        return isOne || inputMixer.floatValue() == 0 ? doubled.imageKnownToEqual(inputImage)
                                                     : doubled;
    }

    CIImage inputImage;
    Number inputMixer, inputSeparationX, inputSeparationY;
    VORN_FILTER(VEDoubleVision, inputImage, inputMixer, inputSeparationX, inputSeparationY)

private:
    /// Pixels, up to a quarter of the frame either way.
    static float offset(double length, const Number& separation) {
        const auto share = static_cast<float>(2.0 * separation.floatValue() - 1);
        return static_cast<float>(length * share * 0.25);
    }

    inline static CIKernel kernel;
    ErrorImage errorImage;
};
VORN_REGISTER(VEDoubleVision)
