// Centre image: the image in the middle of a frame of another size.
#include "core/FilterSupport.h"

class VECenterImage : public CIFilter {
public:
    VECenterImage() {
        loadKernel<VECenterImage>(kernel, "VE_CenterImageFilterKernel",
                                  "VE_CenterImageFilterKernel_centerImage");
    }

    static Attributes customAttributes() {
        return {position("inputTargetSize", "Target Size", CIVector(800, 600))};
    }

    static FilterGuide guide() {
        return {.title = "Centre in a frame",
                .sentence = "Puts the picture, in its own size, into the middle of a frame of "
                            "another size, and cuts off what does not fit.",
                .tags = {"canvas", "crop", "pad", "framing"},
                .inputs = {{.key = "inputTargetSize",
                            .purpose = "width and height of the frame",
                            .unit = "pixels"}}};
    }

    CIImage outputImage() override {
        const CGRect source = inputImage.extent();
        const double width = inputTargetSize.X(), height = inputTargetSize.Y();
        return kernel.applyWithExtent({0, 0, width, height}, RegionOfInterest::whole(inputImage),
                                      {CISampler(inputImage),
                                       CIVector(static_cast<float>((width - source.width) * 0.5),
                                                static_cast<float>((height - source.height) * 0.5)),
                                       CIVector(source.width, source.height)});
    }

    CIImage inputImage;
    CIVector inputTargetSize;
    VORN_FILTER(VECenterImage, inputImage, inputTargetSize)

private:
    inline static CIKernel kernel;
};
VORN_REGISTER(VECenterImage)
