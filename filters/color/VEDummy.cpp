// Dummy: the image as it is. The smallest filter there can be.
#include "core/FilterSupport.h"

class VEDummy : public CIFilter {
public:
    VEDummy() { loadKernel<VEDummy>(kernel, "VE_DummyFilterKernel", "VE_Dummy_dummy"); }

    static FilterGuide guide() {
        return {.title = "Nothing",
                .sentence = "Shows the picture as it is.",
                .tags = {"neutral", "test"}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        return kernel.applyWithExtent(source.extent(), RegionOfInterest::identity(), {source});
    }

    CIImage inputImage;
    VORN_FILTER(VEDummy, inputImage)

private:
    inline static CIKernel kernel;
};
VORN_REGISTER(VEDummy)
