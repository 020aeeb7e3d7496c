// Memory that a bitmap context draws into.
#pragma once

#include "platform_support.h"

namespace platform_test {

inline constexpr CIFormat kDrawableFormats[] = {CIFormat::RGBA8, CIFormat::BGRA8, CIFormat::ARGB8};

/// A bitmap of 8-bit pixels with padded rows, whose bytes are read channel by channel.
struct Bitmap {
    Bitmap(uint32_t width, uint32_t height, CIFormat format, size_t padding = 8)
        : width(width), height(height), format(format), bytesPerRow(width * 4 + padding),
          bytes(bytesPerRow * height) {
        context = BitmapContext::create(bytes.data(), width, height, bytesPerRow, format,
                                        CGColorSpace::SRGB);
    }

    uint8_t* at(uint32_t column, uint32_t row) { return &bytes[row * bytesPerRow + column * 4]; }
    /// The pixel as red, green, blue, alpha; row 0 is the top one.
    Bytes pixel(uint32_t column, uint32_t row) {
        const uint8_t* p = at(column, row);
        switch (format) {
        case CIFormat::BGRA8:
            return {p[2], p[1], p[0], p[3]};
        case CIFormat::ARGB8:
            return {p[1], p[2], p[3], p[0]};
        default:
            return {p[0], p[1], p[2], p[3]};
        }
    }
    /// The smallest box around everything that is not transparent, y up from the bottom.
    CGRect ink() {
        CGRect box;
        for (uint32_t row = 0; row < height; ++row)
            for (uint32_t column = 0; column < width; ++column)
                if (pixel(column, row)[3] > 0)
                    box = box.unionWith({double(column), double(height - 1 - row), 1, 1});
        return box;
    }

    uint32_t width, height;
    CIFormat format;
    size_t bytesPerRow;
    Bytes bytes;
    CGContextRef context;
};

} // namespace platform_test
