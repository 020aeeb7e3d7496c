// The framework's hue filter, and its colour controls on top.
#pragma once

#include "core/FilterSupport.h"

namespace vorn::filters {

class HueAndControls {
public:
    CIImage of(const CIImage& image, const Number& angle, const Number& saturation,
               const Number& brightness) {
        CIFilter& turned = chained(hue_, "CIHueAdjust");
        turned.setValueForKey(image, "inputImage");
        turned.setValueForKey(angle, "inputAngle");
        CIFilter& adjusted = chained(controls_, "CIColorControls");
        adjusted.setValueForKey(turned.outputImage(), "inputImage");
        adjusted.setValueForKey(saturation, "inputSaturation");
        adjusted.setValueForKey(brightness, "inputBrightness");
        adjusted.setValueForKey(1.0, "inputContrast");
        return adjusted.outputImage();
    }

private:
    CIFilterRef hue_, controls_;
};

} // namespace vorn::filters
