// VornEffects: real-time video effects. A host calls `VornEffectsRegistrar::registerAllFilters()`
// once and then creates filters by name with `CIFilter::filterWithName`.
#pragma once

#include "CIContext.h"
#include "CIFilter.h"
#include "CIImage.h"
#include "Platform.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// The category that every filter of the library is registered under.
inline constexpr const char kVornFilterCategory[] = "Vorn Custom Filters";

struct VornEffectsRegistrar {
    /// Registers every filter of the manifest, once per process. To be called from one thread.
    static void registerAllFilters();
};

struct VornEffectsCatalog {
    /// Loads the manifest unless that was done before.
    static void registerBuiltInMappings();
    /// The class of a filter name, or null.
    static Class filterClassForName(std::string_view name);
    static std::vector<std::string> allFilterNames();
};

class VornEffectsFilterConstructor final : public CIFilterConstructor {
public:
    /// A new filter; an empty handle and a line on standard output for an unknown name.
    CIFilterRef filterWithName(std::string_view name) override;
};

#ifdef __clang__
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wreturn-type-c-linkage"
#endif
extern "C" {

/// 1.0 and "@(#)PROGRAM:VornEffects  PROJECT:VornV5-1\n".
extern const double VornEffectsVersionNumber;
extern const unsigned char VornEffectsVersionString[];

/// The bytes of a kernel library that lies in the bundle of `owner` as "NAME.ci.metallib"; null
/// when it is missing or unreadable (with a line on standard output), or when there is no owner or
/// no name (silently). Reads the file on every call.
Data VornEffectsLoadMetalLibraryData(Class owner, std::string_view libraryName);

/// A kernel by library and function name; empty, with a line on standard output, when it cannot be
/// loaded.
CIKernel VornEffectsLoadKernel(Class owner, std::string_view libraryName,
                               std::string_view functionName);
CIColorKernel VornEffectsLoadColorKernel(Class owner, std::string_view libraryName,
                                         std::string_view functionName);
CIWarpKernel VornEffectsLoadWarpKernel(Class owner, std::string_view libraryName,
                                       std::string_view functionName);

/// Fills the empty ones among `count` kernel slots by name. True when none stayed empty.
bool VornEffectsLoadKernelArray(Class owner, std::string_view libraryName,
                                const std::string_view* functionNames, CIKernel* slots, int count);

/// A picture from the PNG resource of that name, with a label and a message drawn on it; empty
/// when the resource is missing (with a line on standard output) or is no PNG. Texts are UTF-8
/// whose bytes are read as Mac Roman; null or empty ones are left out.
CIImage VornEffectsCreateErrorImage(std::string_view resourceName, std::string_view label,
                                    std::string_view message);

/// A drawing context on a new pixel buffer (ARGB, 8 bits each, sRGB), whose base address stays
/// locked and which is stored in `buffer` when that is given. Null on failure, with a line on
/// standard output. `label` is used in messages only and may be null.
CGContextRef VornEffectsCreateBitmapContext(uint32_t width, uint32_t height,
                                            CVPixelBufferRef* buffer, const char* label);

/// Nanoseconds of the platform's monotonic clock.
uint64_t VornEffectsGetUptimeInNanoseconds();
double VornEffectsDeg2rad(double degrees);
/// The angle less its whole turns, counted toward zero in 32 bits: the sign of the angle stays.
double VornEffectsMod2pi(double radians);
}
#ifdef __clang__
#pragma clang diagnostic pop
#endif
