// What keeps bad sizes and exceptions from doing harm: nothing that the library or a host's
// callback throws leaves through the public interface.
#pragma once

#include "vorneffects/Platform.h"

#include <cstddef>
#include <cstdint>
#include <exception>
#include <new>
#include <optional>
#include <string>
#include <utility>

namespace vorn {

/// Puts the cause of the exception that is being handled into `problem`. "out of memory" fits into
/// a string without any.
inline void describeException(std::string& problem) noexcept {
    try {
        try {
            throw;
        } catch (const std::bad_alloc&) {
            problem = "out of memory";
        } catch (const std::exception& exception) {
            problem = exception.what();
        } catch (...) {
            problem = "a function of the host has thrown what is no std::exception";
        }
    } catch (...) {
        problem = "out of memory";
    }
}

/// What `work` gives; false, with the cause in `problem`, where it throws.
template <class Work>
bool succeeds(std::string& problem, Work&& work) noexcept {
    try {
        return std::forward<Work>(work)();
    } catch (...) {
        describeException(problem);
        return false;
    }
}

/// What `work` gives, and nothing where memory runs out.
template <class Work>
auto orNothing(Work&& work) noexcept -> decltype(work()) {
    try {
        return std::forward<Work>(work)();
    } catch (...) {
        return {};
    }
}

/// Whether a host's value is one of the enumeration.
constexpr bool isKnown(CIFormat format) {
    return format <= CIFormat::RGBAf;
}
constexpr bool isKnown(CGColorSpace space) {
    return space <= CGColorSpace::LinearSRGB;
}

/// The size of rows of pixels; nothing when no memory can be as large.
inline std::optional<size_t> sizeOfRows(size_t bytesPerRow, size_t rows) {
    size_t size = 0;
    if (__builtin_mul_overflow(bytesPerRow, rows, &size) || size > PTRDIFF_MAX) return {};
    return size;
}

} // namespace vorn
