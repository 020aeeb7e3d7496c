// Crop: the image inside a rectangle, transparent outside. The rectangle's edges are rounded
// outward to whole pixels where it is rendered. No pass: a crop narrows what its readers read.
#include "imaging/builtin/Builtin.h"

class CICrop : public CIFilter {
public:
    static Attributes customAttributes() {
        return {withDefault("inputRectangle", "rectangle", CIVector(0, 0, 300, 300))};
    }

    static FilterGuide guide() {
        return {
            .title = "Crop",
            .sentence = "Keeps what lies inside a rectangle.",
            .tags = {"crop", "rectangle"},
        };
    }

    CIImage outputImage() override {
        if (!inputImage) return {};
        const CGRect rect{inputRectangle.X(), inputRectangle.Y(), inputRectangle.Z(),
                          inputRectangle.W()};
        if (std::isnan(rect.x + rect.y) || std::isnan(rect.width) || std::isnan(rect.height))
            return refuse(*this, "the rectangle has an edge that is not a number");
        return inputImage.imageByCroppingToRect(rect);
    }

    CIImage inputImage;
    /// x, y, width, height, in pixels; without a positive width and height nothing is left.
    CIVector inputRectangle;
    VORN_FILTER(CICrop, inputImage, inputRectangle)
};
VORN_BUILTIN(CICrop)
