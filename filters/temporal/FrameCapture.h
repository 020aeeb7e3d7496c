// The private copy of a frame that some filters work on or hold.
#pragma once

#include "core/FilterSupport.h"

#include <cmath>
#include <memory>

namespace vorn::filters {

/// A surface for a frame of that size: BGRA, its width rounded up to a multiple of 8 pixels. Null
/// when the size is empty or beyond any surface.
inline IOSurfaceRef surfaceFor(double width, double height) {
    constexpr double kLargestSide = 131072;
    if (!(width >= 1 && height >= 1 && width <= kLargestSide && height <= kLargestSide))
        return nullptr;
    SurfaceProperties properties;
    properties.width = (static_cast<uint32_t>(width) + 7) / 8 * 8;
    properties.height = static_cast<uint32_t>(height);
    properties.bytesPerRow = size_t{properties.width} * properties.bytesPerElement;
    properties.allocSize = properties.bytesPerRow * properties.height;
    return Surface::create(properties);
}

/// Copies an image to a surface for it, and its last column to the padding: a filter that takes the
/// surface's whole width for the picture's shows no border then.
inline bool captureTo(Surface& surface, const CIImage& image, CGColorSpace colorSpace) {
    const CGRect extent = image.extent();
    const CGRect padded{extent.x, extent.y, double(surface.width()), extent.height};
    return CIContext::capture(padded == extent ? image : image.imageByClampingToExtent(), surface,
                              padded, colorSpace);
}

/// Copies each frame to a surface of its own, which is kept while the frames' size stays the same.
class FrameCapture {
public:
    /// Whether frames of another size came before; from then on this size counts.
    bool takesNewSize(const CIImage& image) {
        const CGRect extent = image.extent();
        const double width = std::trunc(extent.width), height = std::trunc(extent.height);
        if (width == width_ && height == height_) return false;
        width_ = width, height_ = height;
        return true;
    }

    /// The copy of the image, with its lower left corner at (0, 0), tagged with the colour space.
    /// Empty for an image that cannot be copied.
    CIImage capture(const CIImage& image, CGColorSpace colorSpace) {
        if (!surface_) surface_ = surfaceFor(width_, height_);
        if (!surface_ || !captureTo(*surface_, image, colorSpace)) return {};
        return CIImage::imageWithIOSurface(surface_, colorSpace);
    }

    bool hasSurface() const { return surface_ != nullptr; }
    void clear() { surface_.reset(); }

private:
    IOSurfaceRef surface_;
    double width_ = 0, height_ = 0;
};

} // namespace vorn::filters
