// A lazy image as data: what it is made of, without rendering it.
#pragma once

#include "Language.h"

#if VORN_HAS_LANGUAGE

#include "CIImage.h"

#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace vorn {

struct ImageDescription;

struct SamplerDescription {
    std::shared_ptr<ImageDescription> image; ///< null for a missing image
    SamplerFilter filter = SamplerFilter::Linear;
    CGColorSpace colorSpace = CGColorSpace::None;
};

using ArgumentDescription = std::variant<Number, CIVector, CIColor, SamplerDescription>;
using BuiltinInput =
    std::variant<Number, CIVector, CIColor, CGAffineTransform, std::shared_ptr<ImageDescription>>;

struct ImageDescription {
    enum class Kind {
        Kernel,       ///< a kernel's application
        Builtin,      ///< one of the image framework's own filters
        Composite,    ///< `over` on top of `under`
        Intermediate, ///< `image`, computed once
        ErrorImage,   ///< the picture that stands in for a refused frame
        Surface,      ///< pixels of a surface or pixel buffer
        Bitmap,       ///< pixels of caller-owned memory
        Accumulator,  ///< an accumulator's image
        Constant,     ///< one colour
    };
    Kind kind = Kind::Bitmap;
    CIImage object; ///< the image object itself; equal handles are the same object
    CGRect extent;

    // Kernel
    std::string library, function;
    KernelType type = KernelType::General;
    std::vector<ArgumentDescription> arguments;
    std::vector<CGRect> regionsOfInterest; ///< one per sampler, for the probe rectangle

    // Builtin
    std::string name;
    std::vector<std::pair<std::string, BuiltinInput>> inputs;

    std::shared_ptr<ImageDescription> over, under; // Composite
    std::shared_ptr<ImageDescription> image;       // Intermediate, and a warp kernel's image

    std::string label, message; // ErrorImage

    // Surface, Bitmap, Accumulator, Constant: what is known
    uint32_t width = 0, height = 0;
    size_t bytesPerRow = 0;
    std::string format;
    CGColorSpace colorSpace = CGColorSpace::None;
    CIColor color;
};

/// Describes an image and everything below it; null for an empty handle. Every kernel's
/// region-of-interest rule is asked with `probe`. An image that is read in two places is described
/// once and shared.
VORN_EXPORT std::shared_ptr<ImageDescription> describeImage(const CIImage& image, CGRect probe);

} // namespace vorn

#endif // VORN_HAS_LANGUAGE
