// A surface that the filters of a class draw on, one after the other, while images show it: one for
// each session. Renders that read it and filters that draw on it wait for each other.
#pragma once

#include "vorneffects/CIFilter.h"
#include "vorneffects/Platform.h"

#include <memory>
#include <shared_mutex>

namespace vorn::imaging {

struct SharedDrawing {
    /// That of a class in the session that is current on this thread.
    static std::shared_ptr<SharedDrawing> ofClass(Class owner);

    /// The surface as it is when the image is rendered; empty without a surface.
    static CIImage imageOf(const std::shared_ptr<SharedDrawing>& drawing);

    std::shared_mutex mutex;      ///< to be held for all that follows
    IOSurfaceRef surface;         ///< null until somebody makes it
    double width = 0, height = 0; ///< what the surface was made for
    CGRect drawn;                 ///< the pixels of it that are not transparent
};

} // namespace vorn::imaging
