// What filters share beyond their declaration. For filter files only, which write these names
// without their namespace.
#pragma once

#include "vorneffects/VornEffects.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

namespace vorn::filters {

// ---- Kernels ----------------------------------------------------------------------------------

/// Fills a class-wide slot that is still empty with a kernel of the slot's kind. The class that
/// owns the library is `Filter` itself, whatever class the instance has.
template <class Filter>
void loadKernel(CIKernel& slot, std::string_view libraryName, std::string_view functionName) {
    if (!slot) slot = VornEffectsLoadKernel(Filter::theClass(), libraryName, functionName);
}
template <class Filter>
void loadKernel(CIColorKernel& slot, std::string_view libraryName, std::string_view functionName) {
    if (!slot) slot = VornEffectsLoadColorKernel(Filter::theClass(), libraryName, functionName);
}
template <class Filter>
void loadKernel(CIWarpKernel& slot, std::string_view libraryName, std::string_view functionName) {
    if (!slot) slot = VornEffectsLoadWarpKernel(Filter::theClass(), libraryName, functionName);
}

/// Fills class-wide slots, one per mode, in the order of `functionNames`. Slot 0 alone tells
/// whether the class is loaded: gaps behind it stay until it is empty too. It is stored last, so
/// that whoever finds it filled finds the others.
template <class Filter, size_t count>
void loadKernels(CIKernel (&slots)[count], std::string_view libraryName,
                 const std::string_view (&functionNames)[count]) {
    if (!slots[0])
        VornEffectsLoadKernelArray(Filter::theClass(), libraryName, functionNames, slots,
                                   static_cast<int>(count));
}

/// A mode input, not above `last`; a mode that reads as negative stays negative.
inline int clampedMode(const Number& mode, int last) {
    return std::min(mode.modeValue(), last);
}

/// The kernel of a mode; past the last one the last, below the first one the first.
template <size_t count>
const CIKernel& kernelForMode(const CIKernel (&kernels)[count], const Number& mode) {
    return kernels[std::max(0, clampedMode(mode, static_cast<int>(count) - 1))];
}

// ---- Chance -----------------------------------------------------------------------------------

/// Random numbers of one filter, drawn from its session: the same ones whenever the filters of a
/// session are made in the same order, whoever else draws.
class RandomNumbers {
public:
    RandomNumbers() : state_(vorn::Session::current()->random()) {}

    /// Even over [0, 1).
    double unit() {
        state_ = state_ * 6364136223846793005 + 1442695040888963407; // Knuth, MMIX
        return static_cast<double>(state_ >> 11) * 0x1p-53;
    }

private:
    uint64_t state_;
};

// ---- Other filters ------------------------------------------------------------------------------

/// A filter that this one chains, made when it is first needed. Where there is no memory for it the
/// frame fails as a whole, and the next one tries again.
inline CIFilter& chained(CIFilterRef& filter, std::string_view name) {
    if (!filter) filter = CIFilter::filterWithName(name);
    if (!filter) throw std::runtime_error(std::string(name) + " could not be made");
    return *filter;
}

// ---- Tiles -------------------------------------------------------------------------------------

/// Whether a picture begins and ends with whole pixels: only then are the copies of its border's
/// pixels pixels as well, and no blends of two.
inline bool liesOnPixels(CGRect extent) {
    return extent == extent.integral();
}

/// The pixels after which a frame of that length repeats that is divided into tiles; 0 where they
/// are not whole pixels.
inline int periodOfTiles(double length, const Number& divisions) {
    const double count = divisions.floatValue();
    return count >= 2 && count <= length && std::fmod(length, count) == 0
               ? static_cast<int>(length / count)
               : 0;
}

/// How many pixels of a picture, along each axis, make one where it is drawn so many times smaller:
/// the whole part of that number where it is above 2, since a bilinear read takes four together.
/// For `CIImage::imageWithReduction`.
inline int timesSmaller(float scale) {
    return scale > 2 ? static_cast<int>(std::min(scale, 4096.0f)) : 1;
}

// ---- Oversize guard ---------------------------------------------------------------------------
// A filter that refuses large frames compares the area of its input with one of these limits, in
// pixels, and says itself whether a frame of exactly the limit passes:
//     if (area(inputImage) > kArea3840x2160) return errorImage.imageFor("FX 127");
// Every limit is a whole number that single precision holds too.

inline constexpr double kArea3840x2160 = 8294400;
inline constexpr double kArea4320x4320 = 18662400; ///< 5760 by 3240 as well
inline constexpr double kFixedArea23764000 = 23764000;
inline constexpr double kFixedArea27559000 = 27559000;
inline constexpr double kArea7500x7500 = 56250000;
inline constexpr double kArea12000x12000 = 144000000;

/// Width times height in pixels; 0 without an image.
inline double area(const CIImage& image) {
    const CGRect extent = image.extent();
    return extent.width * extent.height;
}

/// The same in single precision, where near a limit some areas round onto it.
inline float areaInSinglePrecision(const CIImage& image) {
    const CGRect extent = image.extent();
    return static_cast<float>(extent.width) * static_cast<float>(extent.height);
}

/// The picture that a filter gives for a frame it refuses, made once per filter instance.
class ErrorImage {
public:
    /// The same image object on every call; a picture that could not be made is asked for again.
    const CIImage& imageFor(std::string_view label) {
        if (!image_)
            image_ = VornEffectsCreateErrorImage("FX_error_image", label, "Image Too Big!");
        return image_;
    }

private:
    CIImage image_;
};

} // namespace vorn::filters

using namespace vorn;
using namespace vorn::filters;
