// Rendering of lazy images.
#pragma once

#include "Language.h"

#if VORN_HAS_LANGUAGE

#include "CIImage.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class CIContext;

namespace vorn {

/// The devices that compute pictures. `Vulkan` is a GPU, or a software device that is made to look
/// like one. `Auto` takes a GPU where one can be used, a software device only by name, and else the
/// CPU, also where the GPU fails and for some renders after it was lost. `Reference` runs the same
/// kernels one pixel at a time over whole images: slow, simple, and the measure for the others.
enum class DeviceKind : uint8_t { Auto, CPU, Reference, Vulkan };

/// What is left as it is here is as the context's session has it.
struct ContextOptions {
    DeviceKind device = DeviceKind::Auto;
    int threads = 0;                                ///< 0: one per core
    CGColorSpace workingSpace = CGColorSpace::None; ///< None: values are worked on as stored
    /// CPU instruction-set level by name ("x86-64-v2", …); empty: the best that the processor has.
    std::string instructionSet = {};
    /// Of several Vulkan devices, the one of that number or with that in its name; empty: the best,
    /// which is a software device when that is all there is.
    std::string deviceName = {};
    /// Whether images that have been brought to a GPU stay there for further renders. Off only to
    /// measure what bringing them costs.
    bool keepsUploads = true;
};

/// A Vulkan device of this machine.
struct GPUDevice {
    struct QueueFamily {
        uint32_t queues = 0;
        bool graphics = false, compute = false, transfer = false, timestamps = false;
    };
    int number = 0; ///< as `ContextOptions::deviceName` takes it
    std::string name, driver, apiVersion;
    std::string kind; ///< "discrete", "integrated", "virtual", "software", "other"
    bool isSoftware = false;
    bool sharesDmaBufs = false;
    uint32_t largestSide = 0; ///< of an image, in pixels
    uint64_t memoryBytes = 0; ///< of the largest heap that is the device's own
    std::vector<QueueFamily> queueFamilies;
    std::string problem;       ///< why it cannot be used; empty: it can
    std::string pipelineCache; ///< the file that its compiled kernels are kept in
};

/// The Vulkan devices of this machine; `problem` gets why there are none, such as no memory.
VORN_EXPORT std::vector<GPUDevice> gpuDevices(std::string* problem = nullptr);

/// How long the parts of a render took on a GPU, in seconds.
struct RenderTimes {
    double upload = 0, kernels = 0, download = 0;
};

class Session;
namespace imaging {
class BorrowedContext;
}

/// A render that has been started. Destroying it without waiting gives its pixels up.
class VORN_EXPORT RenderTask {
public:
    RenderTask();
    RenderTask(RenderTask&& other) noexcept;
    RenderTask& operator=(RenderTask&& other) noexcept;
    ~RenderTask();

    /// Waits until the pixels are in their memory. False, with the context's `lastError` set, when
    /// the render has failed. To be called on the thread that renders with the context.
    bool wait();

private:
    friend class ::CIContext;
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace vorn

/// Renders images. Keeps its threads and memory between frames, so hosts keep their context. One
/// thread at a time may render with a context; contexts do not share state.
class VORN_EXPORT CIContext {
public:
    /// In the session that is current on this thread. Where memory runs out, every render fails and
    /// says so.
    explicit CIContext(vorn::ContextOptions options = {});
    explicit CIContext(std::shared_ptr<vorn::Session> session, vorn::ContextOptions options = {});
    ~CIContext();
    CIContext(const CIContext&) = delete;
    CIContext& operator=(const CIContext&) = delete;

    /// Renders the part of an image inside `bounds` (rounded outward to whole pixels) into the
    /// caller's memory, top row first. The colour space is that of the result (None: as worked on).
    /// False, with `lastError` set, for an empty image, an empty or infinite rectangle, a stride
    /// below the row or beyond any memory, an unknown format or colour space, memory that runs out,
    /// or a region of interest that throws.
    bool render(const CIImage& image, void* bytes, size_t bytesPerRow, CGRect bounds,
                CIFormat format, CGColorSpace colorSpace = CGColorSpace::SRGB);
    /// Starts the same. The memory that is rendered into, and that of the sources, has to stay as
    /// it is until the task has been waited for or destroyed. On a GPU a few renders can be under
    /// way together; the CPU renders at once.
    vorn::RenderTask startRender(const CIImage& image, void* bytes, size_t bytesPerRow,
                                 CGRect bounds, CIFormat format,
                                 CGColorSpace colorSpace = CGColorSpace::SRGB);
    /// Renders so that the lower-left corner of `bounds` falls on that of the surface or buffer;
    /// what lies outside of it is left out.
    bool renderToIOSurface(const CIImage& image, vorn::Surface& surface, CGRect bounds,
                           CGColorSpace colorSpace = CGColorSpace::SRGB);
    bool renderToCVPixelBuffer(const CIImage& image, vorn::PixelBuffer& buffer, CGRect bounds,
                               CGColorSpace colorSpace = CGColorSpace::SRGB);
    /// The same for a filter that keeps a frame while it builds its image: with the device, threads
    /// and instruction set of the session that is current on this thread, the filter's own.
    static bool capture(const CIImage& image, vorn::Surface& surface, CGRect bounds,
                        CGColorSpace colorSpace = CGColorSpace::SRGB);

    /// Gives back the memory that is kept for the next frames, the context's own and what its
    /// device and its session have idle; a render makes it again. For hosts that pause. To be
    /// called on the thread that renders with the context; renders under way go on.
    void trim();

    const std::string& lastError() const;
    /// Why the device that was asked for is not there; empty when it is. Renders try again to open
    /// it, and fail with the same.
    const std::string& deviceProblem() const;
    /// The device that computes: CPU, Reference or Vulkan, and its name ("cpu", "reference", or
    /// that of the GPU; empty where memory runs out).
    vorn::DeviceKind device() const;
    std::string deviceName() const;
    /// What the last render that was waited for took on a GPU; zeros on other devices.
    vorn::RenderTimes renderTimes() const;
    const vorn::ContextOptions& options() const; ///< the session's filled in
    int threads() const;
    /// The instruction-set level in use ("reference" on that device).
    const char* instructionSet() const;
    /// Allocations of pixel memory, on the heap or on the device, since the context was made;
    /// stands still in a steady state.
    uint64_t pixelAllocations() const;

private:
    friend class vorn::RenderTask;
    friend struct vorn::RenderTask::State;
    friend class vorn::imaging::BorrowedContext;
    struct State;
    std::shared_ptr<State> state_;
};

namespace vorn {

/// The instruction-set levels that this processor can run, best first; none, with a line, where
/// memory runs out.
VORN_EXPORT std::vector<std::string> supportedInstructionSets();

} // namespace vorn

#endif // VORN_HAS_LANGUAGE
