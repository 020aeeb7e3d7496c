// What a session has on the side of the image framework: renderers for its filters, and the GPUs
// that it has open.
#pragma once

#include "platform/Surroundings.h"
#include "vorneffects/Session.h"

#include <map>
#include <memory>
#include <mutex>
#include <vector>

namespace vorn::imaging {

namespace vulkan {
class Device;
class Renderer;
} // namespace vulkan

struct SharedDrawing;

/// A GPU that contexts of a session render on, and renderers on it that its filters borrow. Each
/// context holds it, so that it goes with the last one, and before a device of the host's does.
class SharedGpu {
public:
    explicit SharedGpu(std::shared_ptr<vulkan::Device> device);
    ~SharedGpu();

    const std::shared_ptr<vulkan::Device>& device() const { return device_; }
    std::shared_ptr<vulkan::Renderer> borrow();
    void giveBack(std::shared_ptr<vulkan::Renderer> renderer) noexcept;
    /// As `CIContext::trim`, of what is not lent.
    void trim();

private:
    std::shared_ptr<vulkan::Device> device_;
    std::mutex mutex_;
    std::vector<std::shared_ptr<vulkan::Renderer>> idle_;
    size_t made_ = 0;
};

struct SessionState {
    SessionState();
    ~SessionState();

    /// What contexts of the session share of a device: made by the first of them.
    std::shared_ptr<SharedGpu> share(const std::shared_ptr<vulkan::Device>& device);
    /// Where frames are rendered to that filters keep; null: on the CPU.
    std::shared_ptr<SharedGpu> gpuForFilters();
    /// As `CIContext::trim`, of what is not lent.
    void trim();

    SessionOptions options;
    std::unique_ptr<Surroundings> own; ///< null: the standard ones
    Surroundings* surroundings = nullptr;

    std::mutex mutex;
    std::vector<std::unique_ptr<CIContext>> idle; ///< that its filters borrow
    size_t made = 0;                              ///< those that are borrowed included
    std::vector<std::weak_ptr<SharedGpu>> gpus;   ///< the one that was opened first comes first
    std::shared_ptr<SharedGpu> gpu;               ///< of its own, where its options ask for one
    std::vector<std::weak_ptr<vulkan::Device>> openDevices; ///< by number; of `Device::open`
    std::map<Class, std::shared_ptr<SharedDrawing>> drawings;
};

/// A context for a render of a filter, with the device and threads of the session that is current
/// on this thread. It is given back at the end, and keeps its memory and threads until then.
class BorrowedContext {
public:
    BorrowedContext();
    ~BorrowedContext();
    BorrowedContext(const BorrowedContext&) = delete;
    BorrowedContext& operator=(const BorrowedContext&) = delete;

    CIContext& operator*() const { return *context_; }
    CIContext* operator->() const { return context_.get(); }
    vulkan::Renderer* gpu() const; ///< null: none

private:
    std::shared_ptr<Session> session_;
    std::unique_ptr<CIContext> context_;
    std::shared_ptr<SharedGpu> gpu_;
};

} // namespace vorn::imaging
