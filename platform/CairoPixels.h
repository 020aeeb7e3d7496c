// Cairo's pixels and ours. Cairo keeps premultiplied ARGB in 32-bit words of the machine's byte
// order; ours have their bytes in the order that the format's name gives.
#pragma once

#include "vorneffects/Platform.h"

#include <cairo.h>

#include <bit>
#include <cstring>
#include <memory>

namespace vorn::platform {

struct CairoDeleter {
    void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
    void operator()(cairo_t* context) const { cairo_destroy(context); }
    void operator()(cairo_pattern_t* pattern) const { cairo_pattern_destroy(pattern); }
};
using CairoSurface = std::unique_ptr<cairo_surface_t, CairoDeleter>;
using CairoContext = std::unique_ptr<cairo_t, CairoDeleter>;
using CairoPattern = std::unique_ptr<cairo_pattern_t, CairoDeleter>;

/// The largest side of a Cairo image in pixels.
inline constexpr uint32_t kLargestCairoSide = 32767;

/// The format whose bytes are Cairo's own.
inline constexpr CIFormat kCairoFormat =
    std::endian::native == std::endian::little ? CIFormat::BGRA8 : CIFormat::ARGB8;

/// Where the channels' bytes lie in a pixel.
struct ChannelOrder {
    uint8_t red, green, blue, alpha;
};
constexpr ChannelOrder channelOrder(CIFormat format) {
    switch (format) {
    case CIFormat::BGRA8:
        return {2, 1, 0, 3};
    case CIFormat::ARGB8:
        return {1, 2, 3, 0};
    default:
        return {0, 1, 2, 3};
    }
}

inline void copyFromCairo(const uint8_t* cairoRow, uint8_t* row, uint32_t width, CIFormat format) {
    const ChannelOrder order = channelOrder(format);
    for (; width > 0; --width, cairoRow += 4, row += 4) {
        uint32_t pixel;
        std::memcpy(&pixel, cairoRow, sizeof pixel);
        row[order.alpha] = static_cast<uint8_t>(pixel >> 24);
        row[order.red] = static_cast<uint8_t>(pixel >> 16);
        row[order.green] = static_cast<uint8_t>(pixel >> 8);
        row[order.blue] = static_cast<uint8_t>(pixel);
    }
}

inline void copyToCairo(const uint8_t* row, uint8_t* cairoRow, uint32_t width, CIFormat format) {
    const ChannelOrder order = channelOrder(format);
    for (; width > 0; --width, cairoRow += 4, row += 4) {
        const uint32_t pixel = uint32_t{row[order.alpha]} << 24 | uint32_t{row[order.red]} << 16 |
                               uint32_t{row[order.green]} << 8 | uint32_t{row[order.blue]};
        std::memcpy(cairoRow, &pixel, sizeof pixel);
    }
}

/// A transparent image; null when there is no memory for it.
inline CairoSurface makeCairoImage(uint32_t width, uint32_t height) {
    CairoSurface image(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, static_cast<int>(width),
                                                  static_cast<int>(height)));
    if (cairo_surface_status(image.get()) != CAIRO_STATUS_SUCCESS) return nullptr;
    return image;
}

} // namespace vorn::platform
