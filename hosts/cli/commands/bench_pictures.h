// What `vorn bench` renders: the test card in the sizes and the format that are asked for.
#pragma once

#include "values/values.h"

#include "vorneffects/CIContext.h"

#include <string>
#include <vector>

namespace vorn::hosts::cli {

/// The pictures of one size: what filters read, and where they are rendered to.
struct Pictures {
    PixelSize size;
    CIFormat format;
    std::vector<uint8_t> firstPixels, laterPixels, target;
    CIImage first, later;

    size_t bytesPerRow() const { return size.width * bytesPerPixel(format); }
    CGRect bounds() const { return {0, 0, double(size.width), double(size.height)}; }
};

/// Reads lists such as "1920x1080,640x480" and the name of a format; a `HostError` for others.
std::vector<Pictures> makePictures(const std::vector<std::string>& sizeLists,
                                   const std::string& formatText);

/// Throws what a context says of a render that failed.
[[noreturn]] void failRendering(const CIContext& context);

} // namespace vorn::hosts::cli
