// Freeze: holds the frame that was live when the control went on.
#include "filters/temporal/FrameCapture.h"

class VEFreeze : public CIFilter {
public:
    static Attributes customAttributes() {
        return {scalar("inputFreeze", "freeze", {.standard = 1})};
    }

    static FilterGuide guide() {
        return {.title = "Freeze",
                .sentence = "Holds the picture that was there when the control went on.",
                .tags = {"hold", "still", "pause"},
                .inputs = {{.key = "inputFreeze", .purpose = "live up to 0.5, held above"}},
                .keepsState = true,
                .framesRemembered = 1};
    }

    CIImage outputImage() override {
        if (inputFreeze.floatValue() <= 0.5f) {
            clear();
            return inputImage;
        }
        if (frozen) return CIImage::imageWithIOSurface(frozen, CGColorSpace::SRGB);
        // The frame on which the freeze begins is still the live one.
        const CGRect extent = inputImage.extent();
        IOSurfaceRef surface = surfaceFor(extent.width, extent.height);
        if (surface && captureTo(*surface, inputImage, CGColorSpace::SRGB))
            frozen = std::move(surface);
        return inputImage;
    }

    void clear() override { frozen.reset(); }

    CIImage inputImage;
    Number inputFreeze;
    VORN_FILTER(VEFreeze, inputImage, inputFreeze)

private:
    IOSurfaceRef frozen; ///< null while live
};
VORN_REGISTER(VEFreeze)
