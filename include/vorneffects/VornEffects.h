// VornEffects: real-time video effects. A host calls `VornEffectsRegistrar::registerAllFilters()`
// once and then creates filters by name with `CIFilter::filterWithName`.
#pragma once

#include "Language.h"

#if VORN_HAS_LANGUAGE

#include "CIContext.h"
#include "CIFilter.h"
#include "CIImage.h"
#include "Platform.h"
#include "Session.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vorn {

/// The category that every filter of the library is registered under.
inline constexpr const char kVornFilterCategory[] = "Vorn Custom Filters";

} // namespace vorn

struct VORN_EXPORT VornEffectsRegistrar {
    /// Registers every filter of the manifest, once per process.
    static void registerAllFilters();
    /// What went wrong with that, one line for each fault: the manifest is missing or no property
    /// list, an entry of it has no name or names no class of the library. Empty when nothing did,
    /// and before the registration. Filters without a fault are there all the same.
    static std::string registrationProblem();
};

struct VORN_EXPORT VornEffectsCatalog {
    /// Loads the manifest unless that was done before.
    static void registerBuiltInMappings();
    /// The class of a filter name, or null.
    static Class filterClassForName(std::string_view name);
    static std::vector<std::string> allFilterNames();
};

class VORN_EXPORT VornEffectsFilterConstructor final : public CIFilterConstructor {
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
extern VORN_EXPORT const double VornEffectsVersionNumber;
extern VORN_EXPORT const unsigned char VornEffectsVersionString[];

/// The bytes of a kernel library that lies in the bundle of `owner` as "NAME.ci.metallib"; null
/// when it is missing or unreadable (with a line on standard output), or when there is no owner or
/// no name (silently). Reads the file on every call.
VORN_EXPORT vorn::Data VornEffectsLoadMetalLibraryData(Class owner, std::string_view libraryName);

/// A kernel by library and function name; empty, with a line on standard output, when it cannot be
/// loaded.
VORN_EXPORT CIKernel VornEffectsLoadKernel(Class owner, std::string_view libraryName,
                                           std::string_view functionName);
VORN_EXPORT CIColorKernel VornEffectsLoadColorKernel(Class owner, std::string_view libraryName,
                                                     std::string_view functionName);
VORN_EXPORT CIWarpKernel VornEffectsLoadWarpKernel(Class owner, std::string_view libraryName,
                                                   std::string_view functionName);

/// Fills the empty ones among `count` kernel slots by name. True when none stayed empty.
VORN_EXPORT bool VornEffectsLoadKernelArray(Class owner, std::string_view libraryName,
                                            const std::string_view* functionNames, CIKernel* slots,
                                            int count);

/// A picture from the PNG resource of that name, with a label and a message drawn on it; empty
/// when the resource is missing (with a line on standard output) or is no PNG. Texts are UTF-8
/// whose bytes are read as Mac Roman; null or empty ones are left out.
VORN_EXPORT CIImage VornEffectsCreateErrorImage(std::string_view resourceName,
                                                std::string_view label, std::string_view message);

/// A drawing context on a new pixel buffer (ARGB, 8 bits each, sRGB), whose base address stays
/// locked and which is stored in `buffer` when that is given. Null on failure, with a line on
/// standard output. `label` is used in messages only and may be null.
VORN_EXPORT CGContextRef VornEffectsCreateBitmapContext(uint32_t width, uint32_t height,
                                                        CVPixelBufferRef* buffer,
                                                        const char* label);

/// Nanoseconds of the platform's monotonic clock.
VORN_EXPORT uint64_t VornEffectsGetUptimeInNanoseconds();
VORN_EXPORT double VornEffectsDeg2rad(double degrees);
/// The angle less its whole turns, counted toward zero in 32 bits: the sign of the angle stays.
VORN_EXPORT double VornEffectsMod2pi(double radians);
}
#ifdef __clang__
#pragma clang diagnostic pop
#endif

#endif // VORN_HAS_LANGUAGE
