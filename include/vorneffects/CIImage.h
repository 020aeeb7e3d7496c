// Lazy images, samplers and kernels. Nothing here computes a pixel: an image describes how it is
// made, and a `CIContext` renders it.
#pragma once

#include "Language.h"

#if VORN_HAS_LANGUAGE

#include "Geometry.h"
#include "Platform.h"
#include "Values.h"

#include <atomic>
#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace vorn::imaging {
struct Node;
struct LibraryFunction;
class KernelModule;
namespace cpu {
class Plan;
}
} // namespace vorn::imaging

namespace vorn {

/// An entry of an image's properties dictionary.
using PropertyValue = std::variant<bool, double, std::string>;
using ImageProperties = std::map<std::string, PropertyValue, std::less<>>;

/// How means of pixels are kept: with as many bits as the pixels, which is faster, or in floats,
/// where a step of 8 bits may change what a kernel makes of them.
enum class ReducedBits : uint8_t { OfSources, Floats };

} // namespace vorn

/// An immutable lazy image. Copies are cheap and share the same image object; `==` tells whether
/// two handles hold the same object. An empty handle is no image at all, and what is given, with a
/// line, where memory runs out.
class VORN_EXPORT CIImage {
public:
    CIImage() = default;

    explicit operator bool() const { return node_ != nullptr; }
    bool operator==(const CIImage& other) const { return node_ == other.node_; }

    /// The region outside of which the image is transparent black; may be infinite or have any
    /// origin. The zero rectangle for an empty handle.
    CGRect extent() const;
    const vorn::ImageProperties& properties() const;
    CGColorSpace colorSpace() const;
    /// The same image with another properties dictionary.
    CIImage imageBySettingProperties(vorn::ImageProperties properties) const;

    /// An image of the caller's memory, which is not copied and must stay valid and unchanged until
    /// the last render of it: `width` by `height` premultiplied pixels, top row first, rows
    /// `bytesPerRow` apart. `owner` (optional) is held as long as the image lives. `origin` is the
    /// lower-left corner of the extent, in whole pixels. Empty when the size is zero, the stride is
    /// below the row or beyond any memory, the origin is not finite, or format or colour space are
    /// unknown.
    static CIImage imageWithBitmap(const void* bytes, uint32_t width, uint32_t height,
                                   size_t bytesPerRow, CIFormat format,
                                   CGColorSpace colorSpace = CGColorSpace::SRGB,
                                   std::shared_ptr<const void> owner = nullptr,
                                   CGPoint origin = {});
    static CIImage imageWithCVPixelBuffer(CVPixelBufferRef buffer,
                                          CGColorSpace colorSpace = CGColorSpace::SRGB);
    static CIImage imageWithIOSurface(IOSurfaceRef surface,
                                      CGColorSpace colorSpace = CGColorSpace::None);
    /// A colour without end.
    static CIImage imageWithColor(CIColor color);

    CIImage imageByCroppingToRect(CGRect rect) const;
    /// The picture, beyond whose border the border's pixels go on without end.
    CIImage imageByClampingToExtent() const;
    /// Empty when the transform is not finite or cannot be inverted.
    CIImage imageByApplyingTransform(CGAffineTransform transform) const;
    /// This image over another (source-over on premultiplied colour); with an empty handle on
    /// either side, the other image.
    CIImage imageByCompositingOverImage(const CIImage& under) const;
    /// The same image with a promise: inside of its extent the picture repeats after so many pixels
    /// across and up (0: it does not), so that one period may be computed and copied. A promise
    /// that does not hold gives the picture that it describes. Descriptions do not show it.
    CIImage imageWithPeriod(int across, int up) const;
    /// The same image with a promise: inside of its extent it looks like `other`, which may be
    /// computed in its place, as where a filter mixes by 0 or by 1. A promise that does not hold
    /// gives the other picture. Descriptions do not show it. Of images that no kernel made, the
    /// image itself.
    CIImage imageKnownToEqual(const CIImage& other) const;
    /// The same image, whose kernel reads its reduced image (`reduced` in the kernel language) in
    /// means of so many pixels across and up, 64 at most. Descriptions do not show it. Of images
    /// whose kernel has no reduced image, the image itself.
    CIImage imageWithReduction(int across, int up,
                               vorn::ReducedBits bits = vorn::ReducedBits::OfSources) const;
    /// The same image, kept with 8 bits until another kernel reads it where its sources are pixels
    /// of 8 bits and so is the result, not in floats: enough, and up to twice as fast, where pixels
    /// only move, or where what becomes of them is rounded to 8 bits anyway. Descriptions do not
    /// show it.
    CIImage imageInBitsOfSources() const;
    /// The same picture, computed once per render however often it is read.
    CIImage imageByInsertingIntermediate() const;

    const vorn::imaging::Node* node() const { return node_.get(); }
    const std::shared_ptr<const vorn::imaging::Node>& sharedNode() const { return node_; }
    explicit CIImage(std::shared_ptr<const vorn::imaging::Node> node) : node_(std::move(node)) {}

private:
    std::shared_ptr<const vorn::imaging::Node> node_;
};

namespace vorn {

enum class SamplerFilter : uint8_t { Nearest, Linear };

struct SamplerOptions {
    SamplerFilter filter = SamplerFilter::Linear;
    CGColorSpace colorSpace = CGColorSpace::None; ///< None: the context's working space
};

} // namespace vorn

inline constexpr vorn::SamplerFilter kCISamplerFilterLinear = vorn::SamplerFilter::Linear,
                                     kCISamplerFilterNearest = vorn::SamplerFilter::Nearest;

/// How a kernel reads an image. A sampler of an empty image is itself empty.
class VORN_EXPORT CISampler {
public:
    CISampler() = default;
    explicit CISampler(CIImage image, vorn::SamplerOptions options = {})
        : image_(std::move(image)), options_(options) {}
    static CISampler samplerWithImage(CIImage image, vorn::SamplerOptions options = {}) {
        return CISampler(std::move(image), options);
    }

    explicit operator bool() const { return static_cast<bool>(image_); }
    const CIImage& image() const { return image_; }
    const vorn::SamplerOptions& options() const { return options_; }
    /// The image's extent; the zero rectangle when there is none.
    CGRect extent() const { return image_.extent(); }

private:
    CIImage image_;
    vorn::SamplerOptions options_;
};

namespace vorn {

/// Which region of source number `index` (0 is the first sampler argument) a kernel is said to need
/// for a destination rectangle. One of a closed set of rules. Descriptions show it. Devices go by
/// what the kernel reads: the own pixel where it reads nothing else, otherwise all of the source,
/// unless the rule is `exact`, or the source has no end or more than 2^28 pixels.
class VORN_EXPORT RegionOfInterest {
public:
    enum class Kind : uint8_t {
        Identity,
        Whole,
        WholeByIndex,
        Grown,
        Transformed,
        Clamped,
        Computed
    };
    using Callback = std::function<CGRect(int index, CGRect destination)>;

    /// The destination rectangle itself.
    static RegionOfInterest identity() { return {}; }
    /// One rectangle whatever is asked for: the extent of a sampler or image.
    static RegionOfInterest whole(CGRect extent);
    static RegionOfInterest whole(const CISampler& sampler) { return whole(sampler.extent()); }
    static RegionOfInterest whole(const CIImage& image) { return whole(image.extent()); }
    /// Index 0: the first extent, any other index: the second.
    static RegionOfInterest wholeByIndex(CGRect first, CGRect others);
    /// The destination grown by a margin in pixels on every side.
    static RegionOfInterest grownBy(double margin);
    /// The box around the destination under a transform.
    static RegionOfInterest transformedBy(CGAffineTransform transform);
    /// The destination moved into an extent, of which a kernel reads no pixel farther away than the
    /// border: for a destination outside, the pixels of the border that are nearest to it.
    static RegionOfInterest clampedTo(CGRect extent);
    /// Anything else. Called on the rendering thread, any number of times; must depend only on
    /// its arguments and on what it captured. What it throws fails a render that asks it, whose
    /// error says so.
    static RegionOfInterest computed(Callback callback);

    /// The same rule with a promise: for any destination the kernel reads nothing but what the rule
    /// gives and the pixels next to that, so that no more of a source need be computed. A promise
    /// that does not hold cuts the picture.
    RegionOfInterest exact() const {
        RegionOfInterest rule = *this;
        rule.isExact_ = true;
        return rule;
    }

    /// The zero rectangle, with a line, where a rule of the host's throws.
    CGRect rectFor(int index, CGRect destination) const;
    Kind kind() const { return kind_; }
    bool isExact() const { return isExact_; }
    double margin() const { return margin_; }

private:
    friend class imaging::cpu::Plan;
    CGRect ask(int index, CGRect destination) const; ///< throws what a rule of the host's does

    Kind kind_ = Kind::Identity;
    bool isExact_ = false;
    double margin_ = 0;
    CGRect first_, others_;
    CGAffineTransform transform_;
    Callback callback_;
};

/// One kernel argument. Unset numbers, vectors, colours and empty images and samplers are missing
/// arguments: applying a kernel with one yields an empty image and a line on standard output.
class VORN_EXPORT KernelArgument {
public:
    KernelArgument(Number value) : value_(value) {}
    KernelArgument(double value) : value_(Number(value)) {}
    KernelArgument(float value) : value_(Number(value)) {}
    KernelArgument(int32_t value) : value_(Number(value)) {}
    KernelArgument(uint32_t value) : value_(Number(value)) {}
    KernelArgument(CIVector value) : value_(value) {}
    KernelArgument(CIColor value) : value_(value) {}
    KernelArgument(CISampler value) : value_(std::move(value)) {}
    /// An image is read through a sampler with default options.
    KernelArgument(CIImage value) : value_(CISampler(std::move(value))) {}
    /// A sampler that may be empty, where the result is an image of empty extent then.
    static KernelArgument orNothing(CISampler value) {
        KernelArgument argument(std::move(value));
        argument.mayBeMissing_ = true;
        return argument;
    }

    using Value = std::variant<Number, CIVector, CIColor, CISampler>;
    const Value& value() const { return value_; }
    bool isMissing() const;

private:
    Value value_;
    bool mayBeMissing_ = false;
};
using KernelArguments = std::initializer_list<KernelArgument>;

enum class KernelType : uint8_t { General, Color, Warp };

/// Describes what went wrong when a kernel could not be made.
struct KernelError {
    std::string localizedDescription;
};

/// Checks a kernel library's bytes without running anything in them: nothing when the library is
/// whole, else what is wrong with it (the same description that loading a kernel from it gives).
VORN_EXPORT std::optional<std::string> kernelLibraryProblem(const Data& library);

} // namespace vorn

/// A function of a kernel library. An empty handle is no kernel; applying it yields no image. What
/// a handle refers to stays until the process ends. A handle that a class keeps for all of its
/// instances may be filled on one thread while others read it: they find a whole kernel or none.
class VORN_EXPORT CIKernel {
public:
    constexpr CIKernel() = default;
    explicit CIKernel(const vorn::imaging::LibraryFunction* function) : function_(function) {}
    CIKernel(const CIKernel& other) : function_(other.function()) {}
    CIKernel& operator=(const CIKernel& other) {
        function_.store(other.function(), std::memory_order_release);
        return *this;
    }

    /// Makes the kernel of that name from a kernel library's bytes. A colour-kernel function comes
    /// back as a colour kernel, any other one as a general kernel. Empty on failure, with `error`
    /// filled when one is given.
    static CIKernel kernelWithFunctionName(std::string_view name, const vorn::Data& library,
                                           vorn::KernelError* error);

    explicit operator bool() const { return function() != nullptr; }
    vorn::KernelType type() const;
    std::string_view name() const;
    std::string_view libraryName() const;

    /// The lazy image that this kernel makes over `extent`. The arguments must match the kernel's
    /// parameters in number and kind; a mismatch or a missing argument yields an empty image and
    /// one line on standard output that names it.
    CIImage applyWithExtent(CGRect extent, const vorn::RegionOfInterest& regionOfInterest,
                            vorn::KernelArguments arguments) const;
    /// For colour kernels: every source is read at the pixel that is written.
    CIImage applyWithExtent(CGRect extent, vorn::KernelArguments arguments) const;

    const vorn::imaging::LibraryFunction* function() const {
        return function_.load(std::memory_order_acquire);
    }

private:
    std::atomic<const vorn::imaging::LibraryFunction*> function_ = nullptr;
};

class VORN_EXPORT CIColorKernel : public CIKernel {
public:
    using CIKernel::CIKernel;
    static CIColorKernel kernelWithFunctionName(std::string_view name, const vorn::Data& library,
                                                vorn::KernelError* error);
};

class VORN_EXPORT CIWarpKernel : public CIKernel {
public:
    using CIKernel::CIKernel;
    static CIWarpKernel kernelWithFunctionName(std::string_view name, const vorn::Data& library,
                                               vorn::KernelError* error);
    /// The image resampled at the coordinates that the kernel returns.
    CIImage applyWithExtent(CGRect extent, const vorn::RegionOfInterest& regionOfInterest,
                            const CIImage& image, vorn::KernelArguments arguments) const;
};

/// An image that is kept from frame to frame. It starts transparent.
class VORN_EXPORT CIImageAccumulator {
public:
    /// Null when the extent is empty, infinite, above `pixelLimit` or too large to allocate, or the
    /// format is none.
    static std::shared_ptr<CIImageAccumulator> imageAccumulatorWithExtent(CGRect extent,
                                                                          CIFormat format);
    ~CIImageAccumulator();

    CGRect extent() const;
    CIFormat format() const;
    /// What was stored last. The handle stays the same until the next change; images made from it
    /// keep showing what it held when they were made.
    CIImage image() const;
    /// Renders an image (which may be made from `image()`) and keeps the result.
    void setImage(const CIImage& image);
    void clear();

private:
    CIImageAccumulator();
    bool store(const CIImage& image, std::string& problem);
    struct State;
    std::unique_ptr<State> state_;
};

#endif // VORN_HAS_LANGUAGE
