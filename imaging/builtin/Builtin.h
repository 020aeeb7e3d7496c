// What the framework's own filters share. Each has a file of its own, its kernels in a library of
// its family, and a place in the list below, which makes it creatable by name.
//
// They agree on what is no mistake: without an input image there is no output image, and an empty
// image stays empty, both silently. A parameter that makes no sense gives no image and one line on
// standard output, "### NAME: what is wrong".
#pragma once

#include "imaging/KernelLibrary.h"
#include "imaging/Node.h"
#include "vorneffects/CIFilter.h"

#include <cmath>
#include <map>
#include <string>
#include <string_view>

/// Every filter with its category; its class has the same name.
#define VORN_BUILTIN_FILTERS(filter)                                                               \
    filter(CIAffineTransform, "Built-in Geometry") filter(CIBlendWithAlphaMask,                    \
                                                          "Built-in Compositing")                  \
        filter(CIBlendWithMask, "Built-in Compositing") filter(CIColorControls, "Built-in Color")  \
            filter(CIColorMonochrome, "Built-in Color") filter(CICrop, "Built-in Geometry")        \
                filter(CIDarkenBlendMode, "Built-in Compositing") filter(CIDivideBlendMode,        \
                                                                         "Built-in Compositing")   \
                    filter(CIGaussianBlur, "Built-in Blur") filter(CIHardLightBlendMode,           \
                                                                   "Built-in Compositing")         \
                        filter(CIHueAdjust, "Built-in Color") filter(CILanczosScaleTransform,      \
                                                                     "Built-in Geometry")          \
                            filter(CIMaximumCompositing, "Built-in Compositing")                   \
                                filter(CIPerspectiveTransformWithExtent, "Built-in Geometry")      \
                                    filter(CIPinLightBlendMode, "Built-in Compositing")            \
                                        filter(CIRadialGradient, "Built-in Generator") filter(     \
                                            CIRandomGenerator, "Built-in Generator")               \
                                            filter(CISmoothLinearGradient, "Built-in Generator")   \
                                                filter(CISourceOverCompositing,                    \
                                                       "Built-in Compositing")                     \
                                                    filter(CITemperatureAndTint, "Built-in Color")

namespace vorn::imaging {

#define VORN_BUILTIN_CLASS(name, category) Class builtinClass##name();
VORN_BUILTIN_FILTERS(VORN_BUILTIN_CLASS)
#undef VORN_BUILTIN_CLASS

/// After a filter class: makes it known by its name and to the list above.
#define VORN_BUILTIN(FilterClass)                                                                  \
    VORN_REGISTER(FilterClass)                                                                     \
    Class vorn::imaging::builtinClass##FilterClass() {                                             \
        return FilterClass::theClass();                                                            \
    }

/// Every filter of the list, as the registry of filters keeps them.
std::map<std::string, RegisteredFilter, std::less<>> builtinFilters();

/// A node that applies a kernel of the framework's libraries; null when that fails, with a line.
std::shared_ptr<Node> applyFrameworkKernel(std::string_view library, std::string_view kernel,
                                           CGRect extent, const RegionOfInterest& regionOfInterest,
                                           KernelArguments arguments);

/// The finished image of a filter: the node, told apart from others by the filter's name and its
/// inputs as they are set now. No image for a null node.
CIImage outputOf(const CIFilter& filter, std::shared_ptr<Node> node);

/// Prints "### NAME: problem"; gives no image.
CIImage refuse(const CIFilter& filter, const char* problem);

/// A number that every later step can work with; an unset one counts as 0.
inline bool isFinite(const Number& number) {
    return std::isfinite(number.doubleValue());
}
inline bool isFinite(const CIVector& vector) {
    return std::isfinite(vector.X()) && std::isfinite(vector.Y()) && std::isfinite(vector.Z()) &&
           std::isfinite(vector.W());
}
inline bool isFinite(const CIColor& color) {
    return std::isfinite(color.red()) && std::isfinite(color.green()) &&
           std::isfinite(color.blue()) && std::isfinite(color.alpha());
}

/// The attributes of an input that is a vector or a colour.
InputAttributes withDefault(std::string key, std::string displayName, AttributeValue standard);

} // namespace vorn::imaging

using namespace vorn;
using namespace vorn::imaging;
