// What a thread renders with.
#pragma once

#include "imaging/cpu/Plan.h"
#include "vorneffects/CIContext.h"

#include <memory>
#include <string>

namespace vorn::imaging {

namespace vulkan {
class Renderer;
}

/// Of the context that was made or rendered with last on a thread. What filters render while they
/// build their image, frames that they keep and trails that they feed back, is computed with the
/// same and stays where it was computed.
struct ThreadDevice {
    DeviceKind kind = DeviceKind::CPU; ///< CPU, Reference or Vulkan
    int threads = 0;                   ///< 0: one per core
    std::string instructionSet = {};   ///< as in `ContextOptions`
    std::weak_ptr<vulkan::Renderer> gpu = {};

    /// What an accumulator has stored last: the image, and the same as 8-bit pixels of a rectangle.
    /// A feedback chain stores its result and hands it out: it is then computed once, not twice.
    struct Stored {
        std::weak_ptr<const Node> image, pixels;
        cpu::IntRect rect;
    } stored = {};
};

ThreadDevice& deviceOfThread();

} // namespace vorn::imaging
